// Ping, version query, restarts and the device clock against the simulator.
#include <atomic>
#include <memory>

#include "CaptureStderr.h"
#include "ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class DeviceControl : public SimSession {
protected:
    // A message and a signal registration that a restart must forget.
    int fillTables() {
        tagCanMessage m{};
        m.dlc = 8;
        m.id = 0x123;
        const int handler = tarvel.AddMessage(m);
        EXPECT_GT(handler, 0) << err.str();
        EXPECT_EQ(1, tarvel.RequestSignal(0x10123, 0, 7));
        return handler;
    }

    void expectTablesCleared(int handler) {
        EXPECT_EQ(-31, tarvel.SetMessageData(static_cast<unsigned short>(handler), nullptr, nullptr, false, true));
        EXPECT_EQ(1, tarvel.RequestSignal(0x10123, 0, 7)) << "numbering restarts after a restart";
    }

    std::size_t count(uint8_t command) {
        std::size_t n = 0;
        for (const auto& p : sim().hostPackets()) n += p.command == command;
        return n;
    }
};

TEST_F(DeviceControl, PingMapsRefusalAndStaysQuietWithoutAnswer) {
    sim().setResponder(answer(Tarvel::PING, 0xFFFF));
    EXPECT_EQ(-21, tarvel.Ping());
    sim().setResponder(ignore(Tarvel::PING));
    EXPECT_EQ(-14, tarvel.Ping());
    EXPECT_EQ("", err.str());
    const auto log = sent(2);
    EXPECT_TRUE(log[0].payload.empty());
}

TEST_F(DeviceControl, GetVersionMapsTheQueryStatus) {
    sim().setResponder(answer(Tarvel::REBOOT, 0));
    EXPECT_EQ(100, tarvel.GetVersion());
    sim().setResponder(answer(Tarvel::REBOOT, 5));
    EXPECT_EQ(0, tarvel.GetVersion());
    sim().setResponder(answer(Tarvel::REBOOT, 0xFFFF));
    EXPECT_EQ(0, tarvel.GetVersion());
    sim().setResponder(ignore(Tarvel::REBOOT));
    EXPECT_EQ(-14, tarvel.GetVersion());
    for (const auto& p : sent(4)) EXPECT_EQ(Bytes{3}, p.payload);
}

TEST_F(DeviceControl, RebootProbesUntilTheDeviceAnswers) {
    const int handler = fillTables();
    auto pings = std::make_shared<std::atomic<int>>(0);
    sim().setResponder([pings](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (p.command == Tarvel::REBOOT) return std::vector<DevicePacket>{ok(p, 0)};
        if (p.command != Tarvel::PING) return std::nullopt;
        if (++*pings < 3) return std::vector<DevicePacket>{}; // still booting
        return std::vector<DevicePacket>{ok(p, 0)};
    });
    sim().clearLog();
    err.str("");

    EXPECT_EQ(0, tarvel.Reboot(false, 5000));
    const auto log = sim().hostPackets();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(Tarvel::REBOOT, log[0].command);
    EXPECT_EQ(Bytes{0}, log[0].payload);
    EXPECT_EQ(3u, count(Tarvel::PING)) << "polling stops at the first answered probe";
    EXPECT_EQ("", err.str()) << "failed probes are silent";
    expectTablesCleared(handler);
}

TEST_F(DeviceControl, RebootBelowOnePollIntervalDoesNotProbe) {
    const int handler = fillTables();
    sim().setResponder(answer(Tarvel::REBOOT, 0));
    sim().clearLog();
    EXPECT_EQ(0, tarvel.Reboot(true, 49));
    const auto log = sim().hostPackets();
    ASSERT_EQ(1u, log.size());
    EXPECT_EQ(Bytes{1}, log[0].payload);
    expectTablesCleared(handler);
}

TEST_F(DeviceControl, FailedRestartKeepsTablesAndDoesNotProbe) {
    const int handler = fillTables();
    sim().setResponder(ignore(Tarvel::REBOOT));
    sim().clearLog();
    EXPECT_EQ(-14, tarvel.Reboot(false, 5000));
    EXPECT_EQ(0u, count(Tarvel::PING));
    EXPECT_EQ(-14, tarvel.Reset());
    EXPECT_EQ(-14, tarvel.Bootloader());
    sim().setResponder(nullptr);
    EXPECT_GE(tarvel.SetMessageData(static_cast<unsigned short>(handler), nullptr, nullptr, false, true), 0);
    EXPECT_EQ(2, tarvel.RequestSignal(0x10123, 0, 7));
}

TEST_F(DeviceControl, ResetAndBootloaderSendTheirModesAndClear) {
    sim().setResponder(answer(Tarvel::REBOOT, 0));
    int handler = fillTables();
    EXPECT_EQ(0, tarvel.Reset());
    expectTablesCleared(handler);

    tarvel.Reset(); // forget the registration made by the check above
    handler = fillTables();
    sim().clearLog();
    EXPECT_EQ(0, tarvel.Bootloader());
    EXPECT_EQ(Bytes{5}, sent(1)[0].payload);
    expectTablesCleared(handler);
}

TEST_F(DeviceControl, ResetPayloadIsModeTwo) {
    sim().setResponder(answer(Tarvel::REBOOT, 0));
    EXPECT_EQ(0, tarvel.Reset());
    EXPECT_EQ(0, tarvel.Ping());
    const auto log = sent(2);
    EXPECT_EQ(Bytes{2}, log[0].payload);
    EXPECT_EQ(5, log[1].messageId) << "the id counter starts again after a restart";
}

TEST_F(DeviceControl, GetTimeReadsBigEndianBytes) {
    long long time = -1;
    sim().setResponder(answer(Tarvel::GET_TIME, Tarvel::DATA_RESPONSE_A, {0x01, 0x02, 0x03}));
    EXPECT_EQ(0, tarvel.GetTime(&time));
    EXPECT_EQ(66051, time);
    sim().setResponder(answer(Tarvel::GET_TIME, Tarvel::DATA_RESPONSE_A, {0xFF, 0xFF, 0xFF, 0xFE}));
    EXPECT_EQ(0, tarvel.GetTime(&time));
    EXPECT_EQ(0xFFFFFFFELL, time) << "widened without sign";
    sim().setResponder(ignore(Tarvel::GET_TIME));
    EXPECT_EQ(-14, tarvel.GetTime(&time));
    EXPECT_EQ(0xFFFFFFFELL, time);
}

TEST_F(DeviceControl, GetTimeWithTooLongAnswerGivesZero) {
    long long time = -1;
    sim().setResponder(answer(Tarvel::GET_TIME, Tarvel::DATA_RESPONSE_A, {1, 2, 3, 4, 5, 6}));
    CaptureStderr capture;
    EXPECT_EQ(0, tarvel.GetTime(&time));
    EXPECT_EQ(0, time);
    EXPECT_EQ("Unable convert 48 bit number to uint32.\n", capture.stop());
}

TEST_F(DeviceControl, GetTimeWithNullPointerSendsNothing) {
    CaptureStderr capture;
    EXPECT_EQ(-2, tarvel.GetTime(nullptr));
    EXPECT_EQ("Tarvel::GetTime: Time pointer is NULL!\n", capture.stop());
    expectOnlyPingFollows(tarvel, sim());
}

TEST_F(DeviceControl, SetTimeSendsLowHalfAndMapsRefusals) {
    EXPECT_EQ(0, tarvel.SetTime((1LL << 32) + 258));
    EXPECT_EQ((Bytes{0x00, 0x00, 0x01, 0x02}), sent(1)[0].payload);

    sim().setResponder(answer(Tarvel::SET_TIME, 0xFFFF));
    EXPECT_EQ(-21, tarvel.SetTime(1));
    // The same refusal with a hardware error seen on the way.
    sim().setResponder([](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (p.command != Tarvel::SET_TIME) return std::nullopt;
        return std::vector<DevicePacket>{{0, Tarvel::TARVEL_HW_ERROR, {}}, ok(p, 0xFFFF)};
    });
    EXPECT_EQ(-21, tarvel.SetTime(1));
    sim().setResponder(answer(Tarvel::SET_TIME, 7));
    EXPECT_EQ(7, tarvel.SetTime(1));
}

} // namespace
