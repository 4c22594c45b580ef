// Transmit message table: payloads, answer mappings and the host-side copy.
#include "ScriptedAnswers.h"
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
    // Whether the host copy holds the handler (SetMessageData refuses an unknown one).
    bool known(unsigned short handler) { return tarvel.SetMessageData(handler, nullptr, nullptr, false, true) != -31; }
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
    // The data length follows the DLC table (DLC 15: RefusedDescriptionsSendNothing).
    EXPECT_GT(tarvel.AddMessage(message(9), ByteVector(12, 0x5A)), 0);
    EXPECT_GT(tarvel.AddMessage(message(14), ByteVector(48, 0x5A)), 0);
    const auto log = sent(3);
    EXPECT_EQ((Bytes{0x01, 0x02, 0x78, 0x56, 0x34, 0x92, 0xA0, 0x01, 0x00, 0x02, 0x03, 0x04, 0x01, 0x02, 0x05, 0x06,
                     0x01, 0xAB, 0xCD}),
              log[0].payload);
    EXPECT_EQ(17u + 12, log[1].payload.size());
    EXPECT_EQ(17u + 48, log[2].payload.size());
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

TEST_F(TxMessages, AnswerMappings) {
    const auto h = static_cast<unsigned short>(tarvel.AddMessage(message(2)));
    const std::vector<std::pair<uint16_t, int>> switching = {{0xFFFF, -21}, {1, -22}, {9, 9}};
    expectMappings(sim(),
                   {
                       {[&] { return tarvel.AddMessage(message(1)); },
                        Tarvel::ADD_MESSAGE,
                        {{0, -21}, {0xFFFF, -21}, {0xFFFD, -23}, {0xFFFE, -22}}},
                       {[&] { return tarvel.EnableMessage(h); }, Tarvel::ENABLE_MESSAGE, switching},
                       {[&] { return tarvel.DisableMessage(h); }, Tarvel::DISABLE_MESSAGE, switching},
                       {[&] { return tarvel.RemoveMessage(h); }, Tarvel::REMOVE_MESSAGE, {{0xFFFF, -21}, {1, -22}}},
                       {[&] { return tarvel.GetHandler(3, 4, 0x12, false, false, false); },
                        Tarvel::GET_HANDLER,
                        {{0xFFFF, -21}, {0x42, 0x42}}},
                   });
    EXPECT_EQ("Tarvel::AddMessage: Invalid message.\n"
              "Tarvel::AddMessage: Invalid message.\n"
              "Tarvel::AddMessage: Tarvel is out of memory.\n"
              "Tarvel::AddMessage: Invalid message length.\n",
              err.str());
    EXPECT_FALSE(known(0));
    EXPECT_FALSE(known(0xFFFF)) << "no refused message entered the table";
    EXPECT_TRUE(known(h)) << "a refused removal keeps the entry";
    EXPECT_EQ(0, tarvel.RemoveMessage(h));
    EXPECT_FALSE(known(h));
}

TEST_F(TxMessages, SecondAddUnderTheSameHandlerKeepsTheFirstCopy) {
    sim().setResponder(answer(Tarvel::ADD_MESSAGE, 7));
    EXPECT_EQ(7, tarvel.AddMessage(message(2)));
    EXPECT_EQ(7, tarvel.AddMessage(message(8)));
    sim().clearLog();
    EXPECT_TRUE(known(7));
    EXPECT_EQ(2u + 1 + 2 + 2, sent(1)[0].payload.size()) << "the DLC of the first copy";
}

TEST_F(TxMessages, SetMessageDataPutsMaskBeforeData) {
    const int h = tarvel.AddMessage(message(8));
    ASSERT_GT(h, 0);
    sim().clearLog();
    EXPECT_EQ(0, tarvel.SetMessageData(static_cast<unsigned short>(h), nullptr, nullptr, true, true));
    const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8}, mask[8] = {0xF0, 0, 0, 0, 0, 0, 0, 0x0F};
    EXPECT_EQ(0, tarvel.SetMessageData(static_cast<unsigned short>(h), data, mask, false, false));
    const auto log = sent(2);
    Bytes expected{static_cast<uint8_t>(h >> 8), static_cast<uint8_t>(h), 0x01};
    expected.insert(expected.end(), 8, 0xFF);
    expected.insert(expected.end(), 8, 0x00);
    EXPECT_EQ(expected, log[0].payload) << "no mask: all ones; no data: zeros";
    EXPECT_EQ(4, log[1].messageId) << "untracked";
    EXPECT_EQ((Bytes{0x00, 0xF0, 0, 0, 0, 0, 0, 0, 0x0F, 1, 2, 3, 4, 5, 6, 7, 8}),
              Bytes(log[1].payload.begin() + 2, log[1].payload.end()));
}

TEST_F(TxMessages, HandlerPayloadsAndForeignHandlers) {
    sim().setResponder(answer(-1, 0));
    EXPECT_EQ(0, tarvel.EnableMessage(0x0102));
    EXPECT_EQ(0, tarvel.DisableMessage(0x0102));
    EXPECT_EQ("Tarvel::EnableMessage: Message not found in internal API structure.\n"
              "Tarvel::DisableMessage: Message not found in internal API structure.\n",
              err.str())
        << "reported, but the answer counts";
    EXPECT_EQ(0, tarvel.RemoveMessage(0x0304));
    // The identifier goes out unmasked.
    EXPECT_EQ(0, tarvel.GetHandler(3, 4, 0xFFFFFFFF, false, true, true));
    EXPECT_EQ(0, tarvel.GetHandler(3, 4, 0x12, true, false, false));
    const auto log = sent(5);
    EXPECT_EQ((Bytes{0x01, 0x02}), log[0].payload);
    EXPECT_EQ((Bytes{0x01, 0x02}), log[1].payload);
    EXPECT_EQ((Bytes{0x03, 0x04}), log[2].payload);
    EXPECT_EQ((Bytes{0x03, 0x04, 0xFF, 0xFF, 0xFF, 0xFF, 0xC0}), log[3].payload);
    EXPECT_EQ((Bytes{0x03, 0x04, 0x12, 0x00, 0x00, 0x80, 0x00}), log[4].payload);
}

} // namespace
