// Device traffic for the session tests: scripted answers and raw frames.
#ifndef TARVEL_TEST_SESSION_UTIL_H
#define TARVEL_TEST_SESSION_UTIL_H

#include <chrono>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "TarvelAPI.h"
#include "tarvelsim/Simulator.h"

namespace sessiontest {

using tarvelsim::Bytes;
using tarvelsim::DevicePacket;
using tarvelsim::HostPacket;

// Answers every packet of `command` with what `make` builds for it; the
// model answers the rest.
inline tarvelsim::Responder on(uint8_t command, std::function<std::vector<DevicePacket>(const HostPacket&)> make) {
    return [=](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (p.command != command) return std::nullopt;
        return make(p);
    };
}

// Answers every packet of `command` with one packet carrying its id.
inline tarvelsim::Responder reply(uint8_t command, uint8_t responseId, Bytes data) {
    return on(command, [=](const HostPacket& p) { return std::vector<DevicePacket>{{p.messageId, responseId, data}}; });
}

// A device packet with its length byte and sum16, as bytes.
inline Bytes packet(uint8_t id, uint8_t responseId, const Bytes& data) {
    Bytes p{static_cast<uint8_t>(data.size() + 1), id, responseId};
    p.insert(p.end(), data.begin(), data.end());
    unsigned sum = 0;
    for (uint8_t b : p) sum += b;
    p.push_back(static_cast<uint8_t>(sum >> 8));
    p.push_back(static_cast<uint8_t>(sum));
    return p;
}

// A SLIP frame around raw packet bytes.
inline Bytes frame(const Bytes& raw) {
    Bytes f{0xC0};
    for (uint8_t b : raw) {
        if (b == 0xC0) {
            f.push_back(0xDB);
            f.push_back(0xDC);
        } else if (b == 0xDB) {
            f.push_back(0xDB);
            f.push_back(0xDD);
        } else {
            f.push_back(b);
        }
    }
    f.push_back(0xC0);
    return f;
}

// Polls `done` every millisecond for up to 5 s.
inline bool eventually(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace sessiontest

#endif
