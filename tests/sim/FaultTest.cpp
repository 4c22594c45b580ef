// Faults, the responder hook and unasked sends.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <algorithm>

#include "SimFixture.h"

using namespace simtest;

using SimFaults = SimFixture;

TEST_F(SimFaults, DropAndCorruptCountAnswersFromWhenSet) {
    EXPECT_EQ(0, status(cmd::PING)); // counted before the faults: does not shift them
    Faults f;
    f.dropEvery = 2;
    sim->setFaults(f);
    for (uint8_t id = 10; id < 14; ++id)
        ASSERT_TRUE(line->send(id, cmd::PING));
    EXPECT_EQ(10, line->next().id);
    EXPECT_EQ(12, line->next().id);
    ASSERT_TRUE(sim->waitForPackets(5, 5000)); // the last ping is served before the faults change

    f = {};
    f.corruptEvery = 2;
    sim->setFaults(f);
    for (uint8_t id = 20; id < 24; ++id) {
        const Answer a = line->exchange(id, cmd::PING);
        EXPECT_EQ(id, a.id);
        EXPECT_EQ(id % 2 == 0, a.sound) << int(id);
    }
}

TEST_F(SimFaults, FramingFaultsStillCarryTheAnswer) {
    Faults f;
    f.garbageBeforeFrames = f.cutFrames = f.hwErrorBeforeAnswer = true;
    sim->setFaults(f);
    Answer a = line->exchange(9, cmd::PING);
    EXPECT_EQ(0, a.id);
    EXPECT_EQ(response::TARVEL_HW_ERROR, a.response);
    a = line->next();
    EXPECT_EQ(9, a.id);
    EXPECT_EQ(0, okValue(a));
    const Bytes& raw = line->rawSeen();
    EXPECT_NE(slip::END, raw.front()); // garbage ahead of the opening END
    const Bytes cut{slip::ESC, slip::ESC_BRK};
    EXPECT_NE(std::search(raw.begin(), raw.end(), cut.begin(), cut.end()), raw.end());
}

TEST_F(SimFaults, FailedCommandIsNotCarriedOutAndASilentDeviceOnlyHears) {
    Faults f;
    f.failCommand = cmd::ADD_MESSAGE;
    f.failResponse = response::PACKET_ERROR;
    sim->setFaults(f);
    EXPECT_EQ(response::PACKET_ERROR, ask(cmd::ADD_MESSAGE, message(0, 1, 0, 0, false, {})).response);
    EXPECT_EQ(0u, sim->messageCount());
    EXPECT_EQ(0, status(cmd::PING));

    f = {};
    f.silent = true;
    sim->setFaults(f);
    ASSERT_TRUE(line->send(40, cmd::PING));
    ASSERT_TRUE(sim->waitForPackets(3, 5000));
    sim->setFaults({});
    EXPECT_EQ(41, line->exchange(41, cmd::PING).id);
    EXPECT_EQ(4u, sim->hostPacketCount());
}

TEST_F(SimFaults, DelayedAnswerComesAfterAReport) {
    ASSERT_EQ(0, status(cmd::REQUEST_MESSAGE, request(0x01, 0x42)));
    Faults f;
    f.answerDelayMs = 1000;
    sim->setFaults(f);
    ASSERT_TRUE(line->send(30, cmd::PING));
    ASSERT_TRUE(sim->waitForPackets(2, 5000));
    sim->injectFrame({0, 0x42, 0, {}});
    EXPECT_FALSE(report().empty());
    EXPECT_EQ(30, line->next().id);
}

TEST_F(SimFaults, FloodsAndStillAnswers) {
    Faults f;
    f.floodPerSecond = 2000;
    sim->setFaults(f);
    std::vector<uint32_t> numbers;
    while (numbers.size() < 20) {
        const Bytes d = report();
        ASSERT_EQ(11u, d.size());
        numbers.push_back(uint32_t(d[3]) << 24 | d[4] << 16 | d[5] << 8 | d[6]);
    }
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));

    f = {};
    f.floodMax = true;
    sim->setFaults(f);
    ASSERT_TRUE(line->send(50, cmd::PING));
    std::size_t reports = 0;
    for (bool answered = false; !answered || reports < 1000;) {
        const Answer a = line->next();
        ASSERT_TRUE(a) << (answered ? "reports ended" : "no answer") << " after " << reports << " reports";
        if (a.response == response::ASYNC_MESSAGE)
            ++reports;
        else
            answered = answered || (a.id == 50 && okValue(a) == 0);
    }
}

TEST_F(SimFaults, ResponderReplacesTheModelAndRawBytesGoOutUnasked) {
    sim->setResponder([](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (p.command == cmd::PING) return std::vector<DevicePacket>{{p.messageId, response::OK, {0x12, 0x34}}};
        if (p.command == cmd::ADD_MESSAGE) return std::vector<DevicePacket>{};
        return std::nullopt;
    });
    EXPECT_EQ(0x1234, status(cmd::PING));
    ASSERT_TRUE(line->send(60, cmd::ADD_MESSAGE, message(0, 1, 0, 0, false, {})));
    EXPECT_EQ(0, status(cmd::SET_TIME, {0, 0, 0, 0})); // the model still serves the rest
    EXPECT_EQ(0u, sim->messageCount());
    sim->sendRaw({0xC0, 0x01, 0x00, 0x80, 0x00, 0x81, 0xC0});
    EXPECT_EQ((Bytes{0x01, 0x00, 0x80, 0x00, 0x81}), line->next().raw);
}

#endif
