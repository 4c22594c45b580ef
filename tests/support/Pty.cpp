#include "Pty.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

} // namespace

Pty::Pty() {
    m_master = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (m_master < 0 || ::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
        throw std::runtime_error("Pty: cannot open a pseudo-terminal master");
    char name[128];
    if (::ptsname_r(m_master, name, sizeof name) != 0) throw std::runtime_error("Pty: ptsname failed");
    m_slavePath = name;
    m_slave = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (m_slave < 0) throw std::runtime_error("Pty: cannot open " + m_slavePath);
    termios t{};
    if (::tcgetattr(m_slave, &t) == 0) {
        ::cfmakeraw(&t);
        ::tcsetattr(m_slave, TCSANOW, &t);
    }
}

Pty::~Pty() {
    if (m_slave >= 0) ::close(m_slave);
    closeMaster();
}

bool Pty::write(const ByteVector& bytes, int timeoutMs) {
    return write(bytes.data(), bytes.size(), timeoutMs);
}

bool Pty::write(const void* data, std::size_t n, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    const unsigned char* p = static_cast<const unsigned char*>(data);
    std::size_t done = 0;
    while (done < n) {
        const ssize_t put = ::write(m_master, p + done, n - done);
        if (put > 0) {
            done += static_cast<std::size_t>(put);
            continue;
        }
        if (put < 0 && errno != EAGAIN && errno != EINTR) return false;
        pollfd fd = {m_master, POLLOUT, 0};
        if (::poll(&fd, 1, msLeft(deadline)) == 0 && Clock::now() >= deadline) return false;
    }
    return true;
}

ByteVector Pty::read(std::size_t n, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    ByteVector got;
    unsigned char chunk[4096];
    while (got.size() < n) {
        const std::size_t want = std::min(sizeof chunk, n - got.size());
        const ssize_t r = ::read(m_master, chunk, want);
        if (r > 0) {
            got.insert(got.end(), chunk, chunk + r);
            continue;
        }
        if (r < 0 && errno != EAGAIN && errno != EINTR) break;
        if (Clock::now() >= deadline) break;
        pollfd fd = {m_master, POLLIN, 0};
        ::poll(&fd, 1, msLeft(deadline));
    }
    return got;
}

std::size_t Pty::drain() {
    std::size_t total = 0;
    unsigned char chunk[4096];
    ssize_t r;
    while ((r = ::read(m_master, chunk, sizeof chunk)) > 0)
        total += static_cast<std::size_t>(r);
    return total;
}

void Pty::closeMaster() {
    if (m_master >= 0) ::close(m_master);
    m_master = -1;
}
