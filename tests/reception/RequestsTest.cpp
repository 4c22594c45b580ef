// Reception requests: payloads, request keys and answer mappings.
#include "ScriptedAnswers.h"
#include "SimSession.h"

using namespace scripted;

namespace {

class Requests : public SimSession {};

TEST_F(Requests, PayloadAndKey) {
    sim().setResponder(answer(Tarvel::REQUEST_MESSAGE, 0));
    const unsigned char data[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    EXPECT_EQ(0x051234, tarvel.RequestMessage(0x05, 0x1234, false, true, 8, true, false, data));
    EXPECT_EQ(0x1234, tarvel.RequestMessage(0x00, 0xABC01234, true, false, 9, false, true, data))
        << "no channel bits; only the low 16 bits of the id";
    EXPECT_EQ(0x015678, tarvel.RequestMessage(0x01, 0x5678, false, false, 8, false, false, nullptr));
    const auto log = sent(3);
    EXPECT_EQ((Bytes{0x05, 0x34, 0x12, 0x00, 0x80, 0x00, 0x08, 0x80, 0x00, 1, 2, 3, 4, 5, 6, 7, 8}), log[0].payload);
    EXPECT_EQ((Bytes{0x00, 0x34, 0x12, 0xC0, 0xAB, 0x00, 0x09, 0x40, 0x01, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}),
              log[1].payload);
    EXPECT_EQ(9u, log[2].payload.size());
}

TEST_F(Requests, InvalidDlcSendsNothing) {
    EXPECT_EQ(-21, tarvel.RequestMessage(1, 0x10, false, false, 16, false, false, nullptr));
    EXPECT_EQ("Tarvel::RequestMessage: Invalid DLC value: 16.\n", err.str());
    expectOnlyPingFollows(tarvel, sim());
}

TEST_F(Requests, AnswerMappings) {
    const auto request = [&] { return tarvel.RequestMessage(1, 0x10, false, false, 0, false, false, nullptr); };
    const std::vector<std::pair<uint16_t, int>> plain = {{0xFFFF, -21}, {1, 1}};
    expectMappings(
        sim(),
        {
            {request, Tarvel::REQUEST_MESSAGE, {{1, -21}, {2, -21}, {3, -21}, {4, -21}, {5, -21}, {0xFFFF, -21}}},
            {request, Tarvel::REQUEST_MESSAGE, {{6, 0x010010}, {0x1234, 0x010010}}}, // any other answer: the key
            {[&] { return tarvel.EnableRequest(0x0102); }, Tarvel::ENABLE_REQUEST, plain},
            {[&] { return tarvel.DisableRequest(0x0102); }, Tarvel::DISABLE_REQUEST, plain},
            {[&] { return tarvel.RemoveRequest(0x0102); }, Tarvel::REMOVE_REQUEST, plain},
        });
    const auto log = sent(14);
    for (std::size_t i = 8; i < 14; ++i)
        EXPECT_EQ((Bytes{0x01, 0x02}), log[i].payload) << "handler commands";
    sim().setResponder(ignore(Tarvel::REQUEST_MESSAGE));
    EXPECT_EQ(-14, unanswered(tarvel, request));
}

} // namespace
