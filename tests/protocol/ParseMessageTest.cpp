// Validation of device packets: results, reports on ERR, trace lines on COM.
#include "Tarvel.h"
#include "protocol/Packet.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>

namespace {

std::string g_err;
void recordErr(const char* text) {
    g_err += text;
}

const std::string kSeparator = "\n" + std::string(80, '-') + "\n";

class Validation : public ::testing::Test {
protected:
    void SetUp() override {
        tarvel.ClearPrintStream();
        g_err.clear();
        ASSERT_EQ(tarvel.SetPrintStream(recordErr, ERR), 0);
        ASSERT_EQ(tarvel.SetPrintStream(com, COM), 0);
    }

    // A device packet with a right length byte and checksum.
    static ByteVector devicePacket(uint8_t id, uint8_t response, const ByteVector& data) {
        return tarvel::buildPacket(id, response, data);
    }

    // The trace without its clock values, one entry per line.
    std::string trace() const { return std::regex_replace(com.str(), std::regex("(^|\n)[0-9]+:"), "$1:"); }

    Tarvel tarvel;
    std::ostringstream com;
};

RecvMessage untouched() {
    RecvMessage m;
    m.messageId = 0x77;
    m.responseId = 0x66;
    m.data = {0x55};
    return m;
}

void expectUntouched(const RecvMessage& m) {
    EXPECT_EQ(m.messageId, 0x77);
    EXPECT_EQ(m.responseId, 0x66);
    EXPECT_EQ(m.data, ByteVector{0x55});
}

} // namespace

TEST_F(Validation, ParseSoundPackets) {
    RecvMessage out = untouched();
    ByteVector packet = devicePacket(0x07, Tarvel::OK, {0x00, 0x2A});
    ASSERT_EQ(tarvel.ParseMessage(packet, out, 0), 0);
    EXPECT_EQ(out.messageId, 0x07);
    EXPECT_EQ(out.responseId, Tarvel::OK);
    EXPECT_EQ(out.data, (ByteVector{0x00, 0x2A}));
    EXPECT_EQ(trace(), ":<< 0x03 0x07 0x80 0x00 0x2A 0x00 0xB4 " + kSeparator);

    // Length byte 1: no data, and old data is replaced.
    com.str("");
    ASSERT_EQ(tarvel.ParseMessage(devicePacket(0x00, Tarvel::ASYNC_MESSAGE, {}), out, 0), 0);
    EXPECT_EQ(out.messageId, 0x00);
    EXPECT_EQ(out.responseId, Tarvel::ASYNC_MESSAGE);
    EXPECT_TRUE(out.data.empty());
    EXPECT_EQ(trace(), ":<< 0x01 0x00 0x90 0x00 0x91 " + kSeparator);
    EXPECT_EQ(g_err, "");
}

TEST_F(Validation, ParseEmptyPacketIsSilent) {
    RecvMessage out = untouched();
    EXPECT_EQ(tarvel.ParseMessage({}, out, 0), -4);
    expectUntouched(out);
    EXPECT_EQ(com.str(), "");
    EXPECT_EQ(g_err, "");
}

TEST_F(Validation, ParseLengthFaults) {
    RecvMessage out = untouched();
    EXPECT_EQ(tarvel.ParseMessage({0x01, 0x0A, 0xFF}, out, 0), -1);
    EXPECT_EQ(g_err, "Tarvel::GetResponse: BAD Message's length 0x01 0x0A 0xFF !\n");
    EXPECT_EQ(trace(), ":<< ERROR! 0x01 0x0A 0xFF " + kSeparator);

    // Length byte one too large, checksum right for the bytes present.
    g_err.clear();
    com.str("");
    ByteVector packet = devicePacket(0x05, Tarvel::OK, {0x01});
    packet[0] = 0x03;
    const uint16_t sum = tarvel::sum16(packet.data(), packet.size() - 2);
    packet[4] = static_cast<unsigned char>(sum >> 8);
    packet[5] = static_cast<unsigned char>(sum);
    EXPECT_EQ(tarvel.ParseMessage(packet, out, 0), -1);
    EXPECT_EQ(g_err, "Tarvel::GetResponse: BAD Message's length 0x03 0x05 0x80 0x01 0x00 0x89 !\n");

    // Four bytes (length byte 0) with a right checksum hold no response id.
    g_err.clear();
    com.str("");
    EXPECT_EQ(tarvel.ParseMessage({0x00, 0x80, 0x00, 0x80}, out, 0), -1);
    EXPECT_EQ(g_err, "Tarvel::GetResponse: BAD Message's length 0x00 0x80 0x00 0x80 !\n");
    EXPECT_EQ(trace(), ":<< ERROR! 0x00 0x80 0x00 0x80 " + kSeparator);

    // With a wrong checksum the same four bytes are a checksum fault.
    g_err.clear();
    EXPECT_EQ(tarvel.ParseMessage({0x00, 0x80, 0x00, 0x81}, out, 0), -2);
    EXPECT_EQ(g_err, "Tarvel::GetResponse: BAD Message's Checksum 0x00 0x80 0x00 0x81 !\n");
    expectUntouched(out);
}

TEST_F(Validation, ParseChecksumFaultReportsOnlyWhenNotQuiet) {
    RecvMessage out = untouched();
    ByteVector packet = devicePacket(0x09, Tarvel::OK, {0x12, 0x34});
    packet[3] ^= 0x01;
    EXPECT_EQ(tarvel.ParseMessage(packet, out, 0), -2);
    EXPECT_EQ(g_err, "Tarvel::GetResponse: BAD Message's Checksum 0x03 0x09 0x80 0x13 0x34 0x00 0xD2 !\n");
    EXPECT_EQ(trace(), ":<< ERROR! 0x03 0x09 0x80 0x13 0x34 0x00 0xD2 " + kSeparator);

    // Any non-zero quiet level suppresses the report but not the trace line.
    for (int quiet : {2, 1, -1}) {
        g_err.clear();
        com.str("");
        EXPECT_EQ(tarvel.ParseMessage(packet, out, quiet), -2);
        EXPECT_EQ(tarvel.ParseMessage({0x01}, out, quiet), -1);
        EXPECT_EQ(g_err, "") << quiet;
        EXPECT_EQ(trace(),
                  ":<< ERROR! 0x03 0x09 0x80 0x13 0x34 0x00 0xD2 " + kSeparator + ":<< ERROR! 0x01 " + kSeparator);
    }
    expectUntouched(out);
}

TEST_F(Validation, CheckMessageResultsAndReports) {
    EXPECT_EQ(tarvel.CheckMessage({0x01, 0x02}, false), -1);
    EXPECT_EQ(g_err, "Tarvel::CheckMessage: Invalid message length. Length: 2\n");
    g_err.clear();
    EXPECT_EQ(tarvel.CheckMessage({}, false), -1);
    EXPECT_EQ(g_err, "Tarvel::CheckMessage: Invalid message length. Length: 0\n");
    g_err.clear();
    EXPECT_EQ(tarvel.CheckMessage({0x01, 0x02}, true), -1);
    EXPECT_EQ(g_err, "");

    // Six bytes give an expected length of 2; the byte says 5.
    EXPECT_EQ(tarvel.CheckMessage({0x05, 0x01, 0x80, 0x00, 0x00, 0x86}, false), -1);
    EXPECT_EQ(g_err, "Tarvel::CheckMessage: Invalid message length. Length: 2, Assumed: 5\n");
    g_err.clear();
    EXPECT_EQ(tarvel.CheckMessage({0x05, 0x01, 0x80, 0x00, 0x00, 0x86}, true), -1);
    EXPECT_EQ(g_err, "");

    // Checksum faults are never reported here.
    ByteVector packet = devicePacket(0x05, Tarvel::OK, {0xFF, 0xFF});
    EXPECT_EQ(tarvel.CheckMessage(packet, false), 0);
    packet.back() ^= 0x80;
    EXPECT_EQ(tarvel.CheckMessage(packet, false), -2);
    EXPECT_EQ(g_err, "");
    // Unlike ParseMessage, a right 4-byte packet passes this check.
    EXPECT_EQ(tarvel.CheckMessage({0x00, 0x80, 0x00, 0x80}, false), 0);
    // CheckMessage writes no trace.
    EXPECT_EQ(com.str(), "");
}
