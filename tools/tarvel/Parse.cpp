// Argument parsing: numbers, hex data, channels, identifiers, frames and bit ranges.
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "Tool.h"

namespace tool {
namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

uint64_t parseHex(const std::string& digits, uint64_t max, const std::string& what, const std::string& whole) {
    if (digits.empty() || digits.size() > 16) throw UsageError(what + ": not a hexadecimal number: '" + whole + "'");
    uint64_t value = 0;
    for (char c : digits) {
        int d = hexDigit(c);
        if (d < 0) throw UsageError(what + ": not a hexadecimal number: '" + whole + "'");
        value = value * 16 + static_cast<unsigned>(d);
    }
    if (value > max)
        throw UsageError(what + ": " + whole + " is out of range (at most 0x" + [max] {
            char b[32];
            std::snprintf(b, sizeof b, "%" PRIX64, max);
            return std::string(b);
        }() + ")");
    return value;
}

} // namespace

uint64_t parseNumber(const std::string& text, uint64_t max, const std::string& what) {
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        return parseHex(text.substr(2), max, what, text);
    if (text.empty() || text.size() > 19) throw UsageError(what + ": not a number: '" + text + "'");
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') throw UsageError(what + ": not a number: '" + text + "'");
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    if (value > max) throw UsageError(what + ": " + text + " is out of range (at most " + std::to_string(max) + ")");
    return value;
}

std::vector<unsigned char> parseHexBytes(const std::string& text, const std::string& what) {
    std::vector<unsigned char> bytes;
    std::string digits;
    auto flush = [&] {
        if (digits.size() % 2 != 0)
            throw UsageError(what + ": odd number of hex digits in '" + text + "' (write bytes as two digits)");
        for (std::size_t i = 0; i < digits.size(); i += 2)
            bytes.push_back(static_cast<unsigned char>(hexDigit(digits[i]) * 16 + hexDigit(digits[i + 1])));
        digits.clear();
    };
    std::string body = text;
    if (body.size() >= 2 && body[0] == '0' && (body[1] == 'x' || body[1] == 'X')) body = body.substr(2);
    for (char c : body) {
        if (c == ' ' || c == ':' || c == '.' || c == ',' || c == '-') {
            flush();
        } else if (hexDigit(c) >= 0) {
            digits.push_back(c);
        } else {
            throw UsageError(what + ": not hex data: '" + text + "'");
        }
    }
    flush();
    return bytes;
}

unsigned parseChannel(const std::string& text) {
    std::string digits = text;
    if (digits.size() > 3 && digits.compare(0, 3, "can") == 0) digits = digits.substr(3);
    if (digits.size() != 1 || digits[0] < '0' || digits[0] > '3')
        throw UsageError("channel: expected 0..3 or can0..can3, got '" + text + "'");
    return static_cast<unsigned>(digits[0] - '0');
}

int dlcForLength(std::size_t length) {
    for (int dlc = 0; dlc < 16; ++dlc)
        if (Tarvel::kDlcToLength[dlc] == length) return dlc;
    return -1;
}

CanFrameText parseFrame(const std::string& text) {
    auto hash = text.find('#');
    if (hash == std::string::npos) throw UsageError("frame: expected ID#DATA (e.g. 123#DEADBEEF), got '" + text + "'");
    std::string idPart = text.substr(0, hash);
    std::string dataPart = text.substr(hash + 1);
    if (!dataPart.empty() && dataPart[0] == '#')
        throw UsageError("frame: the flags form ID##FLAGS of CAN FD is not supported; write ID#DATA");
    CanFrameText frame;
    frame.id = static_cast<uint32_t>(parseHex(idPart, 0x1FFFFFFF, "identifier", idPart));
    frame.extended = idPart.size() > 3 || frame.id > 0x7FF;
    frame.data = parseHexBytes(dataPart, "frame data");
    int dlc = dlcForLength(frame.data.size());
    if (dlc < 0)
        throw UsageError("frame data: " + std::to_string(frame.data.size()) +
                         " bytes is no CAN FD length (0..8, 12, 16, 20, 24, 32, 48, 64)");
    frame.dlc = static_cast<unsigned char>(dlc);
    return frame;
}

ChannelId parseChannelId(const std::string& text) {
    auto colon = text.find(':');
    if (colon == std::string::npos) throw UsageError("expected CHANNEL:ID (e.g. 0:123), got '" + text + "'");
    ChannelId out;
    out.channel = parseChannel(text.substr(0, colon));
    std::string idPart = text.substr(colon + 1);
    out.id = static_cast<uint32_t>(parseHex(idPart, 0x1FFFFFFF, "identifier", idPart));
    out.extended = idPart.size() > 3 || out.id > 0x7FF;
    return out;
}

BitRange parseBitRange(const std::string& text, unsigned maxLength) {
    BitRange range;
    auto colon = text.find_first_of(":-");
    if (colon == std::string::npos) {
        range.start = range.stop = static_cast<unsigned>(parseNumber(text, 0xFFFF, "bit"));
    } else {
        range.start = static_cast<unsigned>(parseNumber(text.substr(0, colon), 0xFFFF, "start bit"));
        range.stop = static_cast<unsigned>(parseNumber(text.substr(colon + 1), 0xFFFF, "stop bit"));
    }
    if (range.stop < range.start) throw UsageError("bits " + text + ": the start bit comes after the stop bit");
    if (range.stop - range.start + 1 > maxLength)
        throw UsageError("bits " + text + ": longer than " + std::to_string(maxLength) + " bits");
    return range;
}

} // namespace tool
