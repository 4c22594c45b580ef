// Shared pieces of the serial tests: a port connected to a pseudo-terminal,
// and access to the port's private write queue.
#ifndef TARVEL_TEST_SERIAL_SUPPORT_H
#define TARVEL_TEST_SERIAL_SUPPORT_H

#include <gtest/gtest.h>

#include <mutex>

#include "CaptureStderr.h"
#include "Pty.h"
#include "SerialPort.h"
#include "Wait.h"

struct SerialPortTestAccess {
    static std::size_t queued(SerialPort& p) {
        std::lock_guard<std::mutex> lock(p.m_queueMutex);
        return p.m_writeQueue.size();
    }
};

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
