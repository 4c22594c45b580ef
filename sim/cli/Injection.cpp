// The text of an --inject option taken apart.
#include "SimulatorCli.h"

namespace tarvelsim::cli {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A hexadecimal number of 1 to maxDigits digits.
bool parseHex(const std::string& text, std::size_t maxDigits, uint32_t& value) {
    if (text.empty() || text.size() > maxDigits) return false;
    value = 0;
    for (char c : text) {
        const int d = hexDigit(c);
        if (d < 0) return false;
        value = value * 16 + static_cast<uint32_t>(d);
    }
    return true;
}

bool parseDecimal(const std::string& text, unsigned long max, unsigned long& value) {
    if (text.empty() || text.size() > 9) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<unsigned long>(c - '0');
    }
    return value <= max;
}

} // namespace

std::string parseInjection(const std::string& text, Injection& out) {
    const std::size_t colon = text.find(':');
    const std::size_t hash = text.find('#');
    const std::size_t at = text.rfind('@');
    if (colon == std::string::npos || hash == std::string::npos || at == std::string::npos || colon > hash || hash > at)
        return "expected CHANNEL:ID#HEXDATA[/FLAGS]@MS";
    unsigned long channel = 0, period = 0;
    if (!parseDecimal(text.substr(0, colon), 3, channel)) return "channel must be 0 to 3";
    const std::string idText = text.substr(colon + 1, hash - colon - 1);
    uint32_t id = 0;
    if (!parseHex(idText, 8, id) || id > 0x1FFFFFFFu) return "identifier must be hexadecimal, at most 1FFFFFFF";
    std::string data = text.substr(hash + 1, at - hash - 1);
    uint32_t flags = 0;
    const std::size_t slash = data.find('/');
    if (slash != std::string::npos) {
        if (!parseHex(data.substr(slash + 1), 2, flags) || (flags & 0x0F) != 0)
            return "flags must be hexadecimal with bits 7..4 only (e.g. 80)";
        data.resize(slash);
    }
    if (data.size() % 2 != 0 || data.size() > 128) return "data must be 0 to 64 bytes in hexadecimal";
    Bytes bytes;
    for (std::size_t i = 0; i < data.size(); i += 2) {
        const int hi = hexDigit(data[i]), lo = hexDigit(data[i + 1]);
        if (hi < 0 || lo < 0) return "data must be 0 to 64 bytes in hexadecimal";
        bytes.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    if (!parseDecimal(text.substr(at + 1), 3600000, period) || period == 0)
        return "period must be 1 to 3600000 milliseconds";
    out.frame.channel = static_cast<uint8_t>(channel);
    out.frame.id = id;
    out.frame.extended = idText.size() > 3 || id > 0x7FF; // as candump and cansend write identifiers
    out.frame.flags = static_cast<uint8_t>(flags);
    out.frame.data = std::move(bytes);
    out.period = std::chrono::milliseconds(period);
    return std::string();
}

} // namespace tarvelsim::cli
