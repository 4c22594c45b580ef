// The receiver thread: start and stop, the sync buffer it fills, the async
// map, and the ways it ends by itself.

#include "CaptureStderr.h"
#include "PollingThreads.h"
#include "ScriptedAnswers.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"
#include "tarvelsim/Wire.h"

using namespace scripted;

namespace {

class Receiver : public SimSession {
protected:
    void SetUp() override {
        SimSession::SetUp();
        ASSERT_EQ(0, tarvel.StartReceiver());
    }

    // Every frame sent before this has been sorted once it returns.
    void barrier() { ASSERT_EQ(0, TarvelTestAccess::exchange(tarvel, Tarvel::PING, {})) << err.str(); }

    bool running() { return (tarvel.GetInternalThreadStatus() & 1) != 0; }
};

// Reading directly after a stop: StopIsPromptWhateverTheReadTimeout; a start
// after a stop: tests/reception (EndToEnd).
TEST_F(Receiver, StartsOnceStopsAndReportsItsState) {
    EXPECT_EQ(1, tarvel.StartReceiver());
    EXPECT_EQ(0x11, tarvel.GetInternalThreadStatus()) << "receiver running, sender serving";
    tarvel.StopReceiver();
    EXPECT_EQ(0x10, tarvel.GetInternalThreadStatus());

    EXPECT_EQ(0u, tarvel.ReadAsyncMessage(0x10123).key);
    EXPECT_EQ("Tarvel::ReadAsyncMessage: Receiving thread is not running!\n", err.str());
    err.str("");
    RecvMessage m;
    EXPECT_EQ(-1, tarvel.ReadSyncMessage(5, m, 50, true));
    EXPECT_EQ("", err.str());
    EXPECT_EQ(-1, tarvel.ReadSyncMessage(5, m, 50, false));
    EXPECT_EQ("Tarvel::ReadSyncMessage: Receiving thread is not running!\n", err.str());
}

TEST_F(Receiver, AnswersAreCollectedFromTheSyncBuffer) {
    sim().setResponder(answer(Tarvel::GET_TIME, Tarvel::DATA_RESPONSE_A, {1, 2, 3, 4, 5, 6, 7, 8}));
    ByteVector data;
    EXPECT_EQ(0, TarvelTestAccess::exchangeBytes(tarvel, Tarvel::GET_TIME, {}, data));
    EXPECT_EQ((ByteVector{1, 2, 3, 4, 5, 6, 7, 8}), data);
    sim().setResponder(answer(Tarvel::READ_EEPROM, Tarvel::DATA_RESPONSE_B, {0xAB}));
    EXPECT_EQ(0, TarvelTestAccess::exchangeBytes(tarvel, Tarvel::READ_EEPROM, {0, 30, 1}, data));
    EXPECT_EQ(ByteVector{0xAB}, data);

    // An error answer is printed by the receiver; the wait finds nothing.
    sim().setResponder(answer(Tarvel::PING, Tarvel::COMMAND_FAILED, {}));
    ASSERT_EQ(0, tarvel.SetAnswerWait(100));
    CaptureStderr capture;
    const int failed = TarvelTestAccess::exchange(tarvel, Tarvel::PING, {});
    const std::string printed = capture.stop();
    EXPECT_EQ(-15, failed);
    EXPECT_NE(std::string::npos, printed.find("TarvelAPI::Receive: COMMAND_FAILED 8!\n")) << printed;
    EXPECT_NE(std::string::npos, err.str().find("Message with message ID: 8 not found.\n")) << err.str();
}

TEST_F(Receiver, AWaitDiscardsTheAnswersAheadOfItsOwn) {
    sim().sendPacket({7, Tarvel::OK, {0x00, 0x07}});
    sim().sendPacket({8, Tarvel::OK, {0x00, 0x08}});
    sim().sendPacket({8, Tarvel::ASYNC_MESSAGE, {0x00, 0x08, 0x00}}); // a report is never an answer
    ASSERT_TRUE(eventually([&] { return TarvelTestAccess::syncBufferSize(tarvel) == 2; }));
    RecvMessage m;
    EXPECT_EQ(0, tarvel.ReadSyncMessage(8, m, 50, false));
    EXPECT_EQ((ByteVector{0x00, 0x08}), m.data);
    EXPECT_EQ(-2, tarvel.ReadSyncMessage(7, m, 5, true));
    EXPECT_EQ("", err.str());

    sim().sendPacket({8, Tarvel::OK, {0x00, 0x08}});
    ASSERT_TRUE(eventually([&] { return TarvelTestAccess::syncBufferSize(tarvel) == 1; }));
    EXPECT_EQ(-2, tarvel.ReadSyncMessage(8, m, 0, false)) << "no poll, no look";
    EXPECT_EQ("Message with message ID: 8 not found.\n", err.str());
    EXPECT_EQ(-2, tarvel.ReadSyncMessage(0x108, m, 5, true)) << "ids above 255 match nothing";
    EXPECT_EQ(0u, TarvelTestAccess::syncBufferSize(tarvel));
}

TEST_F(Receiver, TheAsyncMapKeepsTheLatestReportPerKey) {
    Bytes report{0x01, 0x23, 0x8A};
    for (uint8_t i = 0; i < 16; ++i)
        report.push_back(i);
    sim().sendPacket({2, Tarvel::ASYNC_MESSAGE, report});
    RecvAsyncMessage r;
    ASSERT_TRUE(eventually([&] { return (r = tarvel.ReadAsyncMessage(0x40123)).key != 0; }));
    EXPECT_EQ(0x20123u, r.key); // the other fields: ReportFieldsTest
    EXPECT_EQ(ByteVector(report.begin() + 3, report.end()), r.data);
    EXPECT_LE(static_cast<uint32_t>(Tarvel::GetTickMs()) - r.timestamp, 5000u);

    sim().sendPacket({2, Tarvel::ASYNC_MESSAGE, {0x01, 0x23, 0x52, 0xEE, 0xFF, 0x99}}); // longer than its DLC
    barrier();
    for (int i = 0; i < 2; ++i) { // reading does not consume
        r = tarvel.ReadAsyncMessage(0x40123);
        EXPECT_EQ(0x52, r.dlc | r.flag7 << 7 | r.flag6 << 6 | r.flag5 << 5 | r.flag4 << 4);
        EXPECT_EQ((ByteVector{0xEE, 0xFF}), r.data);
    }
    EXPECT_EQ(1u, TarvelTestAccess::asyncMapSize(tarvel));

    // Several channels: the lowest one holding a report answers.
    EXPECT_EQ(0x20123u, tarvel.ReadAsyncMessage(0x50123).key);
    sim().sendPacket({0, Tarvel::ASYNC_MESSAGE, {0x01, 0x23, 0x01, 0x55}});
    barrier();
    EXPECT_EQ(0x00123u, tarvel.ReadAsyncMessage(0x50123).key);
    EXPECT_EQ(0x20123u, tarvel.ReadAsyncMessage(0x0C0123).key);
    sim().sendPacket({3, Tarvel::ASYNC_MESSAGE, {0x01, 0x23, 0x01, 0x77}});
    barrier();
    EXPECT_EQ(0x30123u, tarvel.ReadAsyncMessage(0x080123).key);
    EXPECT_EQ(0u, tarvel.ReadAsyncMessage(0x0123).key) << "no channel selected";
    EXPECT_EQ(0u, tarvel.ReadAsyncMessage(0x20124).key);
}

TEST_F(Receiver, MalformedTrafficIsDroppedWithoutHarm) {
    CaptureStderr capture;
    sim().sendPacket({1, Tarvel::ASYNC_MESSAGE, {0x01, 0x23}});                   // no header
    sim().sendPacket({1, Tarvel::ASYNC_MESSAGE, {0x01, 0x24, 0x08, 1, 2, 3, 4}}); // 4 of 8 bytes
    sim().sendRaw(tarvelsim::slipEncode({0x00, 0x06, 0x00, 0x06}));               // 4 bytes: no response id
    Bytes badSum = tarvelsim::buildPacket(0, Tarvel::OK, {0x00, 0x05});
    badSum.back() ^= 0x40;
    sim().sendRaw(tarvelsim::slipEncode(badSum));
    sim().sendPacket({0, Tarvel::OK, {0x00, 0x00}}); // untraced, value 0: silent
    sim().sendPacket({3, 0x85, {0x01}});
    sim().sendPacket({0, Tarvel::DATA_RESPONSE_A, {0x02}}); // answers nothing
    barrier();
    const std::string printed = capture.stop();
    EXPECT_TRUE(running());
    EXPECT_EQ(0u, TarvelTestAccess::asyncMapSize(tarvel));
    EXPECT_EQ(0u, TarvelTestAccess::syncBufferSize(tarvel));
    EXPECT_NE(std::string::npos, printed.find("TarvelAPI::Receive: Unknown response ID: 0x85\n")) << printed;
    EXPECT_NE(std::string::npos, printed.find("TarvelAPI::Receive: Unknown response ID: 0x91\n")) << printed;
    EXPECT_EQ(std::string::npos, printed.find("untraced")) << printed;
    EXPECT_EQ("", err.str()) << "the receiver reports nothing through the error channel";
}

// It ends after the 21st invalid untraced answer, and when reads fail after a
// Disconnect (no fault of the line: nothing said, nothing counted); either
// way it can start again.
TEST_F(Receiver, EndsByItselfOnBadTrafficOrAClosedPort) {
    CaptureStderr capture;
    for (int i = 0; i < 20; ++i)
        sim().sendPacket({0, Tarvel::OK, {0x00, 0x05}});
    barrier();
    EXPECT_TRUE(running());
    sim().sendPacket({0, Tarvel::OK, {0x00, 0x05}});
    EXPECT_TRUE(eventually([&] { return !running(); }));
    const std::string printed = capture.stop();
    EXPECT_NE(std::string::npos,
              printed.find("Tarvel::Receiver: Invalid return value of some untraced commands. 0x0005\n"))
        << printed;
    EXPECT_EQ(0x10, tarvel.GetInternalThreadStatus());
    EXPECT_EQ(0, tarvel.StartReceiver()) << "the ended thread is reaped and a new one starts";

    sim().sendPacket({0, Tarvel::ASYNC_MESSAGE, {0x01, 0x23, 0x01, 0x55}});
    ASSERT_TRUE(eventually([&] { return TarvelTestAccess::asyncMapSize(tarvel) == 1; }));
    tarvel.ResetStatistics();
    CaptureStderr quiet;
    EXPECT_EQ(0, tarvel.Disconnect());
    EXPECT_FALSE(running());
    EXPECT_EQ("", quiet.stop());
    EXPECT_EQ(0u, tarvel.GetStatistics().receiverEnded);
    EXPECT_EQ(0u, TarvelTestAccess::asyncMapSize(tarvel)) << "Disconnect empties the map";
    ASSERT_EQ(0, tarvel.Connect(sim().portPath(), 1000, 1000)) << err.str();
    EXPECT_EQ(0, tarvel.StartReceiver());
    barrier();
}

TEST_F(Receiver, StopIsPromptWhateverTheReadTimeout) {
    ASSERT_EQ(0, tarvel.SetTimeout(0xFFFFFFFFu, 1000));
    barrier();
    ASSERT_TRUE(eventually(aThreadWaitsInPollWithoutTimeLimit)) << "the receiver's read has begun";
    within(
        std::chrono::seconds(5), [&] { tarvel.StopReceiver(); },
        [&] {
            sim().sendPacket({0, Tarvel::OK, {}});
        });
    EXPECT_FALSE(running());
    EXPECT_EQ(0, TarvelTestAccess::exchange(tarvel, Tarvel::PING, {})) << "no stale wake-up hits the next read";
}

TEST_F(Receiver, AStopThatOvertakesTheStartEndsTheThread) {
    tarvel.StopReceiver();
    within(
        std::chrono::seconds(5), [&] { TarvelTestAccess::runOvertakenReceiverLoop(tarvel); },
        [&] { tarvel.StopReceiver(); });
    EXPECT_FALSE(TarvelTestAccess::receiverRunning(tarvel));
}

} // namespace
