// Every frame on the virtual bus written to a file in candump's log format,
// a line as soon as the frame is on the bus, so that a reader can follow it.
#ifndef TARVELSIM_BUS_LOG_H
#define TARVELSIM_BUS_LOG_H

#include <chrono>
#include <cstdio>
#include <string>

#include "tarvelsim/Wire.h"

namespace tarvelsim {

// "(1700000000.123456) can0 123#DEADBEEF": identifiers of extended frames
// (and any above 7FF) with 8 digits, frames longer than 8 bytes as CAN FD
// ("ID##0DATA"; the device's flag bits have no place in the format).
std::string candumpLine(const BusFrame& frame, std::chrono::system_clock::time_point when);

class BusLog {
public:
    BusLog() = default;
    ~BusLog() { close(); }
    BusLog(const BusLog&) = delete;
    BusLog& operator=(const BusLog&) = delete;

    // path "-": standard output. Starts the file afresh. False and a reason on failure.
    bool open(const std::string& path, std::string& error);
    void close();
    void write(const BusFrame& frame, std::chrono::system_clock::time_point when);

private:
    std::FILE* m_file = nullptr;
};

} // namespace tarvelsim

#endif
