// A started simulator with a hand-driven host on its terminal.
#ifndef TARVEL_TEST_SIM_FIXTURE_H
#define TARVEL_TEST_SIM_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "HostLine.h"
#include "tarvelsim/Simulator.h"

namespace simtest {

using namespace tarvelsim;

// Polls a condition for up to 5 s.
inline bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class SimFixture : public ::testing::Test {
protected:
    virtual Options options() const { return {}; }

    void SetUp() override {
        sim = std::make_unique<Simulator>(options());
        ASSERT_TRUE(sim->start()) << sim->lastError();
        line = std::make_unique<HostLine>(sim->portPath());
        ASSERT_TRUE(line->isOpen());
    }
    void TearDown() override {
        line.reset();
        if (sim) sim->stop();
    }

    uint8_t nextId() {
        m_id = m_id >= 255 ? 5 : static_cast<uint8_t>(m_id + 1);
        return m_id;
    }

    // A tracked command: the answer, which must carry the command's id.
    std::optional<Answer> ask(uint8_t code, const Bytes& payload = {}) {
        const uint8_t id = nextId();
        auto a = line->exchange(id, code, payload);
        EXPECT_TRUE(a.has_value()) << "no answer to command " << int(code);
        if (a) {
            EXPECT_EQ(id, a->id) << "answer to command " << int(code);
        }
        return a;
    }
    int status(uint8_t code, const Bytes& payload = {}) { return okValue(ask(code, payload)); }

    // ADD_MESSAGE payload: channel selector, 29-bit id, dlc, period, enabled, data.
    static Bytes message(uint8_t selector1, uint32_t id, uint8_t dlc, uint16_t period, bool enabled, Bytes data,
                         uint8_t flags = 0) {
        Bytes p{selector1, 0, uint8_t(id), uint8_t(id >> 8), uint8_t(id >> 16), uint8_t(id >> 24), flags, 0, 0, dlc,
                0, 0, uint8_t(period >> 8), uint8_t(period), 0, 0, uint8_t(enabled ? 1 : 0)};
        p.insert(p.end(), data.begin(), data.end());
        return p;
    }
    static Bytes request(uint8_t mask, uint32_t id, uint8_t dlc = 8) {
        return {mask, uint8_t(id), uint8_t(id >> 8), uint8_t(id >> 16), uint8_t(id >> 24), 0, dlc, 0, 0};
    }
    static Bytes be16(uint16_t v) { return {uint8_t(v >> 8), uint8_t(v)}; }
    static Bytes cat(Bytes a, const Bytes& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    }

    std::unique_ptr<Simulator> sim;
    std::unique_ptr<HostLine> line;

private:
    uint8_t m_id = 4;
};

} // namespace simtest

#endif
