// Scripted device answers for the tests of a session against the simulator:
// a responder answers chosen commands, the model answers the rest.
#ifndef TARVEL_TEST_SCRIPTED_ANSWERS_H
#define TARVEL_TEST_SCRIPTED_ANSWERS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "TarvelAPI.h"
#include "Wait.h"
#include "tarvelsim/Simulator.h"

namespace scripted {

using tarvelsim::Bytes;
using tarvelsim::DevicePacket;
using tarvelsim::HostPacket;

inline DevicePacket ok(const HostPacket& p, uint16_t value) {
    return {p.messageId, Tarvel::OK, {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}};
}

// Answers every packet of `command` (every packet for -1) with what `make`
// builds for it.
inline tarvelsim::Responder on(int command, std::function<std::vector<DevicePacket>(const HostPacket&)> make) {
    return [=](const HostPacket& p) -> std::optional<std::vector<DevicePacket>> {
        if (command >= 0 && p.command != command) return std::nullopt;
        return make(p);
    };
}

inline tarvelsim::Responder answer(int command, uint8_t responseId, Bytes data) {
    return on(command, [=](const HostPacket& p) { return std::vector<DevicePacket>{{p.messageId, responseId, data}}; });
}

inline tarvelsim::Responder answer(int command, uint16_t value) {
    return on(command, [=](const HostPacket& p) { return std::vector<DevicePacket>{ok(p, value)}; });
}

inline tarvelsim::Responder ignore(int command) {
    return on(command, [](const HostPacket&) { return std::vector<DevicePacket>{}; });
}

// Calls `call` with a short read time-out, for calls the device leaves
// unanswered; the usual time-out is back afterwards.
inline int unanswered(Tarvel& tarvel, const std::function<int()>& call) {
    EXPECT_EQ(0, tarvel.SetTimeout(100, 1000));
    const int r = call();
    EXPECT_EQ(0, tarvel.SetTimeout(1000, 1000));
    return r;
}

// An operation, the command it sends and the result expected for each answer.
struct Mapping {
    std::function<int()> call;
    uint8_t command;
    std::vector<std::pair<uint16_t, int>> results; // answer value, result
};

inline void expectMappings(tarvelsim::Simulator& sim, const std::vector<Mapping>& mappings) {
    for (const auto& m : mappings) {
        for (const auto& r : m.results) {
            sim.setResponder(answer(m.command, r.first));
            EXPECT_EQ(r.second, m.call()) << "command 0x" << std::hex << int(m.command) << ", answer 0x" << r.first;
        }
    }
    sim.setResponder(nullptr);
}

// The first packet logged is a PING sent now: whatever the test did before
// (on a cleared log) sent nothing.
inline void expectOnlyPingFollows(Tarvel& tarvel, tarvelsim::Simulator& sim) {
    EXPECT_EQ(0, tarvel.Ping());
    ASSERT_TRUE(sim.waitForPackets(1, 5000));
    EXPECT_EQ(Tarvel::PING, sim.hostPackets().at(0).command);
}

} // namespace scripted

#endif
