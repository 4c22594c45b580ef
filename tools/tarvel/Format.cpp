// The text forms the tool prints: hex bytes, identifiers, candump log lines.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

#include "Tool.h"

namespace tool {

std::string hexBytes(const unsigned char* data, std::size_t length, const char* separator) {
    std::string out;
    char b[4];
    for (std::size_t i = 0; i < length; ++i) {
        if (i != 0) out += separator;
        std::snprintf(b, sizeof b, "%02X", data[i]);
        out += b;
    }
    return out;
}

std::string idText(uint32_t id, bool extended) {
    char b[16];
    std::snprintf(b, sizeof b, extended ? "%08" PRIX32 : "%03" PRIX32, id);
    return b;
}

std::string stampText(uint64_t timeUs) {
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "(%llu.%06llu)", static_cast<unsigned long long>(timeUs / 1000000),
                  static_cast<unsigned long long>(timeUs % 1000000));
    return stamp;
}

std::string candumpLine(const TarvelReport& report) {
    char channel[16];
    std::snprintf(channel, sizeof channel, " can%u ", report.channel);
    const std::vector<unsigned char> data(report.data, report.data + report.length);
    // Classic frames print ID#DATA; longer (CAN FD) frames ID##<flags>DATA.
    std::string sep = data.size() > 8 ? "##0" : "#";
    return stampText(report.timeUs) + channel + idText(report.id, report.extended != 0) + sep +
           hexBytes(data.data(), data.size(), "");
}

bool isTerminal(int fd) {
    return ::isatty(fd) == 1;
}

} // namespace tool
