// Waiting for answers without the receiver: the session reads the line itself.
#include <optional>

#include "CaptureStderr.h"
#include "ScriptedAnswers.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"
#include "tarvelsim/Wire.h"

using namespace scripted;

namespace {

class DirectReading : public SimSession {
protected:
    void SetUp() override {
        SimSession::SetUp();
        // Silence ends a wait quickly.
        ASSERT_EQ(0, tarvel.SetTimeout(200, 1000));
    }

    int ping(bool quiet) {
        EXPECT_EQ(0, tarvel.SendCommand(Tarvel::PING, {}, true));
        return tarvel.GetResponse(quiet);
    }

    int pingBytes(ByteVector& data, bool quiet) {
        EXPECT_EQ(0, tarvel.SendCommand(Tarvel::PING, {}, true));
        return tarvel.GetBytesResponse(data, quiet);
    }
};

TEST_F(DirectReading, SkipsBadPacketsOtherIdsAndReportsUntilItsAnswer) {
    Bytes badSum = tarvelsim::buildPacket(6, Tarvel::OK, {0x00, 0x01});
    badSum.back() ^= 0x01;
    Bytes badLength = tarvelsim::buildPacket(6, Tarvel::OK, {0x00, 0x01});
    badLength[0] = 0x05;
    sim().sendRaw(tarvelsim::slipEncode(badSum));
    sim().sendRaw(tarvelsim::slipEncode(badLength));
    sim().sendRaw(tarvelsim::slipEncode({0x00, 0x06, 0x00, 0x06})); // 4 bytes: no response id
    sim().sendPacket({0x33, Tarvel::OK, {0x00, 0x01}});
    sim().sendPacket({6, Tarvel::ASYNC_MESSAGE, {0x01, 0x23, 0x01, 0xAA}}); // counts as id 0
    sim().setResponder(answer(Tarvel::PING, 0x2A));

    EXPECT_EQ(0x2A, ping(false));
    EXPECT_NE(std::string::npos, err.str().find("Tarvel::GetResponse: BAD Message's Checksum 0x03 0x06 0x80"));
    EXPECT_NE(std::string::npos, err.str().find("Tarvel::GetResponse: BAD Message's length 0x05 0x06 0x80"));
    EXPECT_EQ(0x2A, ping(false)) << "nothing of the skipped traffic is left over";
}

TEST_F(DirectReading, AHardwareErrorSeenOnTheWaySetsBit16) {
    sim().setResponder(on(Tarvel::PING, [](const HostPacket& p) {
        return std::vector<DevicePacket>{{0, Tarvel::TARVEL_HW_ERROR, {}}, ok(p, 0x2A)};
    }));
    EXPECT_EQ(0x1002A, ping(true));
    EXPECT_EQ("", err.str());
    EXPECT_EQ(0x1002A, ping(false));
    EXPECT_EQ("TarvelAPI::GetResponse: TARVEL_HW_ERROR!\n", err.str());

    ByteVector data;
    EXPECT_EQ(0x1002A, pingBytes(data, true));
    EXPECT_EQ((ByteVector{0x00, 0x2A}), data);
}

TEST_F(DirectReading, MissingAndErrorAnswersAreMinus4) {
    const struct {
        std::optional<uint8_t> responseId; // none: no answer at all
        bool quiet;
        const char* report;
    } cases[] = {
        {std::nullopt, true, ""},
        {std::nullopt, false, "Tarvel::GetResponse: No valid answer for specified message.\n"},
        // Error answers are reported even when quiet; data answers only fit GetBytesResponse.
        {Tarvel::DATA_RESPONSE_A, true, "TarvelAPI::GetResponse: Unknown response ID: 0x91!\n"},
        {Tarvel::PACKET_ERROR, true, "TarvelAPI::GetResponse: PACKET_ERROR!\n"},
        {Tarvel::SLIP_PROTO_ERROR, true, "TarvelAPI::GetResponse: SLIP_PROTO_ERROR!\n"},
        {0x85, true, "TarvelAPI::GetResponse: Unknown response ID: 0x85!\n"},
        {Tarvel::COMMAND_FAILED, true, "TarvelAPI::GetResponse: COMMAND_FAILED!\n"},
    };
    for (const auto& c : cases) {
        sim().setResponder(c.responseId ? answer(Tarvel::PING, *c.responseId, {}) : ignore(Tarvel::PING));
        for (bool bytes : {false, c.responseId != Tarvel::DATA_RESPONSE_A}) {
            err.str("");
            ByteVector data{1, 2};
            EXPECT_EQ(-4, bytes ? pingBytes(data, c.quiet) : ping(c.quiet)) << c.report;
            EXPECT_EQ(c.report, err.str());
            EXPECT_EQ((ByteVector{1, 2}), data);
        }
    }
    // What an exchange makes of an error answer; of none: DeviceControl's
    // UnansweredCommandsGiveMinus14.
    ByteVector data;
    EXPECT_EQ(-14, TarvelTestAccess::exchangeBytes(tarvel, Tarvel::PING, {}, data));
}

TEST_F(DirectReading, AnswerDataPaths) {
    sim().setResponder(answer(Tarvel::PING, Tarvel::OK, {0x01, 0x02, 0x03}));
    CaptureStderr capture;
    EXPECT_EQ(0, ping(false)) << "more than two bytes count as zero";
    EXPECT_EQ("Unable convert 24 bit number to uint16.\n", capture.stop());

    sim().setResponder(answer(Tarvel::PING, Tarvel::DATA_RESPONSE_A, {0xDE, 0xAD, 0xC0, 0xDB}));
    ByteVector data{9, 9, 9, 9, 9, 9};
    EXPECT_EQ(0, pingBytes(data, false));
    EXPECT_EQ((ByteVector{0xDE, 0xAD, 0xC0, 0xDB}), data);

    sim().setResponder(answer(Tarvel::PING, Tarvel::DATA_RESPONSE_B, {}));
    EXPECT_EQ(0, pingBytes(data, false));
    EXPECT_TRUE(data.empty());

    sim().setResponder(answer(Tarvel::PING, Tarvel::OK, {0x07}));
    EXPECT_EQ(7, pingBytes(data, true));
    EXPECT_EQ(ByteVector{0x07}, data);
    EXPECT_EQ("TarvelAPI::GetResponse: Wrong OK packet length: 1!\n", err.str());
}

TEST_F(DirectReading, RebootMapsARefusalTo21) {
    sim().setResponder(answer(Tarvel::REBOOT, 0xFFFF));
    EXPECT_EQ(-21, TarvelTestAccess::reboot(tarvel, 3));
    sim().setResponder(answer(Tarvel::REBOOT, 2));
    EXPECT_EQ(2, TarvelTestAccess::reboot(tarvel, 3));
}

} // namespace
