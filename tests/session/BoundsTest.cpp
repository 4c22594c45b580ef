// What a hostile or slow device must not break: bounded buffers, reports on
// channels that don't exist, a receiver in line noise, a start on a closed
// port (a device that talks without answering: tests/hostile).
#include <chrono>
#include <functional>

#include "CaptureStderr.h"
#include "ScriptedAnswers.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"
#include "protocol/Packet.h"

using namespace scripted;
using Clock = std::chrono::steady_clock;

namespace {

class Bounds : public SimSession {};

TEST_F(Bounds, ReportsOnChannelsAboveThreeAreDroppedCountedAndReportedOnce) {
    ASSERT_EQ(0, tarvel.StartReceiver());
    CaptureStderr stderrText;
    for (uint8_t channel = 4; channel < 54; ++channel)
        sim().sendPacket({channel, Tarvel::ASYNC_MESSAGE, {0x01, 0x23, 0x08, 1, 2, 3, 4, 5, 6, 7, 8}});
    ASSERT_EQ(0, tarvel.Ping());
    ASSERT_TRUE(eventually([&] { return tarvel.GetStatistics().reportsBadChannel == 50; }));
    EXPECT_EQ(0u, TarvelTestAccess::asyncMapSize(tarvel));
    EXPECT_EQ(0u, tarvel.GetStatistics().reportsReceived);
    EXPECT_EQ("Tarvel::Receiver: Dropping reports on channel 4: channels are 0 to 3.\n", stderrText.stop());
}

TEST_F(Bounds, AStartOnAClosedPortIsRefusedAtOnce) {
    ASSERT_EQ(0, tarvel.Disconnect());
    const auto start = Clock::now();
    EXPECT_EQ(-1, tarvel.StartReceiver());
    EXPECT_LT(msSince(start), 900) << "no start loop waits for a thread that has already ended";
    EXPECT_EQ("Tarvel::StartReceiver: The port is not open!\n", err.str());
    EXPECT_EQ(0, tarvel.GetInternalThreadStatus() & 1);
}

TEST_F(Bounds, QueuedAnswersAreBoundedAndAnOldOneIsNotTakenForTheNewAnswer) {
    ASSERT_EQ(0, tarvel.StartReceiver());
    for (int i = 0; i < 1000; ++i)
        sim().sendPacket({uint8_t(5 + i % 250), Tarvel::OK, {0, 1}});
    ASSERT_TRUE(eventually([&] { return tarvel.GetStatistics().framesReceived >= 1000; }));
    EXPECT_LE(TarvelTestAccess::syncBufferSize(tarvel), 256u);

    // An unasked answer that carries the id the next command will take.
    ASSERT_EQ(0, tarvel.Ping()); // and the queue is empty again
    const uint8_t next = tarvel::nextMessageId(TarvelTestAccess::messageId(tarvel));
    sim().sendPacket({next, Tarvel::OK, {0x12, 0x34}});
    ASSERT_TRUE(eventually([&] { return TarvelTestAccess::syncBufferSize(tarvel) == 1; }));
    EXPECT_EQ(0, tarvel.Ping()) << "the device's own answer, not the one that was waiting";
}

TEST_F(Bounds, TheAnswerWaitWithTheReceiverCanBeSetForASlowDevice) {
    tarvelsim::Faults slow;
    slow.answerDelayMs = 120;
    sim().setFaults(slow);
    ASSERT_EQ(0, tarvel.Disconnect()); // a session with the default wait
    Tarvel fresh;
    fresh.ClearPrintStream();
    ASSERT_EQ(0, fresh.Connect(sim().portPath(), 1000, 1000)) << "reading directly waits a read time-out";
    ASSERT_EQ(0, fresh.StartReceiver());
    EXPECT_EQ(-15, fresh.Ping()) << "50 ms by default";
    ASSERT_EQ(0, fresh.SetAnswerWait(kAnswerWaitMs));
    EXPECT_EQ(0, fresh.Ping());
}

TEST_F(Bounds, TheReceiverSurvivesNoiseWhenItCountsOnlyFaultsInARow) {
    const Bytes badEscape = {0xC0, 0xDB, 0x01, 0xC0};
    for (const bool consecutive : {false, true}) {
        SCOPED_TRACE(consecutive ? "faults in a row" : "every fault of its life");
        ASSERT_EQ(0, tarvel.SetReceiverErrorCounting(consecutive));
        ASSERT_EQ(0, tarvel.StartReceiver());
        tarvel.ResetStatistics();
        CaptureStderr stderrText;
        for (int i = 0; i < 12; ++i) {
            sim().sendRaw(badEscape);
            sim().sendPacket({0, Tarvel::OK, {0, 0}}); // a sound frame between the faults
        }
        ASSERT_TRUE(eventually([&] {
            const TarvelStatistics s = tarvel.GetStatistics();
            return s.rejectedSlip >= (consecutive ? 12u : 11u) && (consecutive || s.receiverEnded == 1);
        }));
        const std::string text = stderrText.stop();
        EXPECT_EQ(!consecutive, text.find("the receiver ends") != std::string::npos) << text;
        EXPECT_EQ(consecutive, (tarvel.GetInternalThreadStatus() & 1) != 0);
        tarvel.StopReceiver();
    }
}

} // namespace
