// Faults, the responder hook and unasked sends.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <algorithm>

#include "SimFixture.h"

using namespace simtest;

class SimFaults : public SimFixture {};

TEST_F(SimFaults, DropAndCorruptCountAnswersFromWhenSet) {
    EXPECT_EQ(0, status(cmd::PING)); // counted before the faults: does not shift them
    Faults f;
    f.dropEvery = 2;
    sim->setFaults(f);
    for (uint8_t id = 10; id < 14; ++id) ASSERT_TRUE(line->send(id, cmd::PING));
    auto a = line->next();
    ASSERT_TRUE(a);
    EXPECT_EQ(10, a->id);
    a = line->next();
    ASSERT_TRUE(a);
    EXPECT_EQ(12, a->id);
    ASSERT_TRUE(sim->waitForPackets(5, 5000)); // the last ping is served before the faults change

    f = {};
    f.corruptEvery = 2;
    sim->setFaults(f);
    for (uint8_t id = 20; id < 24; ++id) {
        a = line->exchange(id, cmd::PING);
        ASSERT_TRUE(a);
        EXPECT_EQ(id, a->id);
        EXPECT_EQ(id % 2 == 0, a->sound) << int(id);
    }
}

TEST_F(SimFaults, FramingFaultsStillCarryTheAnswer) {
    Faults f;
    f.garbageBeforeFrames = true;
    f.cutFrames = true;
    f.hwErrorBeforeAnswer = true;
    sim->setFaults(f);
    auto a = line->exchange(9, cmd::PING);
    ASSERT_TRUE(a);
    EXPECT_EQ(0, a->id);
    EXPECT_EQ(response::TARVEL_HW_ERROR, a->response);
    a = line->next();
    ASSERT_TRUE(a);
    EXPECT_EQ(9, a->id);
    EXPECT_EQ(0, okValue(a));
    const Bytes& raw = line->rawSeen();
    EXPECT_NE(slip::END, raw.front()); // garbage ahead of the opening END
    const Bytes cut{slip::ESC, slip::ESC_BRK};
    EXPECT_NE(std::search(raw.begin(), raw.end(), cut.begin(), cut.end()), raw.end());
}

TEST_F(SimFaults, FailedCommandIsNotCarriedOut) {
    Faults f;
    f.failCommand = cmd::ADD_MESSAGE;
    f.failResponse = response::PACKET_ERROR;
    sim->setFaults(f);
    auto a = ask(cmd::ADD_MESSAGE, message(0, 1, 0, 0, false, {}));
    ASSERT_TRUE(a);
    EXPECT_EQ(response::PACKET_ERROR, a->response);
    EXPECT_EQ(0u, sim->messageCount());
    EXPECT_EQ(0, status(cmd::PING));
}

TEST_F(SimFaults, DelayedAnswerComesAfterAReport) {
    ASSERT_EQ(0, status(cmd::REQUEST_MESSAGE, request(0x01, 0x42)));
    Faults f;
    f.answerDelayMs = 1000;
    sim->setFaults(f);
    ASSERT_TRUE(line->send(30, cmd::PING));
    ASSERT_TRUE(sim->waitForPackets(2, 5000));
    BusFrame frame;
    frame.id = 0x42;
    sim->injectFrame(frame);
    auto a = line->next();
    ASSERT_TRUE(a);
    EXPECT_EQ(response::ASYNC_MESSAGE, a->response);
    a = line->next();
    ASSERT_TRUE(a);
    EXPECT_EQ(30, a->id);
}

TEST_F(SimFaults, SilentDeviceHearsButDoesNotAnswer) {
    Faults f;
    f.silent = true;
    sim->setFaults(f);
    ASSERT_TRUE(line->send(40, cmd::PING));
    ASSERT_TRUE(sim->waitForPackets(1, 5000));
    sim->setFaults({});
    auto a = line->exchange(41, cmd::PING);
    ASSERT_TRUE(a);
    EXPECT_EQ(41, a->id);
    EXPECT_EQ(2u, sim->hostPacketCount());
}

TEST_F(SimFaults, FloodsAndStillAnswers) {
    Faults f;
    f.floodPerSecond = 2000;
    sim->setFaults(f);
    std::vector<uint32_t> numbers;
    while (numbers.size() < 20) {
        auto a = line->next();
        ASSERT_TRUE(a);
        ASSERT_EQ(response::ASYNC_MESSAGE, a->response);
        ASSERT_EQ(11u, a->data.size());
        numbers.push_back(uint32_t(a->data[3]) << 24 | a->data[4] << 16 | a->data[5] << 8 | a->data[6]);
    }
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));

    f = {};
    f.floodMax = true;
    sim->setFaults(f);
    ASSERT_TRUE(line->send(50, cmd::PING));
    bool answered = false;
    std::size_t reports = 0;
    while (!answered) {
        auto a = line->next();
        ASSERT_TRUE(a) << "no answer among " << reports << " reports";
        if (a->response == response::ASYNC_MESSAGE) ++reports;
        else answered = a->id == 50 && okValue(a) == 0;
    }
    while (reports < 1000) {
        auto a = line->next();
        ASSERT_TRUE(a);
        reports += a->response == response::ASYNC_MESSAGE;
    }
}

TEST_F(SimFaults, ResponderReplacesTheModel) {
    sim->setResponder([](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (p.command == cmd::PING) return std::vector<DevicePacket>{{p.messageId, response::OK, {0x12, 0x34}}};
        if (p.command == cmd::ADD_MESSAGE) return std::vector<DevicePacket>{};
        return std::nullopt;
    });
    EXPECT_EQ(0x1234, status(cmd::PING));
    ASSERT_TRUE(line->send(60, cmd::ADD_MESSAGE, message(0, 1, 0, 0, false, {})));
    EXPECT_EQ(0, status(cmd::SET_TIME, {0, 0, 0, 0})); // the model still serves the rest
    EXPECT_EQ(0u, sim->messageCount());

    sim->setResponder(nullptr);
    EXPECT_EQ(0, status(cmd::PING));

    sim->sendPacket({3, response::ASYNC_MESSAGE, {0x00, 0x01, 0x00}});
    auto a = line->next();
    ASSERT_TRUE(a);
    EXPECT_EQ((Bytes{0x04, 0x03, 0x90, 0x00, 0x01, 0x00, 0x00, 0x98}), a->raw);
    sim->sendRaw({0xC0, 0x01, 0x00, 0x80, 0x00, 0x81, 0xC0});
    a = line->next();
    ASSERT_TRUE(a);
    EXPECT_EQ((Bytes{0x01, 0x00, 0x80, 0x00, 0x81}), a->raw);
}

#endif
