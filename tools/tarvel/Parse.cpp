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

// Up to 3 hex digits: a standard identifier; more: an extended one, as cansend reads them.
struct Identifier {
    uint32_t id = 0;
    bool extended = false;
};

Identifier parseIdentifier(const std::string& digits) {
    Identifier out;
    bool hex = !digits.empty() && digits.size() <= 8;
    for (std::size_t i = 0; hex && i < digits.size(); ++i) {
        int d = hexDigit(digits[i]);
        hex = d >= 0;
        out.id = out.id * 16 + static_cast<uint32_t>(d);
    }
    if (!hex)
        throw UsageError("identifier: '" + digits +
                         "' is not a CAN identifier in hex (up to 3 digits: standard, up to 8: extended)");
    out.extended = digits.size() > 3;
    char eight[16];
    std::snprintf(eight, sizeof eight, "%08" PRIX32, out.id);
    if (!out.extended && out.id > 0x7FF)
        throw UsageError("identifier " + digits + ": a standard identifier is at most 7FF; write " + eight +
                         " for an extended one");
    if (out.extended && out.id > 0x1FFFFFFF)
        throw UsageError("identifier " + digits + ": an extended identifier is at most 1FFFFFFF");
    return out;
}

} // namespace

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
    Identifier id = parseIdentifier(idPart);
    frame.id = id.id;
    frame.extended = id.extended;
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
    Identifier id = parseIdentifier(text.substr(colon + 1));
    out.id = id.id;
    out.extended = id.extended;
    return out;
}

BitRange parseBitRange(const std::string& text, unsigned maxLength) {
    NumberRule bit = wholeNumber(0, kLastBit);
    bit.noun = "a bit number";
    BitRange range;
    auto colon = text.find_first_of(":-");
    if (colon == std::string::npos) {
        range.start = range.stop = static_cast<unsigned>(parseNumber(text, bit, "BITS"));
    } else {
        range.start = static_cast<unsigned>(parseNumber(text.substr(0, colon), bit, "BITS"));
        range.stop = static_cast<unsigned>(parseNumber(text.substr(colon + 1), bit, "BITS"));
    }
    if (range.stop < range.start) throw UsageError("BITS " + text + ": the start bit comes after the stop bit");
    unsigned length = range.stop - range.start + 1;
    if (length > maxLength)
        throw UsageError("BITS " + text + ": " + std::to_string(length) + " bits wide, longer than " +
                         std::to_string(maxLength) + " bits");
    return range;
}

} // namespace tool
