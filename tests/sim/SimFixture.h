// A started simulator with a host on its terminal, spoken by hand: raw frames
// out, decoded packets in, with generous deadlines.
#ifndef TARVEL_TEST_SIM_FIXTURE_H
#define TARVEL_TEST_SIM_FIXTURE_H

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "Wait.h"
#include "tarvelsim/Simulator.h"
#include "tarvelsim/Wire.h"

namespace simtest {

using namespace tarvelsim;
using Clock = std::chrono::steady_clock;

inline int msUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? int(left) : 0;
}

// A frame from the device, taken apart; false when none came.
struct Answer {
    Answer() = default;
    explicit Answer(const Bytes& frame) : raw(frame), sound(checkPacket(frame) == PacketCheck::Ok) {
        if (frame.size() >= 2) id = frame[1];
        if (frame.size() >= 3) response = frame[2];
        if (frame.size() >= 5) data.assign(frame.begin() + 3, frame.end() - 2);
    }
    explicit operator bool() const { return !raw.empty(); }
    Bytes raw;
    bool sound = false; // length and checksum right
    uint8_t id = 0, response = 0;
    Bytes data;
};

// OK answer value (two bytes, big-endian), else -1.
inline int okValue(const Answer& a) {
    if (!a.sound || a.response != response::OK || a.data.size() != 2) return -1;
    return a.data[0] << 8 | a.data[1];
}

// The host's end of the terminal (blocking; reads wait in poll).
class HostLine {
public:
    // Takes the terminal as the device set it up: a device that leaves it cooked fails every test.
    explicit HostLine(const std::string& path) : HostLine(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
    // Takes over an open descriptor (for instance a pseudo-terminal's master side).
    explicit HostLine(int fd) : m_fd(fd) {}
    ~HostLine() { close(); }
    HostLine(const HostLine&) = delete;
    HostLine& operator=(const HostLine&) = delete;

    int fd() const { return m_fd; }
    void close() {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = -1;
    }
    bool write(const Bytes& bytes) { return ::write(m_fd, bytes.data(), bytes.size()) == ssize_t(bytes.size()); }
    // The next frame the device sends, waiting up to 5 s.
    Answer next() {
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        pollfd p{m_fd, POLLIN, 0};
        uint8_t b = 0;
        while (::poll(&p, 1, msUntil(deadline)) == 1 && ::read(m_fd, &b, 1) == 1) {
            m_rawSeen.push_back(b);
            if (m_decoder.feed(b) == SlipDecoder::Event::Frame) return Answer(m_decoder.frame());
        }
        return {};
    }
    // Sends a command and returns the next frame.
    Answer exchange(uint8_t id, uint8_t code, const Bytes& payload = {}) {
        return write(slipEncode(buildPacket(id, code, payload))) ? next() : Answer();
    }
    // Every byte read so far, framing included.
    const Bytes& rawSeen() const { return m_rawSeen; }

private:
    int m_fd = -1;
    SlipDecoder m_decoder{4096};
    Bytes m_rawSeen;
};

class SimFixture : public ::testing::Test {
protected:
    void SetUp() override {
        sim = std::make_unique<Simulator>(Options{});
        ASSERT_TRUE(sim->start()) << sim->lastError();
        line = std::make_unique<HostLine>(sim->portPath());
        ASSERT_GE(line->fd(), 0);
    }

    // A tracked command's OK value (see okValue); the answer must carry the command's id.
    int status(uint8_t code, const Bytes& payload = {}) {
        m_id = m_id >= 255 ? 5 : static_cast<uint8_t>(m_id + 1);
        const Answer a = line->exchange(m_id, code, payload);
        EXPECT_EQ(m_id, a.id) << "answer to command " << int(code);
        return okValue(a);
    }

    std::unique_ptr<Simulator> sim;
    std::unique_ptr<HostLine> line; // closed before the device goes

private:
    uint8_t m_id = 4;
};

} // namespace simtest

#endif
