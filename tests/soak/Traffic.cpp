// The traffic the simulator is told to make, as the workers expect it.
#include <cstdio>
#include <string>
#include <vector>

#include "Workers.h"

namespace soak {
namespace traffic {

const uint8_t kFixedData[16] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
const uint8_t kRequestedData[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};

namespace {

// --inject's CHANNEL:ID#HEXDATA@MS; eight identifier digits make it extended.
std::string injection(unsigned channel, uint32_t id, bool extended, const uint8_t* data, std::size_t n, unsigned ms) {
    char text[32];
    std::snprintf(text, sizeof text, extended ? "%u:%08X#" : "%u:%03X#", channel, static_cast<unsigned>(id));
    std::string s = text;
    for (std::size_t i = 0; i < n; ++i) {
        std::snprintf(text, sizeof text, "%02X", data[i]);
        s += text;
    }
    return s + "@" + std::to_string(ms);
}

} // namespace

std::vector<std::string> simulatorArguments() {
    return {// Every answer fault at once, and a refused command.
            "--drop-every", "53", "--corrupt-every", "37", "--delay-ms", "2", "--garbage", "--cut-frames", "--hw-error",
            "--fail-command", std::to_string(kRefusedCommand), "--fail-response", "129",
            // Reports besides the answers: a flood and two nodes on the bus.
            "--flood-rate", "300", "--inject",
            injection(kFixedChannel, kFixedId, false, kFixedData, sizeof kFixedData, 5), "--inject",
            injection(kRequestedChannel, kRequestedId, true, kRequestedData, sizeof kRequestedData, 10)};
}

} // namespace traffic
} // namespace soak
