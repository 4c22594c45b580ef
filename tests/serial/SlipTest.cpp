// SLIP framing over a real pseudo-terminal: what goes on the wire for a
// payload, and what SlipReceive makes of the bytes that arrive.
#include <gtest/gtest.h>

#include "CaptureStderr.h"
#include "SerialTestSupport.h"

namespace {

struct SendCase {
    ByteVector payload;
    ByteVector wire;
};

class SlipSendTest : public PtyPort, public ::testing::WithParamInterface<bool> {};

TEST_P(SlipSendTest, EscapesOnlyEndAndEsc) {
    const bool blocking = GetParam();
    const std::vector<SendCase> cases = {
        {{0xC0}, {0xC0, 0xDB, 0xDC, 0xC0}},
        {{0xDB}, {0xC0, 0xDB, 0xDD, 0xC0}},
        {{0xDC, 0xDD, 0xDE}, {0xC0, 0xDC, 0xDD, 0xDE, 0xC0}},
        {{}, {0xC0, 0xC0}},
    };
    for (const SendCase& c : cases) {
        const int r = port.SlipSend(c.payload, false, blocking);
        if (blocking)
            EXPECT_EQ(r, static_cast<int>(c.wire.size()));
        else
            EXPECT_GE(r, 1);
        EXPECT_EQ(pty.read(c.wire.size()), c.wire);
    }
    ByteVector ends(200, 0xC0);
    ByteVector wire = {0xC0};
    for (int i = 0; i < 200; ++i) wire.insert(wire.end(), {0xDB, 0xDC});
    wire.push_back(0xC0);
    ASSERT_EQ(wire.size(), 402u);
    port.SlipSend(ends, false, blocking);
    EXPECT_EQ(pty.read(402), wire);
    EXPECT_TRUE(pty.read(1, 50).empty()); // nothing beyond the frames
}

INSTANTIATE_TEST_SUITE_P(BlockingAndQueued, SlipSendTest, ::testing::Bool());

struct ReceiveCase {
    ByteVector wire;
    int result;
    ByteVector payload;
    const char* report; // printed in mode 0 only; nullptr: nothing
};

class SlipReceiveTest : public PtyPort {
protected:
    void SetUp() override {
        PtyPort::SetUp();
        ASSERT_EQ(port.SetTimeout(200, 1000), 0);
    }
};

TEST_F(SlipReceiveTest, DecodesTheFramingExamplesAndReportsOnlyInModeZero) {
    const std::vector<ReceiveCase> cases = {
        {{0xC0, 0xC0, 0xC0, 0x01, 0x02, 0xC0}, 2, {0x01, 0x02}, nullptr},
        {{0x55, 0x66, 0xC0, 0x01, 0xC0}, 1, {0x01}, nullptr},
        {{0xC0, 0x01, 0xDB, 0xDE, 0x02, 0x03, 0xC0}, 2, {0x02, 0x03}, "SerialPort::SlipReceive: Buffer drop requested.\n"},
        {{0xC0, 0x01, 0xDB, 0xDE, 0xC0, 0x04, 0xC0}, 1, {0x04}, "SerialPort::SlipReceive: Buffer drop requested.\n"},
        {{0xC0, 0xDB, 0xDC, 0xDB, 0xDD, 0xC0}, 2, {0xC0, 0xDB}, nullptr},
        {{0xC0, 0x01, 0xDB, 0xC0}, -3, {}, "SerialPort::SlipReceive: Unexpected data after ESC char!\n"},
    };
    for (int mode : {0, 1}) {
        for (const ReceiveCase& c : cases) {
            SCOPED_TRACE(::testing::Message() << "mode " << mode << ", case of " << c.wire.size() << " bytes");
            ASSERT_EQ(port.Flush(), 0);
            ASSERT_TRUE(pty.write(c.wire));
            ByteVector buffer = {0xAA};
            CaptureStderr err;
            EXPECT_EQ(port.SlipReceive(buffer, 255, mode), c.result);
            EXPECT_EQ(buffer, c.payload);
            EXPECT_EQ(err.stop(), mode == 0 && c.report ? c.report : "");
        }
    }
}

TEST_F(SlipReceiveTest, DeliversMaxMinusOneRefusesMaxAndKeepsTheNextFrame) {
    ByteVector wire = {0xC0};
    wire.insert(wire.end(), 254, 0x11);
    wire.push_back(0xC0);
    wire.push_back(0xC0);
    wire.insert(wire.end(), 255, 0x22);
    wire.push_back(0xC0);
    wire.insert(wire.end(), {0xC0, 0x07, 0x08, 0xC0});
    ASSERT_TRUE(pty.write(wire));

    ByteVector buffer;
    EXPECT_EQ(port.SlipReceive(buffer, 255, 1), 254);
    EXPECT_EQ(buffer, ByteVector(254, 0x11));
    CaptureStderr err;
    EXPECT_EQ(port.SlipReceive(buffer, 255, 0), -2);
    EXPECT_EQ(err.stop(), "SerialPort::SlipReceive: Designated buffer is out of space.\n");
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(port.SlipReceive(buffer, 255, 1), 2);
    EXPECT_EQ(buffer, (ByteVector{0x07, 0x08}));
}

TEST_F(SlipReceiveTest, SilenceBeforeAFrameIsQuietAndInMidFrameAProtocolError) {
    ByteVector buffer = {1, 2, 3};
    {
        CaptureStderr err;
        EXPECT_EQ(port.SlipReceive(buffer, 255, 0), 0);
        EXPECT_EQ(err.stop(), "");
        EXPECT_TRUE(buffer.empty());
    }
    const char* timedOut = "SerialPort::SlipReceive: Serial ReadByte timeouted but byte after ESC char was expected.\n";
    for (const ByteVector& partial : {ByteVector{0xC0, 0x01, 0x02}, ByteVector{0xC0, 0x01, 0xDB}}) {
        ASSERT_TRUE(pty.write(partial));
        CaptureStderr err;
        EXPECT_EQ(port.SlipReceive(buffer, 255, 0), -3);
        EXPECT_EQ(err.stop(), timedOut);
        EXPECT_TRUE(buffer.empty());
    }
}

TEST_F(SlipReceiveTest, AllByteValuesPassBothWays) {
    const ByteVector all = allByteValues();
    ByteVector wire = {0xC0};
    for (unsigned char b : all) {
        if (b == 0xC0)
            wire.insert(wire.end(), {0xDB, 0xDC});
        else if (b == 0xDB)
            wire.insert(wire.end(), {0xDB, 0xDD});
        else
            wire.push_back(b);
    }
    wire.push_back(0xC0);

    EXPECT_EQ(port.SlipSend(all, false, true), static_cast<int>(wire.size()));
    EXPECT_EQ(pty.read(wire.size()), wire);

    ASSERT_TRUE(pty.write(wire));
    ByteVector buffer;
    EXPECT_EQ(port.SlipReceive(buffer, 1024, 1), 256);
    EXPECT_EQ(buffer, all);
}

TEST(SlipClosedPort, BothRefuseWithoutTouchingTheBuffer) {
    SerialPort port;
    ByteVector buffer = {9, 9};
    CaptureStderr err;
    EXPECT_EQ(port.SlipReceive(buffer, 255, 0), -1);
    EXPECT_EQ(buffer, (ByteVector{9, 9}));
    EXPECT_EQ(port.SlipSend(buffer, false, false), -1);
    EXPECT_EQ(port.SlipSend(buffer, false, true), -1);
    EXPECT_EQ(port.getThrStatus(), SerialPort::IDLE);
    EXPECT_EQ(err.stop(), "");
}

TEST_F(SlipReceiveTest, FarEndGoneIsAReadFailure) {
    ASSERT_TRUE(pty.write(ByteVector{0xC0, 0x01}));
    ByteVector buffer;
    CaptureStderr err;
    // Usually the frame has begun when the line goes away; either way the
    // result is a failure, not a time-out.
    std::thread closer([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        pty.closeMaster();
    });
    ASSERT_EQ(port.SetTimeout(30000, 1000), 0);
    EXPECT_EQ(port.SlipReceive(buffer, 255, 1), -1);
    closer.join();
    EXPECT_TRUE(buffer.empty());
    EXPECT_NE(err.stop().find("SerialPort::ReadByte ReadFile failed with error: "), std::string::npos);
}

} // namespace
