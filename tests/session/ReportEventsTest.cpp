// Reception as events: every report once, in order, with its full identity;
// the bounded queue, waiters, the callback, statistics and the checked request.
#include <cstring>
#include <future>
#include <mutex>

#include "CaptureStderr.h"
#include "ScriptedAnswers.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"

using namespace scripted;

namespace {

class ReportEvents : public SimSession {
protected:
    void SetUp() override {
        SimSession::SetUp();
        ASSERT_EQ(0, tarvel.StartReceiver());
    }

    int request(unsigned char mask, uint32_t id, bool extended) {
        return tarvel.RequestReport(mask, id, extended, false, 8, false, false, nullptr);
    }

    // Frame `seq` of identifier `id` on channel 0: the sequence number in its first two bytes.
    void inject(uint32_t id, unsigned seq, uint8_t channel = 0) {
        sim().injectFrame({channel, id, 0, {uint8_t(seq >> 8), uint8_t(seq), 0xA5, 0, 0, 0, 0, 0}});
    }

    static unsigned seqOf(const TarvelReport& r) { return unsigned(r.data[0]) << 8 | r.data[1]; }

    bool received(uint64_t n) {
        return eventually([&] { return tarvel.GetStatistics().reportsReceived >= n; });
    }

    std::vector<TarvelReport> drain(std::size_t max = 10000) {
        std::vector<TarvelReport> all(max);
        const int n = tarvel.WaitReports(all.data(), unsigned(max), 0);
        all.resize(n > 0 ? std::size_t(n) : 0);
        return all;
    }
};

// The callback sees what the waiter takes, in the same order.
TEST_F(ReportEvents, ABurstOnFourIdentifiersArrivesCompleteInOrderWithFullIdentity) {
    std::mutex lock;
    std::vector<TarvelReport> called;
    ASSERT_EQ(0, tarvel.SetReportCallback([&](const TarvelReport& r) {
        std::lock_guard<std::mutex> guard(lock);
        called.push_back(r);
    }));
    const uint32_t ids[] = {0x123, 0x18DA0124, 0x7FF, 0x1ABCDEF0};
    const bool extended[] = {false, true, false, true};
    for (int i = 0; i < 4; ++i)
        ASSERT_GT(request(0x01, ids[i], extended[i]), 0) << err.str();
    const unsigned rounds = 300;
    for (unsigned seq = 0; seq < rounds; ++seq)
        for (uint32_t id : ids)
            inject(id, seq);
    ASSERT_TRUE(received(4 * rounds));

    const std::vector<TarvelReport> reports = drain();
    ASSERT_EQ(4 * rounds, reports.size());
    ASSERT_TRUE(eventually([&] {
        std::lock_guard<std::mutex> guard(lock);
        return called.size() == reports.size();
    }));
    uint64_t lastTime = 0;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        const TarvelReport& r = reports[i];
        EXPECT_EQ(ids[i % 4], r.id) << i;
        EXPECT_EQ(extended[i % 4], r.extended != 0) << i;
        EXPECT_EQ(i / 4, seqOf(r)) << i;
        EXPECT_EQ(8, r.length);
        EXPECT_EQ(0xA5, r.data[2]);
        EXPECT_EQ(static_cast<int>((1u << 16) | (ids[i % 4] & 0xFFFF)), r.requestKey);
        EXPECT_GE(r.timeUs, lastTime) << "time stamps never go back";
        lastTime = r.timeUs;
        EXPECT_EQ(0, std::memcmp(&r, &called[i], sizeof(TarvelReport))) << i;
    }
    EXPECT_EQ(0u, tarvel.GetStatistics().reportsDropped);

    TarvelReport latest{};
    ASSERT_EQ(0, tarvel.ReadReport((1 << 16) | 0x0124, latest));
    EXPECT_EQ(0x18DA0124u, latest.id);
    EXPECT_EQ(rounds - 1, seqOf(latest));
    EXPECT_EQ(-1, tarvel.ReadReport((1 << 16) | 0x0999, latest));

    ASSERT_EQ(0, tarvel.SetReportCallback(nullptr, nullptr));
    inject(0x123, rounds);
    ASSERT_TRUE(received(4 * rounds + 1));
    EXPECT_EQ(4 * rounds, called.size()) << "a removed callback is not called again";
}

TEST_F(ReportEvents, AFullQueueDropsTheOldestAndCountsExactlyWhatItDropped) {
    ASSERT_EQ(0, tarvel.SetReportQueue(10));
    ASSERT_GT(request(0x01, 0x321, false), 0);
    for (unsigned seq = 0; seq < 25; ++seq)
        inject(0x321, seq);
    ASSERT_TRUE(received(25));
    const std::vector<TarvelReport> kept = drain();
    ASSERT_EQ(10u, kept.size());
    for (unsigned i = 0; i < 10; ++i)
        EXPECT_EQ(15 + i, seqOf(kept[i]));
    EXPECT_EQ(15u, tarvel.GetStatistics().reportsDropped);

    // Shrinking drops the oldest too; 0 switches the queue off.
    for (unsigned seq = 0; seq < 6; ++seq)
        inject(0x321, seq);
    ASSERT_TRUE(received(31));
    ASSERT_EQ(0, tarvel.SetReportQueue(4));
    EXPECT_EQ(17u, tarvel.GetStatistics().reportsDropped);
    EXPECT_EQ(2u, seqOf(drain().front()));
    ASSERT_EQ(0, tarvel.SetReportQueue(0));
    TarvelReport r{};
    EXPECT_EQ(-2, tarvel.WaitReport(r, 0));
}

TEST_F(ReportEvents, AWaiterWakesOnTheReportOnItsTimeOutAndOnStopOrDisconnect) {
    ASSERT_GT(request(0x01, 0x222, false), 0);
    TarvelReport r{};
    EXPECT_EQ(0, tarvel.WaitReport(r, 0));
    EXPECT_EQ(0, tarvel.WaitReport(r, 30)) << "nothing came within the time-out";

    auto waiter = std::async(std::launch::async, [&] { return tarvel.WaitReport(r, 60000); });
    inject(0x222, 7);
    ASSERT_EQ(std::future_status::ready, waiter.wait_for(std::chrono::seconds(10)));
    EXPECT_EQ(1, waiter.get());
    EXPECT_EQ(7u, seqOf(r));

    const std::function<void()> ends[] = {[&] { tarvel.StopReceiver(); }, [&] { tarvel.Disconnect(); }};
    for (const auto& end : ends) {
        waiter = std::async(std::launch::async, [&] { return tarvel.WaitReport(r, 60000); });
        end();
        ASSERT_EQ(std::future_status::ready, waiter.wait_for(std::chrono::seconds(10)));
        EXPECT_EQ(-3, waiter.get()) << "the receiver is gone and nothing is queued";
    }
}

TEST_F(ReportEvents, ACallbackMayUseTheSessionEvenToStopTheReceiver) {
    std::promise<std::pair<int, int>> inside;
    ASSERT_EQ(0, tarvel.SetReportCallback([&](const TarvelReport&) {
        const int ping = tarvel.Ping(); // its answer comes through the receiver
        tarvel.StopReceiver();
        inside.set_value({ping, tarvel.GetInternalThreadStatus() & 1});
    }));
    ASSERT_GT(request(0x01, 0x101, false), 0);
    inject(0x101, 1);
    auto result = inside.get_future();
    ASSERT_EQ(std::future_status::ready, result.wait_for(std::chrono::seconds(10)));
    EXPECT_EQ(std::make_pair(0, 0), result.get());
}

TEST_F(ReportEvents, RequestsTheDeviceCouldNotTellApartAreRefusedAsAPair) {
    ASSERT_EQ(0x10123, request(0x01, 0x123, false));
    sim().clearLog();
    EXPECT_EQ(-31, request(0x03, 0x18DA0123, true));
    EXPECT_NE(std::string::npos, err.str().find("18DA0123 (extended)")) << err.str();
    EXPECT_NE(std::string::npos, err.str().find("123 (standard)")) << err.str();
    EXPECT_EQ(-31, request(0x01, 0x800, false)) << "11 bits at most";
    EXPECT_EQ(-31, request(0x01, 0x20000000, true)) << "29 bits at most";
    expectOnlyPingFollows(tarvel, sim());

    EXPECT_EQ(0x20123, request(0x02, 0x18DA0123, true)) << "another channel tells them apart";
    EXPECT_EQ(0x10123, request(0x01, 0x123, false)) << "the same request again is no conflict";
    EXPECT_EQ(-31, request(0x01, 0x123, true)) << "nor can it tell 123 from 00000123";

    // A request the device refuses leaves the record as it was.
    sim().setResponder(answer(Tarvel::REQUEST_MESSAGE, 0xFFFF));
    EXPECT_EQ(-21, tarvel.RequestMessage(0x01, 0x1ABC0123, false, true, 8, false, false, nullptr));
    sim().setResponder(nullptr);
    inject(0x123, 5);
    TarvelReport r{};
    ASSERT_EQ(1, tarvel.WaitReport(r, 5000));
    EXPECT_EQ(0x123u, r.id);
    EXPECT_EQ(0, r.extended);

    ASSERT_EQ(0, tarvel.RemoveRequest(0x0123));
    EXPECT_EQ(0x10123, request(0x01, 0x18DA0123, true)) << "a removed request is forgotten";
    ASSERT_EQ(0, tarvel.Reset());
    ASSERT_TRUE(eventually([&] { return !sim().booting(); }));
    EXPECT_EQ(0x10123, request(0x01, 0x123, false)) << "a restart forgets every request";
}

TEST_F(ReportEvents, StatisticsCountWhatTheLineDid) {
    tarvel.StopReceiver();
    tarvel.ResetStatistics();
    tarvelsim::Faults faults;
    faults.corruptEvery = 3;
    sim().setFaults(faults);
    ASSERT_EQ(0, tarvel.SetTimeout(100, 1000));
    int failed = 0;
    for (int i = 0; i < 9; ++i)
        failed += tarvel.Ping() != 0;
    const TarvelStatistics s = tarvel.GetStatistics();
    EXPECT_EQ(3, failed);
    EXPECT_EQ(3u, s.rejectedChecksum) << "every corrupted answer counted once";
    EXPECT_EQ(0u, s.rejectedLength + s.rejectedSlip) << "and under its own count only";
    EXPECT_EQ(3u, s.exchangesTimedOut);
    EXPECT_EQ(9u, s.framesSent);
    EXPECT_EQ(9u * 5, s.bytesSent);
    EXPECT_EQ(9u, s.framesReceived);
    EXPECT_EQ(9u * 7, s.bytesReceived);
    EXPECT_GT(s.lastReceivedUs, 0u);

    sim().setFaults({});
    sim().setResponder(answer(Tarvel::PING, Tarvel::COMMAND_FAILED, {}));
    EXPECT_EQ(-14, tarvel.Ping());
    EXPECT_EQ(1u, tarvel.GetStatistics().commandFailed);
    tarvel.ResetStatistics();
    EXPECT_EQ(0u, tarvel.GetStatistics().framesSent);
}

} // namespace
