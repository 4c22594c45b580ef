// SLIP framing over a real pseudo-terminal: what goes on the wire for a
// payload, and what SlipReceive makes of the bytes that arrive.
#include <gtest/gtest.h>

#include <numeric>

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
    ByteVector ends = {0xC0}; // 200 ENDs: a frame of 402 bytes
    for (int i = 0; i < 200; ++i)
        ends.insert(ends.end(), {0xDB, 0xDC});
    ends.push_back(0xC0);
    // Each byte value, blocking: AllByteValuesPassBothWays.
    const std::vector<SendCase> cases = {
        {{}, {0xC0, 0xC0}},
        {ByteVector(200, 0xC0), ends},
    };
    for (const SendCase& c : cases) {
        const int r = port.SlipSend(c.payload, false, blocking);
        if (blocking)
            EXPECT_EQ(r, static_cast<int>(c.wire.size()));
        else
            EXPECT_GE(r, 1);
        EXPECT_EQ(pty.read(c.wire.size()), c.wire);
    }
    EXPECT_TRUE(pty.read(1, 50).empty()); // nothing beyond the frames
}

INSTANTIATE_TEST_SUITE_P(BlockingAndQueued, SlipSendTest, ::testing::Bool());

struct ReceiveCase {
    ByteVector wire;
    int result;
    ByteVector payload;
    const char* report; // printed in mode 0 only; nullptr: nothing
};

using SlipReceiveTest = PtyPort;

TEST_F(SlipReceiveTest, DecodesTheFramingExamplesAndSilenceAndReportsOnlyInModeZero) {
    ASSERT_EQ(port.SetTimeout(200, 1000), 0);
    const char* dropped = "SerialPort::SlipReceive: Buffer drop requested.\n";
    const char* timedOut = "SerialPort::SlipReceive: Serial ReadByte timeouted but byte after ESC char was expected.\n";
    const std::vector<ReceiveCase> cases = {
        {{0xC0, 0xC0, 0xC0, 0x01, 0x02, 0xC0}, 2, {0x01, 0x02}, nullptr},
        {{0x55, 0x66, 0xC0, 0x01, 0xC0}, 1, {0x01}, nullptr},
        {{0xC0, 0x01, 0xDB, 0xDE, 0x02, 0x03, 0xC0}, 2, {0x02, 0x03}, dropped},
        {{0xC0, 0x01, 0xDB, 0xDE, 0xC0, 0x04, 0xC0}, 1, {0x04}, dropped},
        {{0xC0, 0x01, 0xDB, 0xC0}, -3, {}, "SerialPort::SlipReceive: Unexpected data after ESC char!\n"},
        // Silence before a frame is quiet; in mid-frame it is a protocol error.
        {{}, 0, {}, nullptr},
        {{0xC0, 0x01, 0x02}, -3, {}, timedOut},
        {{0xC0, 0x01, 0xDB}, -3, {}, timedOut},
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

// Also the check that the line is raw (the same whatever its other settings):
// no byte (CR, XON, 0xFF ...) is translated or eaten.
TEST_F(SlipReceiveTest, AllByteValuesPassBothWays) {
    ByteVector all(256);
    std::iota(all.begin(), all.end(), 0);
    ByteVector wire = {0xC0};
    wire.insert(wire.end(), all.begin(), all.begin() + 0xC0);
    wire.insert(wire.end(), {0xDB, 0xDC});
    wire.insert(wire.end(), all.begin() + 0xC1, all.begin() + 0xDB);
    wire.insert(wire.end(), {0xDB, 0xDD});
    wire.insert(wire.end(), all.begin() + 0xDC, all.end());
    wire.push_back(0xC0);

    EXPECT_EQ(port.SlipSend(all, false, true), 260);
    EXPECT_EQ(pty.read(wire.size()), wire);
    ASSERT_TRUE(pty.write(wire));
    ByteVector buffer;
    EXPECT_EQ(port.SlipReceive(buffer, 1024, 1), 256);
    EXPECT_EQ(buffer, all);
}

} // namespace
