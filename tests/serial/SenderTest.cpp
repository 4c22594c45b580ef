// The sender thread and its write queue, against a pseudo-terminal whose far
// end the test drains, blocks (by not reading) or closes.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>

#include "CaptureStderr.h"
#include "SerialTestSupport.h"

namespace {

using Sender = PtyPort;

int queue(SerialPort& port, ByteVector bytes) { return port.WriteByteNonblock(bytes.data(), static_cast<int>(bytes.size())); }

TEST_F(Sender, StartsOnFirstWriteStopsOnDisconnectAndRestarts) {
    EXPECT_EQ(port.getThrStatus(), SerialPort::IDLE);
    EXPECT_EQ(queue(port, {1, 2, 3}), 1);
    EXPECT_EQ(port.getThrStatus(), SerialPort::RUNNING);
    EXPECT_EQ(pty.read(3), (ByteVector{1, 2, 3}));
    EXPECT_GE(queue(port, {}), 1); // an empty buffer is queued like any other
    EXPECT_GE(port.SlipSend({0xC0}, false, false), 1);
    EXPECT_EQ(pty.read(4), (ByteVector{0xC0, 0xDB, 0xDC, 0xC0}));

    EXPECT_EQ(port.Disconnect(), 0);
    EXPECT_EQ(port.getThrStatus(), SerialPort::STOPPED);
    ASSERT_EQ(connectLine(port, pty.slavePath()), 0);
    EXPECT_EQ(queue(port, {4, 5}), 1);
    EXPECT_EQ(port.getThrStatus(), SerialPort::RUNNING);
    EXPECT_EQ(pty.read(2), (ByteVector{4, 5}));
}

// The line is blocked while the far end does not read: the thread sits in
// a write of `big`, and what is queued meanwhile waits in the queue.
class BlockedSender : public Sender {
protected:
    void block() {
        ASSERT_EQ(port.SetTimeout(1000, 60000), 0);
        ASSERT_EQ(queue(port, big), 1);
        ASSERT_TRUE(waitFor([this] { return SerialPortTestAccess::queued(port) == 0; }));
    }
    ByteVector big = ByteVector(1 << 20, 0x33);
};

TEST_F(BlockedSender, QueuedWritesCountUpAndArriveInOrder) {
    block();
    EXPECT_EQ(queue(port, {0xA1}), 1);
    EXPECT_EQ(queue(port, {0xA2, 0xA2}), 2);
    EXPECT_EQ(queue(port, {0xA3}), 3);
    ByteVector got = pty.read(big.size() + 4);
    ASSERT_EQ(got.size(), big.size() + 4);
    EXPECT_EQ(ByteVector(got.begin(), got.begin() + static_cast<long>(big.size())), big);
    EXPECT_EQ(ByteVector(got.end() - 4, got.end()), (ByteVector{0xA1, 0xA2, 0xA2, 0xA3}));
}

TEST_F(BlockedSender, AFullQueueOverwritesItsNewestEntry) {
    block();
    const std::size_t limit = SerialPort::kMaxQueuedBuffers;
    auto entry = [](std::size_t i) {
        return ByteVector{static_cast<unsigned char>(i >> 16), static_cast<unsigned char>(i >> 8),
                          static_cast<unsigned char>(i)};
    };
    int last = 0;
    for (std::size_t i = 0; i < limit + 2; ++i) {
        last = queue(port, entry(i));
        if (i + 1 == limit) {
            EXPECT_EQ(last, static_cast<int>(limit));
        }
    }
    EXPECT_EQ(last, static_cast<int>(limit));

    ByteVector expected = big;
    for (std::size_t i = 0; i + 1 < limit; ++i) {
        ByteVector e = entry(i);
        expected.insert(expected.end(), e.begin(), e.end());
    }
    ByteVector newest = entry(limit + 1); // entries limit-1 and limit were overwritten
    expected.insert(expected.end(), newest.begin(), newest.end());
    ByteVector got = pty.read(expected.size(), 20000);
    EXPECT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected);
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
    int refused = 0;
    for (int i = 0; i < 2 * SerialPort::kMaxSenderErrors && refused == 0; ++i) {
        const int r = queue(port, chunk);
        if (r < 0) refused = r;
    }
    ASSERT_TRUE(waitFor([this] { return port.getThrStatus() == SerialPort::FAILED; }));
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

TEST_F(Sender, SendsAndReceivesAtTheSameTime) {
    // The far end echoes every byte; frames go out through the queue while
    // another thread reads them back.
    const int frames = 200;
    std::atomic<bool> echoing{true};
    std::thread echo([&] {
        while (echoing) {
            ByteVector b = pty.read(64, 5);
            if (!b.empty()) pty.write(b);
        }
    });
    auto reader = std::async(std::launch::async, [&] {
        int ok = 0;
        ByteVector buffer;
        for (int i = 0; i < frames; ++i)
            if (port.SlipReceive(buffer, 255, 1) == 3 && buffer[0] == static_cast<unsigned char>(i)) ++ok;
        return ok;
    });
    for (int i = 0; i < frames; ++i) EXPECT_GE(port.SlipSend({static_cast<unsigned char>(i), 0xC0, 0xDB}, false, false), 1);
    EXPECT_EQ(reader.get(), frames);
    echoing = false;
    echo.join();
}

} // namespace
