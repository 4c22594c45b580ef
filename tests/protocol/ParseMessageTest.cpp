// Validation of device packets: results, reports on ERR, trace lines on COM.
#include "Tarvel.h"

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

// "0x01 0x0A " for {0x01, 0x0A}.
std::string hex(const ByteVector& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char b : bytes) {
        out += {'0', 'x', digits[b >> 4], digits[b & 15], ' '};
    }
    return out;
}

const RecvMessage kUntouched{0x77, 0x66, {0x55}};

class Validation : public ::testing::Test {
protected:
    void SetUp() override {
        tarvel.ClearPrintStream();
        ASSERT_EQ(tarvel.SetPrintStream(recordErr, ERR), 0);
        ASSERT_EQ(tarvel.SetPrintStream(com, COM), 0);
    }
    void clearOutput() {
        g_err.clear();
        com.str("");
    }
    // The trace without its clock values, one entry per line.
    std::string trace() const { return std::regex_replace(com.str(), std::regex("(^|\n)[0-9]+:"), "$1:"); }

    Tarvel tarvel;
    std::ostringstream com;
};

} // namespace

TEST_F(Validation, ParseMessageResultsReportsAndTrace) {
    const ByteVector badSum = {0x03, 0x09, 0x80, 0x13, 0x34, 0x00, 0xD2};
    const std::string bad = "Tarvel::GetResponse: BAD Message's ";
    const struct {
        ByteVector packet;
        int quiet, result;
        std::string report;
        RecvMessage out = kUntouched; // faults leave the caller's structure as it was
    } cases[] = {
        {{0x03, 0x07, 0x80, 0x00, 0x2A, 0x00, 0xB4}, 0, 0, "", {0x07, Tarvel::OK, {0x00, 0x2A}}},
        // Length byte 1: no data, and old data is replaced.
        {{0x01, 0x00, 0x90, 0x00, 0x91}, 0, 0, "", {0x00, Tarvel::ASYNC_MESSAGE, {}}},
        {{}, 0, -4, ""}, // nothing came: neither a report nor a trace line
        {{0x01, 0x0A, 0xFF}, 0, -1, bad + "length 0x01 0x0A 0xFF !\n"},
        // Length byte one too large, or one too small; checksum right for the bytes present.
        {{0x03, 0x05, 0x80, 0x01, 0x00, 0x89}, 0, -1, bad + "length 0x03 0x05 0x80 0x01 0x00 0x89 !\n"},
        {{0x01, 0x05, 0x80, 0x01, 0x00, 0x87}, 0, -1, bad + "length 0x01 0x05 0x80 0x01 0x00 0x87 !\n"},
        // Four bytes (length byte 0) with a right checksum hold no response id;
        // with a wrong checksum the same four bytes are a checksum fault.
        {{0x00, 0x80, 0x00, 0x80}, 0, -1, bad + "length 0x00 0x80 0x00 0x80 !\n"},
        {{0x00, 0x80, 0x00, 0x81}, 0, -2, bad + "Checksum 0x00 0x80 0x00 0x81 !\n"},
        {badSum, 0, -2, bad + "Checksum 0x03 0x09 0x80 0x13 0x34 0x00 0xD2 !\n"},
        // Any non-zero quiet level suppresses the report but not the trace line.
        {badSum, -1, -2, ""},
        {{0x01}, 1, -1, ""},
    };
    for (const auto& c : cases) {
        clearOutput();
        RecvMessage out = kUntouched;
        EXPECT_EQ(tarvel.ParseMessage(c.packet, out, c.quiet), c.result) << hex(c.packet) << "quiet " << c.quiet;
        EXPECT_EQ(g_err, c.report);
        const char* marker = c.result == 0 ? ":<< " : ":<< ERROR! ";
        EXPECT_EQ(trace(), c.packet.empty() ? "" : marker + hex(c.packet) + kSeparator);
        EXPECT_EQ(out.messageId, c.out.messageId);
        EXPECT_EQ(out.responseId, c.out.responseId);
        EXPECT_EQ(out.data, c.out.data);
    }
}

TEST_F(Validation, CheckMessageResultsAndReports) {
    const ByteVector wrongLength = {0x05, 0x01, 0x80, 0x00, 0x00, 0x86};
    const struct {
        ByteVector packet;
        bool quiet;
        int result;
        std::string report;
    } cases[] = {
        {{0x01, 0x02}, false, -1, "Tarvel::CheckMessage: Invalid message length. Length: 2\n"},
        {{0x01, 0x02}, true, -1, ""},
        // Six bytes give an expected length of 2; the byte says 5.
        {wrongLength, false, -1, "Tarvel::CheckMessage: Invalid message length. Length: 2, Assumed: 5\n"},
        {wrongLength, true, -1, ""},
        {{0x01, 0x05, 0x80, 0x01, 0x00, 0x87},
         false,
         -1,
         "Tarvel::CheckMessage: Invalid message length. Length: 2, Assumed: 1\n"},
        // Checksum faults are never reported here.
        {{0x03, 0x05, 0x80, 0xFF, 0xFF, 0x02, 0x86}, false, 0, ""},
        {{0x03, 0x05, 0x80, 0xFF, 0xFF, 0x02, 0x06}, false, -2, ""},
        // Unlike ParseMessage, a right 4-byte packet passes this check.
        {{0x00, 0x80, 0x00, 0x80}, false, 0, ""},
    };
    for (const auto& c : cases) {
        g_err.clear();
        EXPECT_EQ(tarvel.CheckMessage(c.packet, c.quiet), c.result) << hex(c.packet) << "quiet " << c.quiet;
        EXPECT_EQ(g_err, c.report);
    }
    // CheckMessage writes no trace.
    EXPECT_EQ(com.str(), "");
}
