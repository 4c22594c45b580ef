// Transmit message table: payloads, answer mappings and the host-side copy.
#include <functional>
#include <thread>

#include "../device/ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class TxMessages : public SimSession {
protected:
    static tagCanMessage message(unsigned char dlc) {
        tagCanMessage m{};
        m.dlc = dlc;
        m.id = 0x321;
        return m;
    }
    // The payload size SetMessageData sends tells which dlc the host copy holds.
    std::size_t setDataPayloadSize(unsigned short handler) {
        sim().clearLog();
        EXPECT_GE(tarvel.SetMessageData(handler, nullptr, nullptr, false, true), 0);
        return sent(1)[0].payload.size();
    }
};

TEST_F(TxMessages, AddMessagePayloadMixesByteOrders) {
    tagCanMessage m{};
    m.selector1 = 1;
    m.selector2 = 2;
    m.id = 0xF2345678;
    m.idFlag = true;
    m.fastSlowSend = true;
    m.flag5 = true;
    m.extraFlag = true;
    m.dlc = 2;
    m.param1 = 0x0102;
    m.param2 = 0x0304;
    m.param3 = 0x0506;
    m.enabled = true;
    EXPECT_GT(tarvel.AddMessage(m, ByteVector{0xAB, 0xCD}), 0) << err.str();
    EXPECT_EQ((Bytes{0x01, 0x02, 0x78, 0x56, 0x34, 0x92, 0xA0, 0x01, 0x00, 0x02, 0x03, 0x04, 0x01, 0x02, 0x05, 0x06,
                     0x01, 0xAB, 0xCD}),
              sent(1)[0].payload);
}

TEST_F(TxMessages, DataLengthFollowsTheDlcTable) {
    EXPECT_GT(tarvel.AddMessage(message(15), ByteVector(64, 0x5A)), 0);
    EXPECT_GT(tarvel.AddMessage(message(9), ByteVector(12, 0x5A)), 0);
    EXPECT_GT(tarvel.AddMessage(message(0)), 0);
    const auto log = sent(3);
    EXPECT_EQ(17u + 64, log[0].payload.size());
    EXPECT_EQ(17u + 12, log[1].payload.size());
    EXPECT_EQ(17u, log[2].payload.size());
}

TEST_F(TxMessages, RefusedDescriptionsSendNothing) {
    const unsigned char data[64] = {};
    EXPECT_EQ(-21, tarvel.AddMessage(message(15), ByteVector(63, 0)));
    EXPECT_NE(std::string::npos, err.str().find("Payload size does not equal to CAN message length! (63/64)\n"));
    EXPECT_EQ(-21, tarvel.AddMessage(message(16)));
    EXPECT_NE(std::string::npos, err.str().find("Tarvel::AddMessage: Invalid DLC value: 16.\n"));
    err.str("");
    EXPECT_EQ(-31, tarvel.AddMessage(data, 16, 0, 0, 1, false, false, false, false, false, false, false, 0, 0, 0));
    EXPECT_EQ("", err.str()) << "raw form with data refuses silently";
    EXPECT_EQ(-21, tarvel.AddMessage(nullptr, 16, 0, 0, 1, false, false, false, false, false, false, false, 0, 0, 0));
    EXPECT_NE(std::string::npos, err.str().find("Invalid DLC value: 16."));
    EXPECT_EQ(-31, tarvel.SetMessageData(0x4444, nullptr, nullptr, false, true));
    EXPECT_NE(std::string::npos,
              err.str().find("Tarvel::SetMessageData: Message not found in internal API structure.\n"));
    expectOnlyPingFollows(tarvel, sim());
}

TEST_F(TxMessages, AddMessageAnswersAreMapped) {
    const struct {
        uint16_t answer;
        int result;
        const char* report;
    } cases[] = {{0, -21, "Tarvel::AddMessage: Invalid message.\n"},
                 {0xFFFF, -21, "Tarvel::AddMessage: Invalid message.\n"},
                 {0xFFFD, -23, "Tarvel::AddMessage: Tarvel is out of memory.\n"},
                 {0xFFFE, -22, "Tarvel::AddMessage: Invalid message length.\n"}};
    for (const auto& c : cases) {
        err.str("");
        sim().setResponder(answer(Tarvel::ADD_MESSAGE, c.answer));
        EXPECT_EQ(c.result, tarvel.AddMessage(message(1))) << c.answer;
        EXPECT_EQ(c.report, err.str());
    }
    // None of them entered the table.
    sim().setResponder(nullptr);
    EXPECT_EQ(-31, tarvel.SetMessageData(0, nullptr, nullptr, false, true));
    EXPECT_EQ(-31, tarvel.SetMessageData(0xFFFF, nullptr, nullptr, false, true));
}

TEST_F(TxMessages, SecondAddUnderTheSameHandlerKeepsTheFirstCopy) {
    sim().setResponder(answer(Tarvel::ADD_MESSAGE, 7));
    EXPECT_EQ(7, tarvel.AddMessage(message(2)));
    EXPECT_EQ(7, tarvel.AddMessage(message(8)));
    sim().setResponder(answer(Tarvel::SET_MESSAGE_DATA, 0));
    EXPECT_EQ(2u + 1 + 2 + 2, setDataPayloadSize(7));
}

TEST_F(TxMessages, SetMessageDataPutsMaskBeforeData) {
    const int h = tarvel.AddMessage(message(8));
    ASSERT_GT(h, 0);
    sim().clearLog();
    EXPECT_EQ(0, tarvel.SetMessageData(static_cast<unsigned short>(h), nullptr, nullptr, true, true));
    Bytes expected{static_cast<uint8_t>(h >> 8), static_cast<uint8_t>(h), 0x01};
    expected.insert(expected.end(), 8, 0xFF);
    expected.insert(expected.end(), 8, 0x00);
    EXPECT_EQ(expected, sent(1)[0].payload);

    const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8}, mask[8] = {0xF0, 0, 0, 0, 0, 0, 0, 0x0F};
    sim().clearLog();
    EXPECT_EQ(0, tarvel.SetMessageData(static_cast<unsigned short>(h), data, mask, false, false));
    const auto p = sent(1)[0];
    EXPECT_EQ(4, p.messageId) << "untracked";
    EXPECT_EQ((Bytes{0x00, 0xF0, 0, 0, 0, 0, 0, 0, 0x0F, 1, 2, 3, 4, 5, 6, 7, 8}),
              Bytes(p.payload.begin() + 2, p.payload.end()));
}

TEST_F(TxMessages, RemoveMessageErasesOnlyOnSuccess) {
    const auto h = static_cast<unsigned short>(tarvel.AddMessage(message(2)));
    sim().setResponder(answer(Tarvel::REMOVE_MESSAGE, 0xFFFF));
    EXPECT_EQ(-21, tarvel.RemoveMessage(h));
    sim().setResponder(answer(Tarvel::REMOVE_MESSAGE, 1));
    EXPECT_EQ(-22, tarvel.RemoveMessage(h));
    sim().setResponder(answer(Tarvel::SET_MESSAGE_DATA, 0));
    EXPECT_EQ(0, tarvel.SetMessageData(h, nullptr, nullptr, false, true)) << "entry kept after refusals";
    sim().setResponder(nullptr);
    EXPECT_EQ(0, tarvel.RemoveMessage(h));
    EXPECT_EQ(-31, tarvel.SetMessageData(h, nullptr, nullptr, false, true));
    EXPECT_EQ((Bytes{static_cast<uint8_t>(h >> 8), static_cast<uint8_t>(h)}), sent(5)[4].payload);
}

TEST_F(TxMessages, EnableAndDisableAnswersAreMapped) {
    const auto h = static_cast<unsigned short>(tarvel.AddMessage(message(2)));
    for (auto cmd : {Tarvel::ENABLE_MESSAGE, Tarvel::DISABLE_MESSAGE}) {
        sim().setResponder(answer(cmd, 0xFFFF));
        EXPECT_EQ(-21, cmd == Tarvel::ENABLE_MESSAGE ? tarvel.EnableMessage(h) : tarvel.DisableMessage(h));
        sim().setResponder(answer(cmd, 1));
        EXPECT_EQ(-22, cmd == Tarvel::ENABLE_MESSAGE ? tarvel.EnableMessage(h) : tarvel.DisableMessage(h));
        sim().setResponder(answer(cmd, 9));
        EXPECT_EQ(9, cmd == Tarvel::ENABLE_MESSAGE ? tarvel.EnableMessage(h) : tarvel.DisableMessage(h));
    }
    EXPECT_EQ("", err.str());
}

TEST_F(TxMessages, EnableOfForeignHandlerReportsButReturnsTheAnswer) {
    sim().setResponder(answer(Tarvel::ENABLE_MESSAGE, 0));
    EXPECT_EQ(0, tarvel.EnableMessage(0x0102));
    EXPECT_EQ("Tarvel::EnableMessage: Message not found in internal API structure.\n", err.str());
    EXPECT_EQ((Bytes{0x01, 0x02}), sent(1)[0].payload);
    err.str("");
    sim().setResponder(answer(Tarvel::DISABLE_MESSAGE, 0));
    EXPECT_EQ(0, tarvel.DisableMessage(0x0102));
    EXPECT_EQ("Tarvel::DisableMessage: Message not found in internal API structure.\n", err.str());
}

TEST_F(TxMessages, GetHandlerSendsTheIdentifierUnmasked) {
    sim().setResponder(answer(Tarvel::GET_HANDLER, 0x0042));
    EXPECT_EQ(0x42, tarvel.GetHandler(3, 4, 0xFFFFFFFF, false, true, true));
    EXPECT_EQ((Bytes{0x03, 0x04, 0xFF, 0xFF, 0xFF, 0xFF, 0xC0}), sent(1)[0].payload);
    sim().setResponder(answer(Tarvel::GET_HANDLER, 0xFFFF));
    EXPECT_EQ(-21, tarvel.GetHandler(3, 4, 0x12, true, false, false));
    EXPECT_EQ((Bytes{0x03, 0x04, 0x12, 0x00, 0x00, 0x80, 0x00}), sent(2)[1].payload);
}

TEST_F(TxMessages, TableIsEmptiedByDisconnect) {
    const auto h = static_cast<unsigned short>(tarvel.AddMessage(message(2)));
    EXPECT_EQ(0, tarvel.SetMessageData(h, nullptr, nullptr, false, true));
    tarvel.Disconnect();
    EXPECT_EQ(-31, tarvel.SetMessageData(h, nullptr, nullptr, false, true));
}

TEST_F(TxMessages, TwoThreadsShareTheSession) {
    auto work = [this](int& failures) {
        for (uint32_t i = 0; i < 20; ++i) {
            const int h = tarvel.AddMessage(message(static_cast<unsigned char>(1 + i % 8)));
            if (h <= 0 || tarvel.SetMessageData(static_cast<unsigned short>(h), nullptr, nullptr, false, true) != 0)
                ++failures;
        }
    };
    int failuresA = 0, failuresB = 0;
    std::thread a(work, std::ref(failuresA)), b(work, std::ref(failuresB));
    a.join();
    b.join();
    EXPECT_EQ(0, failuresA + failuresB) << err.str();
    EXPECT_EQ(40u, sim().messageCount());
}

} // namespace
