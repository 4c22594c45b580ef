#include "Terminal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/inotify.h>
#endif

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tarvelsim {

namespace {

constexpr auto kReopenInterval = std::chrono::milliseconds(250);

void makeRaw(int fd) {
    termios t{};
    if (::tcgetattr(fd, &t) != 0) return;
    ::cfmakeraw(&t);
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    ::tcsetattr(fd, TCSANOW, &t);
}

// 2,000,000 baud, 8 data bits, even parity, one stop bit, raw.
void configureLine(int fd) {
    termios t{};
    if (::tcgetattr(fd, &t) != 0) return;
    ::cfmakeraw(&t);
    t.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARODD | CSIZE);
    t.c_cflag |= CS8 | PARENB | CLOCAL | CREAD;
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
#ifdef B2000000
    ::cfsetispeed(&t, B2000000);
    ::cfsetospeed(&t, B2000000);
#endif
    ::tcsetattr(fd, TCSANOW, &t);
}

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

// Whether any descriptor but ours still refers to the terminal. Reads all of
// /proc (tens of milliseconds), so it runs beside the serving thread.
bool othersHold(const std::string& path, int ours, const std::atomic<bool>& abandon) {
    DIR* proc = ::opendir("/proc");
    if (!proc) return false;
    const std::string self = std::to_string(::getpid());
    const std::string ourFd = std::to_string(ours);
    bool found = false;
    while (!found && !abandon) {
        const dirent* p = ::readdir(proc);
        if (!p) break;
        if (p->d_name[0] < '0' || p->d_name[0] > '9') continue;
        const std::string fdDir = std::string("/proc/") + p->d_name + "/fd";
        DIR* fds = ::opendir(fdDir.c_str());
        if (!fds) continue;
        while (const dirent* f = ::readdir(fds)) {
            if (f->d_name[0] == '.' || (self == p->d_name && ourFd == f->d_name)) continue;
            char target[256];
            const std::string link = fdDir + "/" + f->d_name;
            const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
            if (n > 0 && path.compare(0, std::string::npos, target, static_cast<std::size_t>(n)) == 0) {
                found = true;
                break;
            }
        }
        ::closedir(fds);
    }
    ::closedir(proc);
    return found || abandon;
}

} // namespace

Terminal::Terminal(std::string port, Post post, Reset reset)
    : m_port(std::move(port)), m_post(std::move(post)), m_reset(std::move(reset)) {
    if (!m_port.empty()) m_path = m_port;
}

Terminal::~Terminal() {
    abandonScan();
    close();
}

bool Terminal::open(std::string& error) {
    m_closed = false;
    m_abandonScan = false;
    m_rescan = false;
    const bool opened = isPort() ? openPort(false, error) : openPty(error);
    if (!opened) close();
    return opened;
}

bool Terminal::openPty(std::string& error) {
    m_io = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m_io < 0 || ::grantpt(m_io) != 0 || ::unlockpt(m_io) != 0) {
        error = std::string("cannot open a pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    char name[128];
    if (::ptsname_r(m_io, name, sizeof name) != 0) {
        error = std::string("ptsname: ") + std::strerror(errno);
        return false;
    }
    m_path = name;
    ::fcntl(m_io, F_SETFL, ::fcntl(m_io, F_GETFL) | O_NONBLOCK);
    m_slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m_slave < 0) {
        error = "cannot open " + m_path + ": " + std::strerror(errno);
        return false;
    }
    makeRaw(m_slave);
#ifdef __linux__
    m_watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_watch >= 0 && ::inotify_add_watch(m_watch, name, IN_OPEN | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE) < 0)
        closeFd(m_watch);
#endif
    setConnected(m_watch < 0); // without events, assume a host is always there
    return true;
}

bool Terminal::openPort(bool quiet, std::string& error) {
    m_io = ::open(m_port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (m_io < 0) {
        if (!quiet) error = "cannot open " + m_port + ": " + std::strerror(errno);
        return false;
    }
    if (::isatty(m_io)) configureLine(m_io);
    setConnected(true); // a real line can't tell whether a host listens
    m_reset();
    return true;
}

void Terminal::close() {
    m_closed = true;
    if (m_watch >= 0) {
        // Closing an inotify instance waits for a grace period of the kernel
        // (tens of milliseconds); nobody needs to wait for it.
        std::thread([fd = m_watch] { ::close(fd); }).detach();
        m_watch = -1;
    }
    closeFd(m_io);
    closeFd(m_slave);
    setConnected(false);
    m_reset();
}

void Terminal::abandonScan() {
    m_abandonScan = true;
    if (m_scanner.joinable()) m_scanner.join();
}

void Terminal::hostSeen() {
    if (!m_connected) setConnected(true);
}

void Terminal::setConnected(bool connected) {
    m_connected = connected;
    m_connectedMirror = connected;
}

// After a close, a scan finds out whether anybody still holds the terminal;
// if nobody does and nothing was opened meanwhile, the next host gets a fresh
// terminal. Events are counted, not trusted for a count of openers: the
// kernel merges identical events that follow each other.
void Terminal::drainWatch() {
#ifdef __linux__
    if (m_watch < 0) return;
    alignas(inotify_event) char buf[4096];
    bool lastWasClose = false, any = false;
    for (;;) {
        const ssize_t n = ::read(m_watch, buf, sizeof buf);
        if (n <= 0) break;
        for (ssize_t at = 0; at < n;) {
            const auto* e = reinterpret_cast<const inotify_event*>(buf + at);
            if (e->mask & IN_OPEN) any = true, lastWasClose = false;
            if (e->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE)) any = lastWasClose = true;
            at += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
        }
    }
    if (!any) return;
    ++m_eventGeneration;
    setConnected(true);
    if (lastWasClose) startScan();
#endif
}

void Terminal::startScan() {
    if (m_scanner.joinable()) { // one at a time; the running one's result is stale
        m_rescan = true;
        return;
    }
    const uint64_t generation = m_eventGeneration;
    m_scanner = std::thread([this, generation, name = m_path, ours = m_slave] {
        const bool held = othersHold(name, ours, m_abandonScan);
        m_post([this, generation, held] { scanDone(generation, held); });
    });
}

void Terminal::scanDone(uint64_t generation, bool held) {
    if (m_scanner.joinable()) m_scanner.join();
    drainWatch(); // an open that raced the scan cancels its verdict
    if (m_rescan) {
        m_rescan = false;
        if (!m_scanner.joinable()) startScan();
        return;
    }
    if (generation == m_eventGeneration && !held) hostGone();
}

// The terminal is made fresh before it counts as free: a host that opens it
// as soon as it is free must not lose its settings or its first bytes.
void Terminal::hostGone() {
    if (m_slave >= 0) {
        ::ioctl(m_slave, TIOCNXCL);
        makeRaw(m_slave);
        ::tcflush(m_slave, TCIOFLUSH);
    }
    uint8_t buf[4096];
    while (m_io >= 0 && ::read(m_io, buf, sizeof buf) > 0) {
    }
    m_reset();
    setConnected(false);
}

void Terminal::lineLost(TimePoint now) {
    closeFd(m_io);
    setConnected(false);
    m_reset();
    m_reopenAt = now + kReopenInterval;
}

void Terminal::reopenIfDue(TimePoint now) {
    if (m_io >= 0 || !isPort() || m_closed || now < m_reopenAt) return;
    std::string unused;
    if (!openPort(true, unused)) m_reopenAt = now + kReopenInterval;
}

std::optional<Terminal::TimePoint> Terminal::reopenDue() const {
    if (m_io >= 0 || !isPort() || m_closed) return std::nullopt;
    return m_reopenAt;
}

} // namespace tarvelsim
