// Signals: payloads, host-side checks, value alignment and the signal table.
#include "ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class TxSignals : public SimSession {
protected:
    unsigned short addMessage(bool fastSlowSend) {
        tagCanMessage m{};
        m.dlc = 8;
        m.id = 0x200;
        m.fastSlowSend = fastSlowSend;
        const int h = tarvel.AddMessage(m);
        EXPECT_GT(h, 0) << err.str();
        return static_cast<unsigned short>(h);
    }
    // The value bytes and flag byte SignalChangeValue sent last.
    Bytes changeBytes(unsigned short handler, unsigned short value) {
        sim().clearLog();
        EXPECT_GE(tarvel.SignalChangeValue(handler, value, false, true), 0);
        const auto p = sent(1)[0];
        return Bytes(p.payload.begin() + 2, p.payload.end());
    }
};

TEST_F(TxSignals, AddSignalPayload) {
    sim().setResponder(answer(Tarvel::ADD_SIGNAL, 0x0033));
    EXPECT_EQ(0x33, tarvel.AddSignal(0x0012, 3, 0x0100, 0x0107, 0x81));
    EXPECT_EQ((Bytes{0x00, 0x12, 0x03, 0x01, 0x00, 0x01, 0x07, 0x81}), sent(1)[0].payload);
    EXPECT_NE(
        std::string::npos,
        err.str().find("Tarvel::AddSignal: Message h=18;grp=3;sym<256;263> not found in internal API structure.\n"))
        << "an unknown message can't be checked: it is reported and the signal is still sent";
}

TEST_F(TxSignals, SpanChecks) {
    const auto m = addMessage(false);
    sim().clearLog();
    EXPECT_EQ(-31, tarvel.AddSignal(m, 0, 5, 4, 0));
    EXPECT_EQ("Tarvel::AddSignal: Invalid input: StartSymbol > StopSymbol (5 > 4)\n", err.str());
    err.str("");
    EXPECT_EQ(-31, tarvel.AddSignal(m, 0, 0, 16, 0));
    EXPECT_EQ("Tarvel::AddSignal: Length of signal exceed maximal 16 bits.\n", err.str());
    expectOnlyPingFollows(tarvel, sim());
    EXPECT_GT(tarvel.AddSignal(m, 0, 0, 15, 0), 0);
    EXPECT_GT(tarvel.AddSignal(m, 0, 7, 7, 0), 0);
}

TEST_F(TxSignals, CumulativeSignalRefusedInFastSlowSendMessage) {
    const auto fast = addMessage(true);
    const auto plain = addMessage(false);
    sim().clearLog();
    EXPECT_EQ(-32, tarvel.AddSignal(fast, 0, 0, 7, 0x80));
    EXPECT_EQ("Tarvel::AddSignal: Invalid configuration: Fast slow send and cumulative signal at once.\n", err.str());
    expectOnlyPingFollows(tarvel, sim());
    EXPECT_GT(tarvel.AddSignal(fast, 0, 0, 7, 0x7F), 0);
    EXPECT_GT(tarvel.AddSignal(plain, 0, 0, 7, 0x80), 0);

    // An older device (version status 7 on connecting again) takes both at once.
    sim().setResponder(answer(Tarvel::REBOOT, 7));
    ASSERT_EQ(0, tarvel.Connect(sim().portPath(), 1000, 1000));
    sim().setResponder(nullptr);
    err.str("");
    EXPECT_GT(tarvel.AddSignal(fast, 0, 0, 7, 0x80), 0);
    EXPECT_EQ("", err.str()) << "the message is known and was checked";
}

TEST_F(TxSignals, ChangeValueIsLeftAlignedBySignalLength) {
    const auto m = addMessage(false);
    const auto nibble = static_cast<unsigned short>(tarvel.AddSignal(m, 0, 8, 11, 0));
    const auto full = static_cast<unsigned short>(tarvel.AddSignal(m, 0, 16, 31, 0));
    const auto bit = static_cast<unsigned short>(tarvel.AddSignal(m, 0, 40, 40, 0));
    const auto cumulative = static_cast<unsigned short>(tarvel.AddSignal(m, 0, 48, 51, 0x80));
    EXPECT_EQ((Bytes{0xA0, 0x00, 0x00}), changeBytes(nibble, 0x000A));
    EXPECT_EQ((Bytes{0xF0, 0x00, 0x00}), changeBytes(nibble, 0x001F)) << "bits beyond the signal are lost";
    EXPECT_EQ((Bytes{0x12, 0x34, 0x00}), changeBytes(full, 0x1234));
    EXPECT_EQ((Bytes{0x00, 0x01, 0x00}), changeBytes(bit, 1));
    EXPECT_EQ((Bytes{0x00, 0x05, 0x00}), changeBytes(cumulative, 5));
    EXPECT_EQ("", err.str());
}

// The host's signal entry goes with a removal the device accepts, and with a disconnect.
TEST_F(TxSignals, RemovalOrDisconnectForgetsTheSignal) {
    const auto m = addMessage(false);
    const auto s = static_cast<unsigned short>(tarvel.AddSignal(m, 0, 8, 11, 0));
    const auto kept = static_cast<unsigned short>(tarvel.AddSignal(m, 0, 12, 15, 0));
    sim().setResponder(answer(Tarvel::REMOVE_SIGNAL, 0xFFFF));
    EXPECT_EQ(-21, tarvel.RemoveSignal(s));
    sim().setResponder(answer(Tarvel::CHANGE_SIGNAL, 0));
    EXPECT_EQ((Bytes{0xA0, 0x00, 0x00}), changeBytes(s, 0x000A)) << "entry kept";
    sim().setResponder(answer(Tarvel::REMOVE_SIGNAL, 0));
    EXPECT_EQ(0, tarvel.RemoveSignal(s));
    EXPECT_EQ((Bytes{0x00, 0x0A, 0x00}), changeBytes(s, 0x000A)) << "unknown signal: value sent as it came";
    EXPECT_EQ("Tarvel::SignalChangeValue: Signal not found in internal API structure.\n", err.str());

    tarvel.Disconnect();
    ASSERT_EQ(0, tarvel.Connect(sim().portPath(), 1000, 1000));
    EXPECT_EQ(-31, tarvel.SetMessageData(m, nullptr, nullptr, false, true));
    sim().setResponder(answer(Tarvel::CHANGE_SIGNAL, 0));
    EXPECT_EQ((Bytes{0x00, 0x0A, 0x00}), changeBytes(kept, 0x000A)) << "the signal's length is forgotten";
}

TEST_F(TxSignals, GroupControlAndExecutePayloads) {
    sim().setResponder(on(-1, [](const HostPacket& p) {
        return std::vector<DevicePacket>{ok(p, p.command == Tarvel::SET_SIGNAL_CONTROL ? 0xFFFF : 0)};
    }));
    EXPECT_EQ(0, tarvel.ChangeSignalSgroup(3, 0x1234));
    EXPECT_EQ(-21, tarvel.SetSignalControl(0x0102, 7, 1, 2, 3));
    EXPECT_EQ(0, tarvel.ExecuteSignalChange(false));
    EXPECT_EQ(0, tarvel.SignalChangeValue(0x0900, 0x0001, true, false));
    const auto log = sent(4);
    EXPECT_EQ((Bytes{0x03, 0x12, 0x34}), log[0].payload);
    EXPECT_EQ((Bytes{0x07, 0x01, 0x02, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3}), log[1].payload);
    EXPECT_EQ((Bytes{0x01, 0x04, 0x17, 0x00, 0x1C}), log[2].raw);
    EXPECT_EQ(4, log[3].messageId);
    EXPECT_EQ((Bytes{0x09, 0x00, 0x00, 0x01, 0x01}), log[3].payload);
}

} // namespace
