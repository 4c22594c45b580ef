// A device that goes away while an exchange waits for its answer: the far end
// of the terminal closed, or the simulator process killed outright. The wait
// ends, the next exchange fails at once instead of waiting a read time-out,
// the receiver ends itself, and the session closes without leaving a
// descriptor or a thread behind.
#include <signal.h>

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>

#include "FakeDevice.h"
#include "Process.h"
#include "ProcessCounts.h"
#include "TarvelAPI.h"
#include "Wait.h"

namespace {

// Long enough that an exchange ended by a time-out is told from one ended by
// the line going away.
constexpr unsigned kReadTimeoutMs = 6000;
constexpr unsigned kAnswerWaitMs = 3000;
constexpr long long kGoneMs = 2500; // a direct wait ends this soon after the hang-up

// A device that can be made to go away while the host waits for an answer.
class GoingDevice {
public:
    virtual ~GoingDevice() = default;
    virtual std::string path() = 0;
    // Has seen the command the host now waits for.
    virtual bool holdsTheCommand() = 0;
    virtual void goAway() = 0;
};

// The test's own device, silent after the version query; its master side closes.
class ClosedMaster : public GoingDevice {
public:
    std::string path() override {
        m_device.misbehave(
            [this](const HostPacket& p) { return m_device.packetsSeen() == 1 ? FakeDevice::soundAnswer(p) : Bytes{}; });
        return m_device.path();
    }
    bool holdsTheCommand() override { return m_device.packetsSeen() >= 2; }
    void goAway() override { m_device.die(); }

private:
    FakeDevice m_device;
};

// tarvel-sim dropping every second answer (the version query's gets
// through, the next is lost), killed with SIGKILL.
class KilledSimulator : public GoingDevice {
public:
    std::string path() override { return servedPort(m_sim); }
    bool holdsTheCommand() override { return m_sim.err().find("answer 2 dropped") != std::string::npos; }
    void goAway() override {
        m_sim.signal(SIGKILL);
        m_sim.finish();
    }

private:
    Process m_sim{{TARVEL_SIM_PATH, "--drop-every", "2", "--log-traffic"}};
};

using Gone = std::tuple<const char*, bool>; // how the device goes, with the receiver

class DeviceGone : public ::testing::TestWithParam<Gone> {
protected:
    void SetUp() override {
        before_ = ProcessCounts::baseline();
        if (std::string(std::get<0>(GetParam())) == "MasterClosed")
            device_ = std::make_unique<ClosedMaster>();
        else
            device_ = std::make_unique<KilledSimulator>();
        tarvel_ = std::make_unique<Tarvel>();
        tarvel_->ClearPrintStream();
        tarvel_->SetPrintStream(err_, TARVEL_ERR);
        ASSERT_EQ(0, tarvel_->Connect(device_->path(), kReadTimeoutMs, 1000)) << err_.str();
        if (receiver()) {
            ASSERT_EQ(0, tarvel_->SetAnswerWait(kAnswerWaitMs));
            ASSERT_EQ(0, tarvel_->StartReceiver());
        }
    }

    void TearDown() override {
        tarvel_.reset();
        device_.reset();
        EXPECT_TRUE(ProcessCounts::settlesTo(before_))
            << "before: " << before_.text() << "; after: " << ProcessCounts::now().text();
    }

    bool receiver() const { return std::get<1>(GetParam()); }

    ProcessCounts before_;
    std::ostringstream err_;
    std::unique_ptr<GoingDevice> device_;
    std::unique_ptr<Tarvel> tarvel_;
};

TEST_P(DeviceGone, TheWaitEndsTheNextFailsAtOnceAndTheSessionCloses) {
    auto waiting = std::async(std::launch::async, [&] { return tarvel_->Ping(); });
    ASSERT_TRUE(eventually([&] { return device_->holdsTheCommand(); })) << "the command never reached the device";
    const auto goneAt = std::chrono::steady_clock::now();
    device_->goAway();
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

INSTANTIATE_TEST_SUITE_P(Ways, DeviceGone,
                         ::testing::Combine(::testing::Values("MasterClosed", "SimulatorKilled"), ::testing::Bool()),
                         [](const ::testing::TestParamInfo<Gone>& info) {
                             return std::string(std::get<0>(info.param)) +
                                    (std::get<1>(info.param) ? "_Receiver" : "_Direct");
                         });

} // namespace
