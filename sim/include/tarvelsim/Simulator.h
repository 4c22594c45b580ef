// An emulated Tarvel device serving the master side of a pseudo-terminal
// (or a real serial device), for tests, demos and benches without hardware.
#ifndef TARVELSIM_SIMULATOR_H
#define TARVELSIM_SIMULATOR_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarvelsim/Wire.h"

namespace tarvelsim {

// Faults, set per run or at run time. Counters count answers sent since the
// fault was set.
struct Faults {
    unsigned answerDelayMs = 0;       // delay every answer
    unsigned dropEvery = 0;           // drop every n-th answer (0: never)
    unsigned corruptEvery = 0;        // corrupt the checksum of every n-th answer
    bool garbageBeforeFrames = false; // put non-END bytes before each frame
    bool cutFrames = false;           // start each frame with junk cut by ESC ESC_BRK
    bool hwErrorBeforeAnswer = false; // send TARVEL_HW_ERROR (id 0) before each answer
    int failCommand = -1;             // answer this command code with failResponse
    uint8_t failResponse = 0x81;      // COMMAND_FAILED or PACKET_ERROR
    unsigned floodPerSecond = 0;      // ASYNC_MESSAGE reports per second (0: off)
    bool floodMax = false;            // as fast as the line takes them
    bool silent = false;              // read everything, answer nothing
};

struct Options {
    std::string port;           // empty: open a pseudo-terminal pair; else act as the device on this path
    std::string link;           // make a symlink to the slave path
    std::string eepromFile;     // keep the EEPROM in this file
    uint16_t versionStatus = 0; // status answered to REBOOT mode 3 (0: feature level 100)
    unsigned bootTimeMs = 200;  // deaf time after a restart
    unsigned capacity = 64;     // transmit messages the device can hold
    bool verbose = false;       // log traffic on stderr
    std::string busLog;         // write every frame on the bus to this file, candump's log format ("-": stdout)
    Faults faults;
};

// Replaces the model's answer to a host packet when it returns a value (the
// packets are sent in order; an empty list sends nothing). The model still
// carries the command out unless the responder returns a value.
using Responder = std::function<std::optional<std::vector<DevicePacket>>(const HostPacket&)>;

// Sees every frame on the bus, sent by the device or injected, with the
// wall-clock time it went on the bus. Called on the serving thread: it must
// return quickly and must not call stop().
using BusObserver = std::function<void(const BusFrame& frame, std::chrono::system_clock::time_point when)>;

class Simulator {
public:
    explicit Simulator(Options options = Options());
    ~Simulator(); // stops

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    bool start();                 // opens the terminal and starts serving on its own thread; false on failure
    void stop();                  // ends the thread and closes the terminal
    std::string portPath() const; // the path the host connects to
    std::string lastError() const;

    void setFaults(const Faults& faults);
    Faults faults() const;
    void setResponder(Responder responder);    // null: the model answers everything
    void setBusObserver(BusObserver observer); // null: none

    // Puts a frame on the bus as if another node sent it.
    void injectFrame(const BusFrame& frame);
    // Sends raw bytes / a packet (framed) to the host, unasked.
    void sendRaw(const Bytes& bytes);
    void sendPacket(const DevicePacket& packet);

    // Packets received from the host, decoded, in order.
    std::vector<HostPacket> hostPackets() const;
    std::size_t hostPacketCount() const;
    void clearLog();
    // Waits until at least n packets have been logged since the last clearLog.
    bool waitForPackets(std::size_t n, int timeoutMs) const;

    // Device state, for checks.
    uint32_t clock() const;
    Bytes eeprom(uint16_t address, std::size_t length) const;
    std::size_t messageCount() const; // transmit messages held
    std::size_t requestCount() const;
    bool booting() const; // inside the deaf time of a restart
    // A host holds the terminal: on a pseudo-terminal from its opening until
    // the terminal was made fresh after its last close; on a port, while open.
    bool hostConnected() const;

    // Closes the master side (the host sees the device go away).
    void hangUp();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace tarvelsim

#endif
