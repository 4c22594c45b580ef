// Connecting, the device version, message ids and sending, against the
// simulated device.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "SimSession.h"
#include "TarvelTestAccess.h"

using tarvelsim::Bytes;
using tarvelsim::DevicePacket;
using tarvelsim::HostPacket;

namespace {

class VersionStatus : public SimSession, public ::testing::WithParamInterface<std::pair<uint16_t, uint16_t>> {
protected:
    tarvelsim::Options simOptions() const override {
        tarvelsim::Options o;
        o.versionStatus = GetParam().first;
        return o;
    }
};

TEST_P(VersionStatus, ConnectLearnsTheDeviceVersion) {
    EXPECT_EQ(GetParam().second, TarvelTestAccess::deviceVersion(tarvel));
    Tarvel fresh;
    EXPECT_EQ(0xFFFF, TarvelTestAccess::deviceVersion(fresh));
}

// Status 0 means feature level 100; a refusal (0xFFFF) or any other status means 0.
INSTANTIATE_TEST_SUITE_P(Session, VersionStatus,
                         ::testing::Values(std::make_pair<uint16_t, uint16_t>(0, 100),
                                           std::make_pair<uint16_t, uint16_t>(0xFFFF, 0),
                                           std::make_pair<uint16_t, uint16_t>(7, 0)));

class SilentDevice : public ::testing::Test {
protected:
    void SetUp() override {
        tarvelsim::Options o;
        o.faults.silent = true;
        sim = std::make_unique<tarvelsim::Simulator>(o);
        ASSERT_TRUE(sim->start()) << sim->lastError();
        tarvel.ClearPrintStream();
        tarvel.SetPrintStream(err, ERR);
    }
    std::ostringstream err;
    std::unique_ptr<tarvelsim::Simulator> sim;
    Tarvel tarvel;
};

TEST_F(SilentDevice, ConnectWithoutAnswerFailsTheVersionQueryAndKeepsTheVersion) {
    EXPECT_EQ(-314, tarvel.Connect(sim->portPath(), 100, 100));
    EXPECT_EQ(0xFFFF, TarvelTestAccess::deviceVersion(tarvel));
    EXPECT_EQ("Tarvel::GetResponse: No valid answer for specified message.\n", err.str());
    EXPECT_TRUE(TarvelTestAccess::portOpen(tarvel)) << "the port stays open for the caller to close";
    ASSERT_TRUE(sim->waitForPackets(1, 5000));
    const HostPacket query = sim->hostPackets().at(0);
    EXPECT_EQ(Tarvel::REBOOT, query.command);
    EXPECT_EQ(Bytes{3}, query.payload);
    EXPECT_EQ(5, query.messageId);
}

class Connection : public SimSession {};

TEST_F(Connection, ConnectingTheOpenPortAgainQueriesTheVersionAgain) {
    sim().setResponder([](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        return std::vector<DevicePacket>{{p.messageId, Tarvel::OK, {0x00, 0x07}}};
    });
    EXPECT_EQ(0, tarvel.Connect(sim().portPath(), 1000, 1000));
    EXPECT_EQ(0, TarvelTestAccess::deviceVersion(tarvel));
    const auto log = sent(1);
    EXPECT_EQ(Tarvel::REBOOT, log.at(0).command);
    EXPECT_EQ(6, log.at(0).messageId);
    EXPECT_EQ(-1, tarvel.Connect("/dev/null-other-port", 1000, 1000)) << "another port while one is open";
}

TEST_F(Connection, MessageIdsRunFrom5To255ThenWrapTo5AndRestartAfterDisconnect) {
    // The version query of Connect carried 5.
    const int commands = 252;
    for (int i = 0; i < commands; ++i) ASSERT_EQ(0, tarvel.SendCommand(Tarvel::PING, {}, true));
    ASSERT_EQ(0, tarvel.SendCommand(Tarvel::EXECUTE_SIGNAL_CHANGE, {}, false));
    ASSERT_EQ(0, tarvel.SendCommand(Tarvel::PING, {}, true));
    const auto log = sent(commands + 2);
    ASSERT_EQ(static_cast<std::size_t>(commands + 2), log.size());
    for (int i = 0; i < 250; ++i) ASSERT_EQ(6 + i, log[i].messageId) << "packet " << i;
    EXPECT_EQ(5, log[250].messageId);
    EXPECT_EQ(6, log[251].messageId);
    EXPECT_EQ(4, log[252].messageId) << "untracked";
    EXPECT_EQ((Bytes{0x01, 0x04, 0x17, 0x00, 0x1C}), log[252].raw);
    EXPECT_EQ(7, log[253].messageId) << "an untracked command leaves the counter alone";

    EXPECT_EQ(0, tarvel.Disconnect());
    EXPECT_EQ(0, TarvelTestAccess::messageId(tarvel));
    sim().clearLog();
    ASSERT_EQ(0, tarvel.Connect(sim().portPath(), 1000, 1000));
    EXPECT_EQ(5, sent(1).at(0).messageId);
}

TEST_F(Connection, HandlerCommandsPutTheHandlerBigEndianFirst) {
    ASSERT_EQ(0, tarvel.SendCommandHandler(Tarvel::REMOVE_MESSAGE, 0x1234, {0xAB}, true));
    const auto log = sent(1);
    EXPECT_EQ((Bytes{0x12, 0x34, 0xAB}), log.at(0).payload);
    EXPECT_EQ((Bytes{0x04, 0x06, 0x02, 0x12, 0x34, 0xAB, 0x00, 0xFD}), log.at(0).raw);
}

TEST_F(Connection, PayloadsAbove254BytesAreRefusedBeforeSending) {
    EXPECT_EQ(-6, tarvel.SendCommand(Tarvel::WRITE_EEPROM, ByteVector(255, 0x11), true));
    EXPECT_EQ(5, TarvelTestAccess::messageId(tarvel));
    EXPECT_NE(std::string::npos, err.str().find("Tarvel::SendCommand: ")) << err.str();
    EXPECT_EQ(0, tarvel.SendCommand(Tarvel::WRITE_EEPROM, ByteVector(254, 0x11), true));
    const auto log = sent(1);
    ASSERT_EQ(1u, log.size()) << "the refused packet never reached the device";
    EXPECT_EQ(254u, log[0].payload.size());
    EXPECT_EQ(0xFF, log[0].raw[0]);
}

TEST(SessionUnconnected, SendingFailsButStillAdvancesTheId) {
    Tarvel tarvel;
    std::ostringstream err;
    tarvel.ClearPrintStream();
    tarvel.SetPrintStream(err, ERR);
    EXPECT_EQ(-1, tarvel.SendCommand(Tarvel::PING, {}, true));
    EXPECT_EQ(5, TarvelTestAccess::messageId(tarvel));
    EXPECT_EQ(-1, TarvelTestAccess::exchange(tarvel, Tarvel::PING, {})) << "a failed send is passed on unchanged";
    EXPECT_EQ(0, tarvel.GetInternalThreadStatus());
    tarvel.StopReceiver(); // never started: returns at once
}

TEST_F(Connection, ACopyIsUnconnectedWithOnlyThePlaceholderRequest) {
    ASSERT_EQ(1, tarvel.RequestSignal(0x10123, 0, 7));
    Tarvel copy(tarvel);
    EXPECT_FALSE(TarvelTestAccess::portOpen(copy));
    EXPECT_EQ(1u, TarvelTestAccess::signalRequestEntries(copy));
    EXPECT_EQ(0xFFFF, TarvelTestAccess::deviceVersion(copy));
    EXPECT_EQ(0, copy.GetInternalThreadStatus());

    Tarvel other;
    other = tarvel;
    EXPECT_FALSE(TarvelTestAccess::portOpen(other)) << "assignment keeps the target's connection";
    tarvel = other;
    EXPECT_TRUE(TarvelTestAccess::portOpen(tarvel));
    EXPECT_EQ(0, tarvel.Ping());
}

} // namespace
