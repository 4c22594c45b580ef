// The host's end of the simulated device's terminal, spoken by hand: raw
// frames out, decoded packets in, with generous deadlines.
#ifndef TARVEL_TEST_SIM_HOST_LINE_H
#define TARVEL_TEST_SIM_HOST_LINE_H

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>

#include "tarvelsim/Wire.h"

namespace simtest {

using tarvelsim::Bytes;

struct Answer {
    uint8_t id = 0;
    uint8_t response = 0;
    Bytes data;
    bool sound = true; // length and checksum right
    Bytes raw;
};

class HostLine {
public:
    explicit HostLine(const std::string& path) {
        m_fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (m_fd < 0) return;
        termios t{};
        ::tcgetattr(m_fd, &t);
        ::cfmakeraw(&t);
        ::tcsetattr(m_fd, TCSANOW, &t);
    }
    // Takes over an open descriptor (for instance a pseudo-terminal's master side).
    explicit HostLine(int fd) : m_fd(fd) { ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK); }
    ~HostLine() { close(); }
    HostLine(const HostLine&) = delete;
    HostLine& operator=(const HostLine&) = delete;

    bool isOpen() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    void close() {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = -1;
    }

    bool write(const Bytes& bytes) {
        std::size_t done = 0;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (done < bytes.size() && std::chrono::steady_clock::now() < deadline) {
            const ssize_t n = ::write(m_fd, bytes.data() + done, bytes.size() - done);
            if (n > 0) done += static_cast<std::size_t>(n);
            else {
                pollfd p{m_fd, POLLOUT, 0};
                ::poll(&p, 1, 100);
            }
        }
        return done == bytes.size();
    }

    bool send(uint8_t id, uint8_t code, const Bytes& payload = {}) {
        return write(tarvelsim::slipEncode(tarvelsim::buildPacket(id, code, payload)));
    }

    // The next frame the device sends, taken apart.
    std::optional<Answer> next(int timeoutMs = 5000) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            while (m_pos < m_buffer.size()) {
                const uint8_t b = m_buffer[m_pos++];
                m_rawSeen.push_back(b);
                if (m_decoder.feed(b) != tarvelsim::SlipDecoder::Event::Frame) continue;
                const Bytes& f = m_decoder.frame();
                Answer a;
                a.raw = f;
                a.sound = tarvelsim::checkPacket(f) == tarvelsim::PacketCheck::Ok;
                if (f.size() >= 2) a.id = f[1];
                if (f.size() >= 3) a.response = f[2];
                if (f.size() >= 5) a.data.assign(f.begin() + 3, f.end() - 2);
                return a;
            }
            m_buffer.clear();
            m_pos = 0;
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                                  deadline - std::chrono::steady_clock::now())
                                  .count();
            if (left <= 0) return std::nullopt;
            pollfd p{m_fd, POLLIN, 0};
            if (::poll(&p, 1, static_cast<int>(left)) <= 0) continue;
            uint8_t buf[4096];
            const ssize_t n = ::read(m_fd, buf, sizeof buf);
            if (n <= 0) {
                if (n == 0 || (errno != EAGAIN && errno != EINTR)) return std::nullopt;
                continue;
            }
            m_buffer.assign(buf, buf + n);
        }
    }

    // Sends a command and returns the next frame.
    std::optional<Answer> exchange(uint8_t id, uint8_t code, const Bytes& payload = {}) {
        if (!send(id, code, payload)) return std::nullopt;
        return next();
    }

    // Every byte read so far, framing included.
    const Bytes& rawSeen() const { return m_rawSeen; }

private:
    int m_fd = -1;
    tarvelsim::SlipDecoder m_decoder{4096};
    Bytes m_buffer;
    std::size_t m_pos = 0;
    Bytes m_rawSeen;
};

// OK answer value (two bytes, big-endian).
inline int okValue(const std::optional<Answer>& a) {
    if (!a || !a->sound || a->response != tarvelsim::response::OK || a->data.size() != 2) return -1;
    return a->data[0] << 8 | a->data[1];
}

} // namespace simtest

#endif
