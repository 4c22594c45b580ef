// Several application threads exchanging commands on one session at once.
#include <atomic>
#include <thread>
#include <vector>

#include "ScriptedAnswers.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"

using namespace scripted;

namespace {

class ConcurrentExchanges : public SimSession, public ::testing::WithParamInterface<bool> {};

TEST_P(ConcurrentExchanges, EachCallerGetsTheAnswerToItsOwnCommand) {
    ASSERT_EQ(0, GetParam() ? tarvel.StartReceiver() : 0);
    // The device answers with the two bytes it was sent.
    sim().setResponder(on(Tarvel::GET_HANDLER, [](const HostPacket& p) {
        return std::vector<DevicePacket>{{p.messageId, Tarvel::OK, p.payload}};
    }));
    std::atomic<int> wrong{0};
    std::vector<std::thread> callers;
    for (int t = 1; t <= 4; ++t) {
        callers.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) {
                const ByteVector payload{static_cast<unsigned char>(t), static_cast<unsigned char>(i)};
                if (TarvelTestAccess::exchange(tarvel, Tarvel::GET_HANDLER, payload) != (t << 8 | i)) ++wrong;
            }
        });
    }
    for (auto& c : callers)
        c.join();
    EXPECT_EQ(0, wrong.load()) << err.str();
    EXPECT_EQ(400u, sent(400).size());
}

INSTANTIATE_TEST_SUITE_P(Session, ConcurrentExchanges, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "WithReceiver" : "DirectReading";
                         });

} // namespace
