// The port device over a real pseudo-terminal: opening, exclusivity, line
// settings, timed reads and writes, cancel, hang-up, copies.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "SerialTestSupport.h"

namespace {

TEST(PortConnect, FailuresLeaveThePortClosedWithOneReport) {
    Pty pty;
    const std::string badSetting = "SerialPort::Connect: SetCommState failed with error: Invalid argument\n";
    struct Case {
        std::string path;
        unsigned char bits, stop, parity;
        int result;
        std::string report; // its beginning
    };
    const Case cases[] = {
        {"/dev/tarvel-no-such-port", 8, 0, 2, -2,
         "SerialPort::Connect: CreateFile failed with error: No such file or directory\n"},
        // A bare name is looked up in /dev/: "null" opens, but is no terminal.
        {"null", 8, 0, 2, -3, "SerialPort::Connect: GetCommState failed with error: "},
        {pty.slavePath(), 8, 1, 2, -4, badSetting},
        {pty.slavePath(), 8, 3, 2, -4, badSetting},
        {pty.slavePath(), 9, 0, 2, -4, badSetting},
        {pty.slavePath(), 8, 0, 5, -4, badSetting},
    };
    SerialPort port;
    for (const Case& c : cases) {
        CaptureStderr err;
        EXPECT_EQ(port.Connect(c.path, 2000000, c.bits, c.stop, c.parity), c.result) << c.path;
        const std::string text = err.stop();
        EXPECT_EQ(text.substr(0, c.report.size()), c.report);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
        EXPECT_FALSE(port.IsActive());
    }
    // The failed attempts released the device.
    EXPECT_EQ(connectLine(port, pty.slavePath()), 0);
}

TEST(PortConnect, AlreadyConnectedAndExclusive) {
    Pty a, b;
    SerialPort port, other;
    ASSERT_EQ(connectLine(port, a.slavePath()), 0);
    {
        CaptureStderr err;
        EXPECT_EQ(connectLine(port, a.slavePath()), 1);
        EXPECT_EQ(connectLine(port, b.slavePath()), -1);
        EXPECT_EQ(err.stop(), "COM port already open! (Open: " + a.slavePath() + ", opening: " + b.slavePath() + ")\n");
    }
    EXPECT_TRUE(port.IsActive());
    {
        CaptureStderr err;
        EXPECT_EQ(connectLine(other, a.slavePath()), -2);
        EXPECT_EQ(err.stop().rfind("SerialPort::Connect: CreateFile failed with error: ", 0), 0u);
    }
    EXPECT_FALSE(other.IsActive());
    EXPECT_EQ(port.Disconnect(), 0);
    EXPECT_EQ(connectLine(other, a.slavePath()), 0);
}

TEST(PortState, NewPortAndClosedPortOperations) {
    SerialPort port;
    unsigned r = 7, w = 7;
    EXPECT_EQ(port.GetTimeout(r, w), 0);
    EXPECT_EQ(r, 0u);
    EXPECT_EQ(w, 0u);
    EXPECT_FALSE(port.IsActive());
    EXPECT_EQ(port.Disconnect(), 0);
    EXPECT_EQ(port.Disconnect(), 0);

    CaptureStderr err;
    // The framing layer refuses without a report and leaves the buffer alone.
    ByteVector buffer = {9, 9};
    EXPECT_EQ(port.SlipReceive(buffer, 255, 0), -1);
    EXPECT_EQ(buffer, (ByteVector{9, 9}));
    EXPECT_EQ(port.SlipSend(buffer, false, false), -1);
    EXPECT_EQ(port.SlipSend(buffer, false, true), -1);
    EXPECT_EQ(port.getThrStatus(), SerialPort::IDLE);
    unsigned char b = 0;
    EXPECT_EQ(port.Flush(), -1);
    EXPECT_EQ(port.SetTimeout(5, 5), -1);
    EXPECT_EQ(port.ReadByte(&b, 1, false), -1);
    EXPECT_EQ(port.WriteByte(&b, 1, false), -1);
    // No count, however small, makes a closed port readable or writable.
    EXPECT_EQ(port.ReadByte(&b, 0, false), -1);
    EXPECT_EQ(port.WriteByte(&b, 0, false), -1);
    EXPECT_EQ(err.stop(), "SerialPort::Flush: Clearing RX and TX buffers failed.Bad file descriptor\n"
                          "SerialPort::SetTimeout SetCommTimeouts failed with error: Bad file descriptor\n"
                          "SerialPort::ReadByte ReadFile failed with error: Bad file descriptor\n"
                          "SerialPort::WriteByte WriteFile failed with error: Bad file descriptor\n"
                          "SerialPort::ReadByte ReadFile failed with error: Bad file descriptor\n"
                          "SerialPort::WriteByte WriteFile failed with error: Bad file descriptor\n");
    EXPECT_EQ(port.GetTimeout(r, w), 0);
    EXPECT_EQ(r, 0u); // a failed SetTimeout keeps the old values
}

using PortIo = PtyPort;

TEST_F(PortIo, AZeroTimeOutReturnsAtOnceAndFlushDropsWhatArrived) {
    ASSERT_EQ(port.SetTimeout(0, 0), 0);
    unsigned char b = 0;
    EXPECT_EQ(port.ReadByte(&b, 1, false), 0);
    ASSERT_TRUE(pty.write(ByteVector{0x5A, 0x6B}));
    int r = 0;
    EXPECT_TRUE(eventually([&] { return (r = port.ReadByte(&b, 1, false)) != 0; }));
    EXPECT_EQ(r, 1);
    EXPECT_EQ(b, 0x5A);
    EXPECT_EQ(port.Flush(), 0); // the 0x6B, which came with it, goes
    ASSERT_EQ(port.SetTimeout(50, 1000), 0);
    EXPECT_EQ(port.ReadByte(&b, 1, false), 0);
}

// What a read did not ask for stays for the next one too: SlipTest, where
// frames follow each other in one write.
TEST_F(PortIo, ATimedReadEndsByItsDeadlineWhileBytesTrickleIn) {
    // A byte every 20 ms, for up to 4 s: a read of 200 bytes with a time-out
    // of 300 ms times out, although no gap between two bytes is that long.
    ASSERT_EQ(port.SetTimeout(300, 1000), 0);
    std::atomic<bool> stop{false};
    std::atomic<int> written{0};
    std::thread writer([&] {
        for (unsigned char b = 0; b < 200 && !stop; ++b) {
            if (pty.write(&b, 1)) ++written;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    unsigned char buf[200];
    const int r = port.ReadByte(buf, 200, false);
    stop = true;
    writer.join();
    EXPECT_EQ(r, 0) << "a partial read must not start the time-out again";
    // What came is kept, in order, for the next read.
    ASSERT_EQ(port.SetTimeout(5000, 1000), 0);
    ASSERT_EQ(port.ReadByte(buf, written, false), written.load());
    for (int i = 0; i < written; ++i)
        ASSERT_EQ(i, buf[i]);
}

TEST_F(PortIo, ReadsLargerThanTheReadAhead) {
    ByteVector big(10000);
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<unsigned char>(i * 7);
    std::thread writer([&] { pty.write(big); });
    ByteVector got(big.size());
    EXPECT_EQ(port.ReadByte(got.data(), static_cast<int>(got.size()), false), static_cast<int>(got.size()));
    writer.join();
    EXPECT_EQ(got, big);
}

TEST_F(PortIo, WriteThatCannotFinishTimesOut) {
    ASSERT_EQ(port.SetTimeout(1000, 100), 0);
    ByteVector big(1 << 20, 0x55); // far more than the pseudo-terminal buffers
    CaptureStderr err;
    EXPECT_EQ(port.WriteByte(big.data(), static_cast<int>(big.size()), false), -1);
    EXPECT_EQ(err.stop(), "SerialPort::WriteByte WaitForSingleObject failed with error: Connection timed out\n");
}

// Each of these meets a read that waits for bytes with a time-out of 30 s.
TEST_F(PortIo, HangUpFailsReadsAndWritesInsteadOfTimingOut) {
    ASSERT_EQ(port.SetTimeout(30000, 1000), 0);
    ASSERT_TRUE(pty.write(ByteVector{0xC0, 0x01}));
    CaptureStderr err;
    ByteVector buffer = {7};
    auto reader = readingThread([&] { return port.SlipReceive(buffer, 255, 1); }); // in mid-frame
    pty.closeMaster();
    EXPECT_EQ(reader.get(), -1) << "a failure, not a time-out";
    EXPECT_TRUE(buffer.empty());
    unsigned char b = 0;
    EXPECT_EQ(port.ReadByte(&b, 1, false), -1); // again at once: nothing to spin on
    EXPECT_EQ(port.WriteByte(&b, 1, false), -1);
    const std::string text = err.stop();
    EXPECT_NE(text.find("SerialPort::ReadByte ReadFile failed with error: "), std::string::npos);
    EXPECT_NE(text.find("SerialPort::WriteByte WriteFile failed with error: "), std::string::npos);
}

TEST_F(PortIo, AReaderThatIsToldToStopIsWoken) {
    ASSERT_EQ(port.SetTimeout(30000, 1000), 0);
    std::atomic<bool> keepReading{true};
    ByteVector buffer;
    auto reader = readingThread([&] { return port.SlipReceive(buffer, 255, 1, keepReading); });
    keepReading = false;
    port.InterruptRead();
    ASSERT_EQ(reader.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(reader.get(), 0);

    // With no read under way an interrupt leaves nothing behind for the next one.
    port.InterruptRead();
    ASSERT_TRUE(pty.write(ByteVector{0x42}));
    unsigned char b = 0;
    EXPECT_EQ(port.ReadByte(&b, 1, false), 1);
    EXPECT_EQ(b, 0x42);
}

TEST_F(PortIo, PurgingAndClosingWakeTheRead) {
    ASSERT_EQ(port.SetTimeout(30000, 1000), 0);
    ByteVector buffer;
    const auto read = [&] { return readingThread([&] { return port.SlipReceive(buffer, 255, 1); }); };
    const auto unstick = [&] { port.InterruptRead(); };
    auto reader = read();
    EXPECT_EQ(0, within(
                     std::chrono::seconds(10), [&] { return port.Flush(); }, unstick))
        << "not after the read's 30 s";
    EXPECT_EQ(reader.get(), 0) << "woken as on a time-out";
    reader = read();
    EXPECT_EQ(0, within(
                     std::chrono::seconds(10), [&] { return port.Disconnect(); }, unstick));
    EXPECT_EQ(reader.get(), 0);
}

TEST(PortCopy, CopiesAreNotConnectedAndAssignmentClosesTheTarget) {
    Pty a, b;
    SerialPort source, target;
    ASSERT_EQ(connectLine(source, a.slavePath()), 0);
    ASSERT_EQ(source.SetTimeout(123, 456), 0);
    ASSERT_EQ(connectLine(target, b.slavePath()), 0);
    unsigned char byte = 1;
    ASSERT_GE(target.WriteByteNonblock(&byte, 1), 1);
    SerialPort copy(source);
    target = source;
    for (SerialPort* p : {&copy, &target}) {
        EXPECT_FALSE(p->IsActive());
        EXPECT_EQ(p->getThrStatus(), SerialPort::IDLE);
        unsigned r = 0, w = 0;
        p->GetTimeout(r, w);
        EXPECT_EQ(r * 1000 + w, 123456u);
    }
    EXPECT_TRUE(source.IsActive());
    SerialPort probe;
    EXPECT_EQ(connectLine(probe, b.slavePath()), 0);
    source = source;
    EXPECT_FALSE(source.IsActive());
    EXPECT_EQ(connectLine(copy, a.slavePath()), 0);
}

} // namespace
