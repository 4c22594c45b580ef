// Waiting for answers without the receiver: the session reads the line itself.
#include <gtest/gtest.h>

#include "SessionTestUtil.h"
#include "SimSession.h"
#include "TarvelTestAccess.h"

using namespace sessiontest;

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
    Bytes badSum = packet(6, Tarvel::OK, {0x00, 0x01});
    badSum.back() ^= 0x01;
    Bytes badLength = packet(6, Tarvel::OK, {0x00, 0x01});
    badLength[0] = 0x05;
    sim().sendRaw(frame(badSum));
    sim().sendRaw(frame(badLength));
    sim().sendRaw(frame({0x00, 0x06, 0x00, 0x06})); // 4 bytes: no response id
    sim().sendPacket({0x33, Tarvel::OK, {0x00, 0x01}});
    sim().sendPacket({6, Tarvel::ASYNC_MESSAGE, {0x01, 0x23, 0x01, 0xAA}}); // counts as id 0
    sim().setResponder(reply(Tarvel::PING, Tarvel::OK, {0x00, 0x2A}));

    EXPECT_EQ(0x2A, ping(false));
    EXPECT_NE(std::string::npos, err.str().find("Tarvel::GetResponse: BAD Message's Checksum 0x03 0x06 0x80"));
    EXPECT_NE(std::string::npos, err.str().find("Tarvel::GetResponse: BAD Message's length 0x05 0x06 0x80"));
    EXPECT_EQ(0x2A, ping(false)) << "nothing of the skipped traffic is left over";
}

TEST_F(DirectReading, AHardwareErrorSeenOnTheWaySetsBit16) {
    sim().setResponder(on(Tarvel::PING, [](const HostPacket& p) {
        return std::vector<DevicePacket>{{0, Tarvel::TARVEL_HW_ERROR, {}}, {p.messageId, Tarvel::OK, {0x00, 0x2A}}};
    }));
    EXPECT_EQ(0x1002A, ping(true));
    EXPECT_EQ("", err.str());
    EXPECT_EQ(0x1002A, ping(false));
    EXPECT_EQ("TarvelAPI::GetResponse: TARVEL_HW_ERROR!\n", err.str());

    ByteVector data;
    EXPECT_EQ(0x1002A, pingBytes(data, true));
    EXPECT_EQ((ByteVector{0x00, 0x2A}), data);
}

TEST_F(DirectReading, NoAnswerIsMinus4AndReportedOnlyWhenNotQuiet) {
    sim().setResponder([](const HostPacket&) { return std::optional<std::vector<DevicePacket>>(std::vector<DevicePacket>{}); });
    EXPECT_EQ(-4, ping(true));
    EXPECT_EQ("", err.str());
    EXPECT_EQ(-4, ping(false));
    EXPECT_EQ("Tarvel::GetResponse: No valid answer for specified message.\n", err.str());
    ByteVector data{1, 2};
    EXPECT_EQ(-4, pingBytes(data, true));
    EXPECT_EQ((ByteVector{1, 2}), data);
    EXPECT_EQ(-14, TarvelTestAccess::exchange(tarvel, Tarvel::PING, {}));
    EXPECT_EQ(-14, TarvelTestAccess::reboot(tarvel, 3));
}

TEST_F(DirectReading, ErrorAnswersAreMinus4AndReportedEvenWhenQuiet) {
    const std::pair<uint8_t, const char*> cases[] = {
        {Tarvel::COMMAND_FAILED, "TarvelAPI::GetResponse: COMMAND_FAILED!\n"},
        {Tarvel::PACKET_ERROR, "TarvelAPI::GetResponse: PACKET_ERROR!\n"},
        {Tarvel::SLIP_PROTO_ERROR, "TarvelAPI::GetResponse: SLIP_PROTO_ERROR!\n"},
        {0x85, "TarvelAPI::GetResponse: Unknown response ID: 0x85!\n"},
        {Tarvel::DATA_RESPONSE_A, "TarvelAPI::GetResponse: Unknown response ID: 0x91!\n"},
    };
    for (const auto& c : cases) {
        err.str("");
        sim().setResponder(reply(Tarvel::PING, c.first, {}));
        EXPECT_EQ(-4, ping(true)) << c.second;
        EXPECT_EQ(c.second, err.str());
    }
    sim().setResponder(reply(Tarvel::PING, Tarvel::COMMAND_FAILED, {}));
    ByteVector data;
    err.str("");
    EXPECT_EQ(-4, pingBytes(data, true));
    EXPECT_EQ("TarvelAPI::GetResponse: COMMAND_FAILED!\n", err.str());
    EXPECT_EQ(-14, TarvelTestAccess::exchangeBytes(tarvel, Tarvel::PING, {}, data));
}

TEST_F(DirectReading, AnswersOfMoreThanTwoBytesCountAsZero) {
    sim().setResponder(reply(Tarvel::PING, Tarvel::OK, {0x01, 0x02, 0x03}));
    ::testing::internal::CaptureStderr();
    const int value = ping(false);
    const std::string printed = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(0, value);
    EXPECT_NE(std::string::npos, printed.find("Unable convert 24 bit number to uint16.\n")) << printed;
}

TEST_F(DirectReading, BytesAnswersHandOverTheirData) {
    sim().setResponder(reply(Tarvel::PING, Tarvel::DATA_RESPONSE_A, {0xDE, 0xAD, 0xC0, 0xDB}));
    ByteVector data{9, 9, 9, 9, 9, 9};
    EXPECT_EQ(0, pingBytes(data, false));
    EXPECT_EQ((ByteVector{0xDE, 0xAD, 0xC0, 0xDB}), data);

    sim().setResponder(reply(Tarvel::PING, Tarvel::DATA_RESPONSE_B, {}));
    EXPECT_EQ(0, pingBytes(data, false));
    EXPECT_TRUE(data.empty());

    sim().setResponder(reply(Tarvel::PING, Tarvel::OK, {0x07}));
    EXPECT_EQ(7, pingBytes(data, true));
    EXPECT_EQ(ByteVector{0x07}, data);
    EXPECT_EQ("TarvelAPI::GetResponse: Wrong OK packet length: 1!\n", err.str());

    sim().setResponder(reply(Tarvel::GET_TIME, Tarvel::DATA_RESPONSE_A, {1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(0, TarvelTestAccess::exchangeBytes(tarvel, Tarvel::GET_TIME, {}, data));
    EXPECT_EQ(8u, data.size()) << "the answer of a bytes exchange";
}

TEST_F(DirectReading, RebootMapsARefusalTo21) {
    sim().setResponder(reply(Tarvel::REBOOT, Tarvel::OK, {0xFF, 0xFF}));
    EXPECT_EQ(-21, TarvelTestAccess::reboot(tarvel, 3));
    sim().setResponder(reply(Tarvel::REBOOT, Tarvel::OK, {0x00, 0x02}));
    EXPECT_EQ(2, TarvelTestAccess::reboot(tarvel, 3));
    const auto log = sent(2);
    EXPECT_EQ((Bytes{0x02, 0x06, 0x20, 0x03, 0x00, 0x2B}), log.at(0).raw);
}

} // namespace
