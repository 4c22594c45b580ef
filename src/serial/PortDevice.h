// The platform layer under SerialPort: the few operations on a serial device
// that differ between operating systems. One backend per OS implements them
// (posix/, win32/); everything above is shared.
#ifndef TARVEL_SERIAL_PORT_DEVICE_H
#define TARVEL_SERIAL_PORT_DEVICE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "SerialPort.h"

namespace tarvel {

// Where a failed transfer failed, so that the shared code can name the step.
enum class IoStage { CreateEvent, Transfer, Wait, Result, CloseEvent };

struct IoResult {
    long long count = 0; // bytes transferred (0: time-out or cancelled read)
    bool ok = true;      // false: failed at `stage` with system error `error`
    IoStage stage = IoStage::Transfer;
    unsigned long error = 0;
};

const uint32_t kWaitForever = 0xFFFFFFFFu;

namespace port {

// Opens the named device exclusively. A name containing '/' is used as
// given; a bare name is looked up where the OS keeps serial devices.
PortDevice* open(const std::string& name, unsigned long& error);
bool getLineSettings(PortDevice* device, LineSettings& settings, unsigned long& error);
bool setLineSettings(PortDevice* device, const LineSettings& settings, unsigned long& error);
// Turns every driver-side time-out off: deadlines come from the waits below.
bool disableDriverTimeouts(PortDevice* device, unsigned long& error);
// Drops pending I/O and both driver buffers.
bool purge(PortDevice* device, unsigned long& error);
// Closes and frees the device; on failure the device stays open.
bool close(PortDevice* device, unsigned long& error);

// Reads whatever is available, up to n bytes, waiting up to timeoutMs
// (kWaitForever: no limit) for the first. A read that times out or is
// cancelled returns count 0; a device that went away is a failure.
IoResult readSome(PortDevice* device, unsigned char* buf, std::size_t n, uint32_t timeoutMs);
// Writes n bytes within timeoutMs; a count below n is a short write.
IoResult write(PortDevice* device, const unsigned char* buf, std::size_t n, uint32_t timeoutMs);
// Wakes a read blocked in readSome on another thread. The request stays
// pending until a read consumes it or clearCancel drops it.
void cancelRead(PortDevice* device);
void clearCancel(PortDevice* device);

// The system's text for an error code (may end with the system's line end).
std::string errorText(unsigned long code);
// The error code of the calling thread's last failed system call.
unsigned long lastError();

} // namespace port

// Manual-reset events for the sender thread. A named event is shared by name
// where the platform has named events; elsewhere it is private to its owner.
namespace event {
const unsigned long kSignalled = 0;
const unsigned long kAbandoned = 128;
const unsigned long kTimeout = 258;
const unsigned long kFailed = 0xFFFFFFFFul;

PortEvent* create(const char* name); // null on failure
bool set(PortEvent* event);
bool reset(PortEvent* event);
unsigned long wait(PortEvent* event, uint32_t timeoutMs);
void close(PortEvent* event);
} // namespace event

} // namespace tarvel

#endif
