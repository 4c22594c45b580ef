// Connecting, exchanging and disconnecting over and over: with the receiver on
// and off, stopped or left to the disconnect, with and without a report
// callback, in sessions made and destroyed. After the first cycles memory
// stays where it is, and at the end descriptors and threads are back where
// they were.
#include <malloc.h>

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>

#include "FakeDevice.h"
#include "ProcessCounts.h"
#include "TarvelAPI.h"

namespace {

using namespace tarvelsim;

// 400 connections, 300 of them after the warm-up.
constexpr int kSessions = 40;
constexpr int kCyclesPerSession = 10;
constexpr int kWarmUpSessions = 10;
// Memory the process may gain after the warm-up: far less than the cycles
// would lose to a leak of a thread stack, a read buffer or a report queue
// per connection.
constexpr std::size_t kResidentSlack = 512 * 1024;
constexpr std::size_t kHeapSlack = 32 * 1024;

// Sanitizers keep freed memory aside and map shadow memory as they go: there
// the resident size and the heap say nothing about leaks (ASan's own check does).
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryMeasurable = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kMemoryMeasurable = false;
#else
constexpr bool kMemoryMeasurable = true;
#endif
#else
constexpr bool kMemoryMeasurable = true;
#endif

std::size_t heapInUse() {
    return mallinfo2().uordblks;
}

// Four reports, one per channel, before every answer to a Ping.
Bytes reportsThenAnswer(const HostPacket& p) {
    Bytes out;
    if (p.command == cmd::PING) {
        for (uint8_t channel = 0; channel < 4; ++channel) {
            const Bytes frame =
                FakeDevice::frame(channel, response::ASYNC_MESSAGE, {0x01, 0x23, 0x08, 1, 2, 3, 4, 5, 6, 7, 8});
            out.insert(out.end(), frame.begin(), frame.end());
        }
    }
    const Bytes answer = FakeDevice::soundAnswer(p);
    out.insert(out.end(), answer.begin(), answer.end());
    return out;
}

// One session: made, connected and disconnected kCyclesPerSession times, destroyed.
void runSession(FakeDevice& device, int session, std::atomic<int>& called) {
    std::ostringstream err;
    Tarvel tarvel;
    tarvel.ClearPrintStream();
    tarvel.SetPrintStream(err, TARVEL_ERR);
    if (session % 2 == 1) tarvel.SetReportCallback([&](const TarvelReport&) { ++called; });
    for (int cycle = 0; cycle < kCyclesPerSession; ++cycle) {
        SCOPED_TRACE(::testing::Message() << "session " << session << ", cycle " << cycle);
        const bool receiver = cycle % 2 == 1;
        ASSERT_EQ(0, tarvel.Connect(device.path(), 1000, 1000)) << err.str();
        if (receiver) {
            ASSERT_EQ(0, tarvel.StartReceiver());
        }
        ASSERT_EQ(0, tarvel.Ping()) << err.str();
        unsigned char block[16] = {};
        ASSERT_EQ(0, tarvel.ReadEeprom(0x0200, sizeof block, block)) << err.str();
        EXPECT_EQ(15, block[15]);
        if (receiver) {
            TarvelReport report{};
            ASSERT_EQ(1, tarvel.WaitReport(report, 5000));
            EXPECT_EQ(0x0123u, report.id);
        }
        if (cycle % 4 == 3) tarvel.StopReceiver(); // else the disconnect ends it
        ASSERT_EQ(0, tarvel.Disconnect());
    }
}

TEST(Cycles, ConnectionsOverAndOverLeaveMemoryDescriptorsAndThreadsAsTheyWere) {
    FakeDevice device;
    device.misbehave(reportsThenAnswer);
    const ProcessCounts before = ProcessCounts::baseline();
    std::size_t warmResident = 0, warmHeap = 0;
    std::atomic<int> called{0};
    for (int session = 0; session < kSessions; ++session) {
        runSession(device, session, called);
        if (::testing::Test::HasFatalFailure()) return;
        if (session == kWarmUpSessions - 1) {
            warmResident = ProcessCounts::residentBytes();
            warmHeap = heapInUse();
        }
    }
    const std::size_t endResident = ProcessCounts::residentBytes(), endHeap = heapInUse();
    if (kMemoryMeasurable) {
        EXPECT_LE(endResident, warmResident + kResidentSlack) << "resident after the warm-up " << warmResident;
        EXPECT_LE(endHeap, warmHeap + kHeapSlack) << "heap in use after the warm-up " << warmHeap;
    }
    EXPECT_TRUE(ProcessCounts::settlesTo(before))
        << "before: " << before.text() << "; after: " << ProcessCounts::now().text();
    EXPECT_GT(called.load(), 0) << "the callbacks were called";
    std::printf("after the warm-up %d cycles, resident %zu -> %zu bytes, heap in use %zu -> %zu bytes\n",
                (kSessions - kWarmUpSessions) * kCyclesPerSession, warmResident, endResident, warmHeap, endHeap);
}

} // namespace
