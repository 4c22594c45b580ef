// Several application threads exchanging commands on one session at once.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "SessionTestUtil.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"

using namespace sessiontest;

namespace {

class ConcurrentExchanges : public SimSession, public ::testing::WithParamInterface<bool> {};

TEST_P(ConcurrentExchanges, EachCallerGetsTheAnswerToItsOwnCommand) {
    if (GetParam()) {
        ASSERT_EQ(0, tarvel.StartReceiver());
    }
    // The device answers with the two bytes it was sent.
    sim().setResponder(on(Tarvel::GET_HANDLER, [](const HostPacket& p) {
        return std::vector<DevicePacket>{{p.messageId, Tarvel::OK, {p.payload.at(0), p.payload.at(1)}}};
    }));
    const int threads = 4;
    const int perThread = 100;
    std::atomic<int> wrong{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < threads; ++t) {
        callers.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                const int value = (t + 1) << 8 | i;
                const ByteVector payload{static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
                if (TarvelTestAccess::exchange(tarvel, Tarvel::GET_HANDLER, payload) != value) ++wrong;
            }
        });
    }
    for (auto& c : callers) c.join();
    EXPECT_EQ(0, wrong.load()) << err.str();
    EXPECT_EQ(static_cast<std::size_t>(threads * perThread), sent(threads * perThread).size());
}

INSTANTIATE_TEST_SUITE_P(Session, ConcurrentExchanges, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "WithReceiver" : "DirectReading";
                         });

} // namespace
