// Connecting, the device version, message ids and sending, against the
// simulated device.
#include <string>

#include "ScriptedAnswers.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"

using namespace scripted;

namespace {

// The version query (its answers: DeviceControl.AnswerMappings); without an
// answer Connect fails but leaves the port open.
TEST(Connect, QueriesTheDeviceVersion) {
    const struct {
        bool silent;
        int result;
        uint16_t version;
        const char* report;
    } cases[] = {{false, 0, 100, ""},
                 {true, -314, 0xFFFF, "Tarvel::GetResponse: No valid answer for specified message.\n"}};
    for (const auto& c : cases) {
        tarvelsim::Options o;
        o.faults.silent = c.silent;
        tarvelsim::Simulator sim(o);
        ASSERT_TRUE(sim.start()) << sim.lastError();
        std::ostringstream err;
        Tarvel tarvel;
        tarvel.ClearPrintStream();
        tarvel.SetPrintStream(err, ERR);
        EXPECT_EQ(0xFFFF, TarvelTestAccess::deviceVersion(tarvel));
        EXPECT_EQ(c.result, tarvel.Connect(sim.portPath(), c.silent ? 100 : 1000, 1000)) << c.silent;
        EXPECT_EQ(c.version, TarvelTestAccess::deviceVersion(tarvel)) << c.silent;
        EXPECT_EQ(c.report, err.str());
        EXPECT_TRUE(TarvelTestAccess::portOpen(tarvel));
        ASSERT_TRUE(sim.waitForPackets(1, 5000));
        EXPECT_EQ((Bytes{0x02, 0x05, 0x20, 0x03, 0x00, 0x2A}), sim.hostPackets().at(0).raw) << "REBOOT mode 3, id 5";
    }
}

class Connection : public SimSession {};

TEST_F(Connection, ConnectingTheOpenPortAgainQueriesTheVersionAgain) {
    sim().setResponder(answer(-1, 7));
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
    for (int i = 0; i < commands; ++i)
        ASSERT_EQ(0, tarvel.SendCommand(Tarvel::PING, {}, true));
    ASSERT_EQ(0, tarvel.SendCommand(Tarvel::EXECUTE_SIGNAL_CHANGE, {}, false));
    ASSERT_EQ(0, tarvel.SendCommand(Tarvel::PING, {}, true));
    const auto log = sent(commands + 2);
    ASSERT_EQ(static_cast<std::size_t>(commands + 2), log.size());
    for (int i = 0; i < 250; ++i)
        ASSERT_EQ(6 + i, log[i].messageId) << "packet " << i;
    EXPECT_EQ(5, log[250].messageId);
    EXPECT_EQ(6, log[251].messageId);
    EXPECT_EQ((Bytes{0x01, 0x04, 0x17, 0x00, 0x1C}), log[252].raw) << "untracked: id 4";
    EXPECT_EQ(7, log[253].messageId) << "an untracked command leaves the counter alone";

    EXPECT_EQ(0, tarvel.Disconnect());
    sim().clearLog();
    ASSERT_EQ(0, tarvel.Connect(sim().portPath(), 1000, 1000));
    EXPECT_EQ(5, sent(1).at(0).messageId);
}

TEST_F(Connection, PayloadsAbove254BytesAreRefusedBeforeSending) {
    EXPECT_EQ(-6, tarvel.SendCommand(Tarvel::WRITE_EEPROM, ByteVector(255, 0x11), true));
    EXPECT_NE(std::string::npos, err.str().find("Tarvel::SendCommand: ")) << err.str();
    EXPECT_EQ(0, tarvel.SendCommand(Tarvel::WRITE_EEPROM, ByteVector(254, 0x11), true));
    const auto log = sent(1);
    ASSERT_EQ(1u, log.size()) << "the refused packet never reached the device";
    EXPECT_EQ(254u, log[0].payload.size());
    EXPECT_EQ(6, log[0].messageId) << "the refusal took no id";
    EXPECT_EQ(0xFF, log[0].raw[0]);
}

// A copy is unconnected, with only the placeholder request; sending on it
// fails but still takes an id. Assignment keeps both connections as they were.
TEST_F(Connection, ACopyIsUnconnectedAndAssignmentKeepsTheConnections) {
    ASSERT_EQ(1, tarvel.RequestSignal(0x10123, 0, 7));
    Tarvel copy(tarvel);
    EXPECT_FALSE(TarvelTestAccess::portOpen(copy));
    EXPECT_EQ(1u, TarvelTestAccess::signalRequestEntries(copy));
    EXPECT_EQ(0xFFFF, TarvelTestAccess::deviceVersion(copy));
    copy.ClearPrintStream();
    EXPECT_EQ(-1, copy.SendCommand(Tarvel::PING, {}, true));
    EXPECT_EQ(5, TarvelTestAccess::messageId(copy));
    EXPECT_EQ(-1, TarvelTestAccess::exchange(copy, Tarvel::PING, {})) << "a failed send is passed on unchanged";
    EXPECT_EQ(0, copy.GetInternalThreadStatus());

    copy = tarvel;
    EXPECT_FALSE(TarvelTestAccess::portOpen(copy));
    tarvel = copy;
    EXPECT_EQ(0, tarvel.Ping());
}

} // namespace
