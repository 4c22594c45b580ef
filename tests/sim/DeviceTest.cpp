// The emulated device's answers and tables, spoken to over its terminal.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include "SimFixture.h"

using namespace simtest;

using SimDevice = SimFixture;

TEST_F(SimDevice, AnswersPingsAndFaultyPackets) {
    EXPECT_EQ((Bytes{0x03, 0x05, 0x80, 0x00, 0x00, 0x00, 0x88}), line->exchange(5, cmd::PING).raw);
    EXPECT_EQ(0, line->exchange(kUntrackedId, cmd::PING).id) << "an untracked ping is answered with id 0";
    struct Case {
        Bytes wire;
        uint8_t id, response;
    };
    const Case cases[] = {
        {{0xC0, 0x01, 0x07, 0x09, 0x00, 0x00, 0xC0}, 7, response::PACKET_ERROR},            // checksum
        {{0xC0, 0x02, 0x08, 0x09, 0x00, 0x13, 0xC0}, 8, response::PACKET_ERROR},            // length byte
        {{0xC0, 0xDB, 0x01, 0xC0}, 0, response::SLIP_PROTO_ERROR},                          // escape
        {slipEncode(buildPacket(9, 0x07, {})), 9, response::COMMAND_FAILED},                // unknown command
        {slipEncode(buildPacket(10, cmd::SET_TIME, {0x01})), 10, response::COMMAND_FAILED}, // short payload
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(line->write(c.wire));
        const Answer a = line->next();
        EXPECT_EQ(c.id, a.id);
        EXPECT_EQ(c.response, a.response);
    }
    // Only the sound packets are logged; the line still works.
    EXPECT_EQ(0, status(cmd::PING));
    ASSERT_TRUE(sim->waitForPackets(5, 5000));
    EXPECT_EQ(5u, sim->hostPacketCount());
}

TEST_F(SimDevice, CumulativeSignalCountsEveryTransmission) {
    // Identifier 7FF, one data byte, sent every 5 ms on channel 0 (switched on
    // below); bits 0..3 advance by 3 at each transmission.
    ASSERT_EQ(1, status(cmd::ADD_MESSAGE, {0, 0, 0xFF, 0x07, 0, 0, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 0x00}));
    ASSERT_EQ(1, status(cmd::ADD_SIGNAL, {0, 1, 0, 0, 0, 0, 3, 0x80}));
    ASSERT_EQ(0, status(cmd::CHANGE_SIGNAL, {0, 1, 0x00, 0x03, 1}));
    ASSERT_EQ(0, status(cmd::REQUEST_MESSAGE, {0x01, 0xFF, 0x07, 0, 0, 0, 8, 0, 0}));
    ASSERT_EQ(0, status(cmd::ENABLE_MESSAGE, {0, 1}));
    std::vector<int> counter;
    while (counter.size() < 8) {
        const Answer r = line->next();
        ASSERT_TRUE(r);
        if (r.response == response::ASYNC_MESSAGE) counter.push_back(r.data.at(3) & 0x0F);
    }
    EXPECT_EQ(3, counter[0]); // the first transmission already counts
    for (std::size_t i = 1; i < counter.size(); ++i)
        EXPECT_EQ((counter[i - 1] + 3) % 16, counter[i]) << i;
}

#endif
