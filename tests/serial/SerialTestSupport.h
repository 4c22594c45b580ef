// Shared pieces of the serial tests: a port connected to a pseudo-terminal,
// access to the private cancel and queue, and waiting for a condition.
#ifndef TARVEL_TEST_SERIAL_SUPPORT_H
#define TARVEL_TEST_SERIAL_SUPPORT_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

#include "Pty.h"
#include "SerialPort.h"

struct SerialPortTestAccess {
    static std::size_t queued(SerialPort& p) {
        std::lock_guard<std::mutex> lock(p.m_queueMutex);
        return p.m_writeQueue.size();
    }
};

// Polls until cond holds or timeoutMs has passed; returns cond().
inline bool waitFor(const std::function<bool()>& cond, int timeoutMs = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!cond()) {
        if (std::chrono::steady_clock::now() >= deadline) return cond();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// The session's line: 2,000,000 baud, 8 data bits, one stop bit, even parity.
inline int connectLine(SerialPort& port, const std::string& path) {
    return port.Connect(path, 2000000, 8, 0, 2);
}

class PtyPort : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(connectLine(port, pty.slavePath()), 0);
        ASSERT_EQ(port.SetTimeout(1000, 1000), 0);
    }
    Pty pty;
    SerialPort port;
};

#endif
