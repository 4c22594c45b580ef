// A device that goes away while an exchange waits for its answer: the far end
// of the terminal closes (as when a simulator process is killed: the library
// sees the same hang-up). The wait ends, the next exchange fails at once
// instead of waiting a read time-out, the receiver ends itself, and the
// session closes without leaving a descriptor or a thread behind.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>

#include "FakeDeviceSession.h"
#include "Wait.h"

namespace {

// Long enough that an exchange ended by a time-out is told from one ended by
// the line going away.
constexpr unsigned kReadTimeoutMs = 6000;
constexpr unsigned kAnswerWaitMs = 3000;
constexpr long long kGoneMs = 2500; // a direct wait ends this soon after the hang-up

// The test's own device, silent after the version query, whose master side closes.
class DeviceGone : public ::testing::TestWithParam<bool>, protected FakeDeviceSession {
protected:
    void SetUp() override {
        countBefore();
        device_ = std::make_unique<FakeDevice>();
        connect(receiver(), kReadTimeoutMs, kAnswerWaitMs);
        device_->misbehave([](const HostPacket&) { return Bytes{}; });
    }
    void TearDown() override { closeAndCount(); }

    bool receiver() const { return GetParam(); }
};

TEST_P(DeviceGone, TheWaitEndsTheNextFailsAtOnceAndTheSessionCloses) {
    auto waiting = std::async(std::launch::async, [&] { return tarvel_->Ping(); });
    ASSERT_TRUE(eventually([&] { return device_->packetsSeen() >= 2; })) << "the command never reached the device";
    const auto goneAt = std::chrono::steady_clock::now();
    device_->die();
    ASSERT_EQ(std::future_status::ready, waiting.wait_for(std::chrono::seconds(20))) << "the wait outlived the device";
    EXPECT_EQ(receiver() ? -15 : -14, waiting.get());
    const long long afterGone = msSince(goneAt);
    // The hang-up ends the wait: a direct read fails, the receiver ends and
    // wakes the waiter long before the read time-out or the answer wait.
    EXPECT_LT(afterGone, kGoneMs);

    // Reads fail at once now: the receiver ends itself, the next exchange
    // reads directly and fails without waiting.
    EXPECT_TRUE(eventually([&] { return (tarvel_->GetInternalThreadStatus() & 1) == 0; }));
    EXPECT_EQ(receiver() ? 1u : 0u, tarvel_->GetStatistics().receiverEnded);
    const auto nextAt = std::chrono::steady_clock::now();
    EXPECT_EQ(-14, within(
                       std::chrono::seconds(20), [&] { return tarvel_->Ping(); }, [] {}));
    EXPECT_LT(msSince(nextAt), kGoneMs);

    EXPECT_EQ(0, tarvel_->Disconnect());
    EXPECT_EQ(-1, tarvel_->Ping()) << "the port is closed";
}

INSTANTIATE_TEST_SUITE_P(Ways, DeviceGone, ::testing::Bool(), [](const ::testing::TestParamInfo<bool>& info) {
    return std::string("MasterClosed") + (info.param ? "_Receiver" : "_Direct");
});

} // namespace
