// Shared pieces of the serial tests: a port connected to a pseudo-terminal,
// a read under way on another thread, and access to the port's write queue.
#ifndef TARVEL_TEST_SERIAL_SUPPORT_H
#define TARVEL_TEST_SERIAL_SUPPORT_H

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <string>

#include "CaptureStderr.h"
#include "PollingThreads.h"
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

// Runs `read` on another thread and returns once it waits for bytes, so that
// what the test does next meets a read under way.
template <class F> std::future<int> readingThread(F read) {
    auto tid = std::make_shared<std::atomic<pid_t>>(0);
    auto result = std::async(std::launch::async, [tid, read] {
        *tid = static_cast<pid_t>(::syscall(SYS_gettid));
        return read();
    });
    EXPECT_TRUE(eventually([&] { return *tid != 0 && waitsInPoll(*tid); })) << "the read never waited for bytes";
    return result;
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
