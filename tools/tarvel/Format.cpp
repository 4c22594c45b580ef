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

std::string candumpLine(double epochSeconds, unsigned channel, uint32_t id, bool extended,
                        const std::vector<unsigned char>& data) {
    char stamp[48];
    auto micros = static_cast<long long>(epochSeconds * 1e6 + 0.5);
    std::snprintf(stamp, sizeof stamp, "(%lld.%06lld) can%u ", micros / 1000000, micros % 1000000, channel);
    // Classic frames print ID#DATA; longer (CAN FD) frames ID##<flags>DATA.
    std::string sep = data.size() > 8 ? "##0" : "#";
    return stamp + idText(id, extended) + sep + hexBytes(data.data(), data.size(), "");
}

double reportEpochSeconds(uint32_t timestamp) {
    using namespace std::chrono;
    auto tickNow = static_cast<uint32_t>(Tarvel::GetTickMs());
    uint32_t ageMs = tickNow - timestamp; // wraps like the 32-bit stamp
    double now = duration<double>(system_clock::now().time_since_epoch()).count();
    return now - ageMs / 1000.0;
}

bool isTerminal(int fd) {
    return ::isatty(fd) == 1;
}

} // namespace tool
