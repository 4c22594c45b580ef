// Scripted device answers and checks shared by the device, transmit and
// reception tests.
#ifndef TARVEL_TEST_SCRIPTED_ANSWERS_H
#define TARVEL_TEST_SCRIPTED_ANSWERS_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>
#include <optional>
#include <vector>

#include "TarvelAPI.h"
#include "tarvelsim/Simulator.h"

namespace scripted {

using tarvelsim::Bytes;
using tarvelsim::DevicePacket;
using tarvelsim::HostPacket;

inline DevicePacket ok(const HostPacket& p, uint16_t value) {
    return {p.messageId, Tarvel::OK, {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}};
}

// Answers every packet of `command` with a fixed packet; the model answers the rest.
inline tarvelsim::Responder answer(uint8_t command, uint8_t responseId, Bytes data) {
    return [=](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (p.command != command) return std::nullopt;
        return std::vector<DevicePacket>{{p.messageId, responseId, data}};
    };
}

// Answers every packet of `command` with the OK value.
inline tarvelsim::Responder answer(uint8_t command, uint16_t value) {
    return answer(command, Tarvel::OK, Bytes{static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
}

// Leaves every packet of `command` unanswered.
inline tarvelsim::Responder ignore(uint8_t command) {
    return [=](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (p.command != command) return std::nullopt;
        return std::vector<DevicePacket>{};
    };
}

// Waits until the condition holds (true) or the deadline passes (false).
inline bool eventually(const std::function<bool()>& condition, int timeoutMs = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The packets logged so far must be exactly one PING: whatever the test did
// before (on a cleared log) sent nothing.
inline void expectOnlyPingFollows(Tarvel& tarvel, tarvelsim::Simulator& sim) {
    EXPECT_EQ(0, tarvel.Ping());
    ASSERT_TRUE(sim.waitForPackets(1, 5000));
    const auto log = sim.hostPackets();
    ASSERT_EQ(1u, log.size());
    EXPECT_EQ(Tarvel::PING, log[0].command);
}

} // namespace scripted

#endif
