// Ping, version query, restarts and the device clock against the simulator.
#include <functional>
#include <memory>
#include <utility>

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

    // After a restart the message is gone and signal numbering starts again.
    void expectTables(int handler, bool cleared) {
        EXPECT_EQ(cleared ? -31 : 0,
                  tarvel.SetMessageData(static_cast<unsigned short>(handler), nullptr, nullptr, false, true));
        EXPECT_EQ(cleared ? 1 : 2, tarvel.RequestSignal(0x10123, 0, 7));
    }
};

TEST_F(DeviceControl, AnswerMappings) {
    const unsigned char byte = 1;
    expectMappings(
        sim(), {
                   {[&] { return tarvel.Ping(); }, Tarvel::PING, {{0xFFFF, -21}, {0, 0}}},
                   {[&] { return tarvel.GetVersion(); }, Tarvel::REBOOT, {{0, 100}, {5, 0}, {0xFFFF, 0}}},
                   {[&] { return tarvel.SetTime(1); }, Tarvel::SET_TIME, {{0xFFFF, -21}, {7, 7}}},
                   {[&] { return tarvel.WriteEeprom(30, 1, &byte); }, Tarvel::WRITE_EEPROM, {{0xFFFF, -21}, {3, 3}}},
               });
    std::size_t versionQueries = 0;
    for (const auto& p : sent(9))
        versionQueries += p.command == Tarvel::REBOOT && p.payload == Bytes{3};
    EXPECT_EQ(3u, versionQueries);
    // The refusal with a hardware error seen on the way.
    sim().setResponder(on(Tarvel::SET_TIME, [](const HostPacket& p) {
        return std::vector<DevicePacket>{{0, Tarvel::TARVEL_HW_ERROR, {}}, ok(p, 0xFFFF)};
    }));
    EXPECT_EQ(-21, tarvel.SetTime(1));
}

TEST_F(DeviceControl, UnansweredCommandsGiveMinus14AndChangeNothing) {
    const int handler = fillTables();
    sim().setResponder(ignore(-1));
    sim().clearLog();
    EXPECT_EQ(-14, unanswered(tarvel, [&] { return tarvel.Ping(); }));
    EXPECT_EQ("", err.str()) << "Ping is quiet: it probes devices that may be booting";
    long long time = 5;
    unsigned char block[4] = {9, 9, 9, 9};
    const std::function<int()> calls[] = {
        [&] { return tarvel.GetVersion(); },
        [&] { return tarvel.GetTime(&time); },
        [&] { return tarvel.ReadEeprom(0, 4, block); }, // address 0 may be read
        [&] { return tarvel.Reboot(false, 5000); },
        [&] { return tarvel.Reset(); },
        [&] { return tarvel.Bootloader(); },
    };
    for (const auto& call : calls)
        EXPECT_EQ(-14, unanswered(tarvel, call));
    EXPECT_EQ(5, time);
    EXPECT_EQ(9, block[0]);
    EXPECT_EQ(7u, sent(7).size()) << "a failed restart does not probe";
    sim().setResponder(nullptr);
    expectTables(handler, false);
}

TEST_F(DeviceControl, RebootProbesUntilTheDeviceAnswers) {
    const int handler = fillTables();
    auto pings = std::make_shared<int>(0);
    sim().setResponder(on(-1, [pings](const HostPacket& p) {
        const bool booting = p.command == Tarvel::PING && ++*pings == 1;
        return booting ? std::vector<DevicePacket>{} : std::vector<DevicePacket>{ok(p, 0)};
    }));
    sim().clearLog();
    EXPECT_EQ(0, tarvel.Reboot(false, 5000));
    const auto log = sim().hostPackets();
    ASSERT_EQ(3u, log.size()) << "polling stops at the first answered probe";
    EXPECT_EQ(Bytes{0}, log[0].payload) << "REBOOT mode 0, then two probes";
    EXPECT_EQ(Tarvel::PING, log[2].command);
    EXPECT_EQ("", err.str()) << "failed probes are silent";
    expectTables(handler, true);
}

TEST_F(DeviceControl, RestartsSendTheirModeAndClearTheTables) {
    const struct {
        std::function<int()> restart;
        uint8_t mode;
    } cases[] = {
        {[&] { return tarvel.Reboot(true, 49); }, 1}, // below one poll interval: no probe
        {[&] { return tarvel.Reset(); }, 2},
        {[&] { return tarvel.Bootloader(); }, 5},
    };
    // The model would go deaf for its boot time after a real restart.
    sim().setResponder(answer(Tarvel::REBOOT, 0));
    for (const auto& c : cases) {
        tarvel.Reset(); // forget what the last round registered
        const int handler = fillTables();
        sim().clearLog();
        EXPECT_EQ(0, c.restart());
        EXPECT_EQ(0, tarvel.Ping());
        const auto log = sent(2);
        ASSERT_EQ(2u, log.size()) << "mode " << int(c.mode);
        EXPECT_EQ(Bytes{c.mode}, log[0].payload);
        EXPECT_EQ(5, log[1].messageId) << "the id counter starts again after a restart";
        expectTables(handler, true);
    }
}

TEST_F(DeviceControl, TheClock) {
    EXPECT_EQ(0, tarvel.SetTime((1LL << 32) + 258));
    EXPECT_EQ((Bytes{0x00, 0x00, 0x01, 0x02}), sent(1)[0].payload) << "the low half";
    // GetTime: big-endian, widened without sign; too long an answer gives 0.
    const std::pair<Bytes, long long> answers[] = {
        {{0x01, 0x02, 0x03}, 66051}, {{0xFF, 0xFF, 0xFF, 0xFE}, 0xFFFFFFFELL}, {{1, 2, 3, 4, 5, 6}, 0}};
    CaptureStderr capture;
    for (const auto& a : answers) {
        long long time = -1;
        sim().setResponder(answer(Tarvel::GET_TIME, Tarvel::DATA_RESPONSE_A, a.first));
        EXPECT_EQ(0, tarvel.GetTime(&time));
        EXPECT_EQ(a.second, time);
    }
    EXPECT_EQ("Unable convert 48 bit number to uint32.\n", capture.stop());
}

} // namespace
