// The packets in both directions on standard error, in hexadecimal, when the
// user asks for the traffic.
#ifndef TARVELSIM_TRAFFIC_LOG_H
#define TARVELSIM_TRAFFIC_LOG_H

#include <cstdio>
#include <string>

#include "tarvelsim/Wire.h"

namespace tarvelsim {

// who: "host" or "device"; note: appended as it is (e.g. " (rejected)").
inline void logTraffic(const char* who, const Bytes& packet, const char* note = "") {
    std::string text;
    char buf[4];
    for (uint8_t b : packet) {
        std::snprintf(buf, sizeof buf, "%02X ", b);
        text += buf;
    }
    if (!text.empty()) text.pop_back();
    std::fprintf(stderr, "tarvel-sim: %-6s %s%s\n", who, text.c_str(), note);
}

} // namespace tarvelsim

#endif
