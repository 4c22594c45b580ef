// The sender thread and its write queue, against a pseudo-terminal whose far
// end the test drains, blocks (by not reading) or closes.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>

#include "SerialTestSupport.h"

namespace {

using Sender = PtyPort;

int queue(SerialPort& port, ByteVector bytes) {
    return port.WriteByteNonblock(bytes.data(), static_cast<int>(bytes.size()));
}

// Stopping and starting again: the tests below.
TEST_F(Sender, StartsOnTheFirstWrite) {
    EXPECT_EQ(port.getThrStatus(), SerialPort::IDLE);
    EXPECT_EQ(queue(port, {1, 2, 3}), 1);
    EXPECT_EQ(port.getThrStatus(), SerialPort::RUNNING);
    EXPECT_EQ(pty.read(3), (ByteVector{1, 2, 3}));
    EXPECT_GE(queue(port, {}), 1); // an empty buffer is queued like any other
}

// The line is blocked while the far end does not read: the thread sits in a
// write of `big`, and what is queued meanwhile waits in the queue, also
// while a Disconnect waits for the thread to stop.
TEST_F(Sender, QueuedWritesArriveInOrderEvenAcrossAStopAndAFullQueueOverwritesItsNewest) {
    ASSERT_EQ(port.SetTimeout(1000, 60000), 0);
    const ByteVector big(1 << 20, 0x33);
    ASSERT_EQ(queue(port, big), 1);
    ASSERT_TRUE(eventually([this] { return SerialPortTestAccess::queued(port) == 0; }));

    const std::size_t limit = SerialPort::kMaxQueuedBuffers;
    auto entry = [](std::size_t i) {
        return ByteVector{static_cast<unsigned char>(i >> 16), static_cast<unsigned char>(i >> 8),
                          static_cast<unsigned char>(i)};
    };
    // Results 1, 2, 3 ... up to the limit, then the limit again: entries
    // limit-1 and limit are overwritten by the next one.
    ByteVector expected = big;
    int wrong = 0;
    for (std::size_t i = 0; i < limit + 2; ++i) {
        const ByteVector e = entry(i);
        wrong += queue(port, e) != static_cast<int>(std::min(i + 1, limit));
        if (i + 1 < limit || i == limit + 1) expected.insert(expected.end(), e.begin(), e.end());
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(port.GetDroppedWrites(), 2u);
    auto disconnected = std::async(std::launch::async, [this] { return port.Disconnect(); });
    ASSERT_TRUE(eventually([this] { return port.getThrStatus() == SerialPort::STOP_REQ; }));
    ByteVector got = pty.read(expected.size(), 20000);
    EXPECT_EQ(got.size(), expected.size()) << "a stop writes out what was queued before it";
    EXPECT_TRUE(got == expected);
    EXPECT_EQ(disconnected.get(), 0);
    EXPECT_EQ(port.getThrStatus(), SerialPort::STOPPED);
    EXPECT_TRUE(pty.read(1, 100).empty());
}

TEST_F(Sender, WriteFailuresEndInFailedAndDisconnectMakesItRestartable) {
    ASSERT_EQ(queue(port, {1}), 1);
    ASSERT_EQ(pty.read(1).size(), 1u);
    pty.closeMaster();

    CaptureStderr err;
    // Buffers above the batch limit are written one by one, so each one is
    // one failed write; more than kMaxSenderErrors of them end the thread.
    const ByteVector chunk(SerialPort::kSendBatchLimit + 1, 0x77);
    for (int i = 0; i < 2 * SerialPort::kMaxSenderErrors && queue(port, chunk) >= 0; ++i) {
    }
    ASSERT_TRUE(eventually([this] { return port.getThrStatus() == SerialPort::FAILED; }));
    EXPECT_EQ(queue(port, {2}), -1);
    const std::string text = err.stop();
    EXPECT_NE(text.find("SerialPort::WriteByte WriteFile failed with error: "), std::string::npos);
    EXPECT_NE(text.find("SerialPort::SenderThread Maximal error count hit. Thread failed."), std::string::npos);
    EXPECT_NE(text.find("SerialPort::WriteByteNonblock: Unexpected state of thread: FAILED."), std::string::npos);

    EXPECT_EQ(port.Disconnect(), 0);
    EXPECT_EQ(port.getThrStatus(), SerialPort::STOPPED);
    Pty fresh;
    ASSERT_EQ(connectLine(port, fresh.slavePath()), 0);
    EXPECT_EQ(queue(port, {9}), 1);
    EXPECT_EQ(fresh.read(1), ByteVector{9});
}

TEST_F(Sender, ConcurrentFirstWritersStartOneThread) {
    for (int round = 0; round < 5; ++round) {
        std::atomic<int> ready{0};
        auto writer = [&](unsigned char b) {
            ++ready;
            while (ready.load() < 2) {
            }
            return queue(port, {b});
        };
        auto first = std::async(std::launch::async, writer, 0x10);
        auto second = std::async(std::launch::async, writer, 0x20);
        EXPECT_GE(first.get(), 1);
        EXPECT_GE(second.get(), 1);
        ByteVector got = pty.read(2);
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, (ByteVector{0x10, 0x20}));
        ASSERT_EQ(port.Disconnect(), 0);
        ASSERT_EQ(connectLine(port, pty.slavePath()), 0);
    }
}

} // namespace
