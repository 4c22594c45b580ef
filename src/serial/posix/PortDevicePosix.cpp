// POSIX serial devices: non-blocking file descriptor, deadlines by poll, and
// an eventfd in the same poll so that a blocked read can be woken.
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "serial/PortDevice.h"
#include "serial/posix/LineTermios.h"

namespace tarvel {

struct PortDevice {
    int fd = -1;
    int cancelFd = -1;                  // eventfd: wakes a read blocked in poll
    std::atomic<bool> cancelled{false}; // a cancel is pending (checked without a system call)
};

namespace {

using Clock = std::chrono::steady_clock;

// Milliseconds left for poll; -1 waits without limit.
int pollTimeout(bool forever, Clock::time_point deadline) {
    if (forever) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return 0;
    return left > INT_MAX ? INT_MAX : static_cast<int>(left);
}

Clock::time_point deadlineOf(uint32_t timeoutMs) {
    return Clock::now() + std::chrono::milliseconds(timeoutMs);
}

IoResult failure(IoStage stage, int error) {
    IoResult r;
    r.ok = false;
    r.stage = stage;
    r.error = static_cast<unsigned long>(error);
    return r;
}

IoResult done(long long count) {
    IoResult r;
    r.count = count;
    return r;
}

// USB serial adapters (FTDI and the like) hold received bytes back for up to
// 16 ms unless the port asks for low latency; with it an answer reaches us
// within about a millisecond. Drivers without the setting (a pseudo-terminal,
// most built-in UARTs) refuse the request, which changes nothing.
void askForLowLatency(int fd) {
    serial_struct serial{};
    if (::ioctl(fd, TIOCGSERIAL, &serial) != 0) return;
    if (serial.flags & ASYNC_LOW_LATENCY) return;
    serial.flags |= ASYNC_LOW_LATENCY;
    ::ioctl(fd, TIOCSSERIAL, &serial);
}

// Consumes a pending cancel; true if there was one.
bool takeCancel(PortDevice* device) {
    if (!device->cancelled.exchange(false)) return false;
    eventfd_t value = 0;
    eventfd_read(device->cancelFd, &value);
    return true;
}

} // namespace

namespace port {

PortDevice* open(const std::string& name, unsigned long& error) {
    const std::string path = name.find('/') != std::string::npos ? name : "/dev/" + name;
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        error = static_cast<unsigned long>(errno);
        return nullptr;
    }
    // flock keeps out every other opener that plays by the same rule, root
    // included; TIOCEXCL keeps out the rest (except root).
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        error = static_cast<unsigned long>(errno == EWOULDBLOCK ? EBUSY : errno);
        ::close(fd);
        return nullptr;
    }
    ::ioctl(fd, TIOCEXCL); // not a terminal: the settings step reports it
    askForLowLatency(fd);
    const int cancelFd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (cancelFd < 0) {
        error = static_cast<unsigned long>(errno);
        ::close(fd);
        return nullptr;
    }
    PortDevice* device = new PortDevice;
    device->fd = fd;
    device->cancelFd = cancelFd;
    return device;
}

bool getLineSettings(PortDevice* device, LineSettings& settings, unsigned long& error) {
    if (int e = posix::readLineSettings(device->fd, settings)) {
        error = static_cast<unsigned long>(e);
        return false;
    }
    return true;
}

bool setLineSettings(PortDevice* device, const LineSettings& settings, unsigned long& error) {
    if (int e = posix::applyLineSettings(device->fd, settings)) {
        error = static_cast<unsigned long>(e);
        return false;
    }
    return true;
}

bool disableDriverTimeouts(PortDevice* device, unsigned long& error) {
    // The descriptor is non-blocking and every wait is a poll with its own
    // deadline; there is no driver time-out to turn off.
    if (device == nullptr) {
        error = EBADF;
        return false;
    }
    return true;
}

bool purge(PortDevice* device, unsigned long& error) {
    if (device == nullptr) {
        error = EBADF;
        return false;
    }
    if (int e = posix::purgeLine(device->fd)) {
        error = static_cast<unsigned long>(e);
        return false;
    }
    return true;
}

bool close(PortDevice* device, unsigned long& error) {
    (void)error;
    if (device == nullptr) return true;
    // The exclusive flag outlives this descriptor on a terminal whose other
    // end stays open; drop it so that the next opener isn't refused.
    ::ioctl(device->fd, TIOCNXCL);
    // Linux releases the descriptor even when close reports an error, so
    // there is no way for the device to stay open.
    ::close(device->fd);
    ::close(device->cancelFd);
    delete device;
    return true;
}

IoResult readSome(PortDevice* device, unsigned char* buf, std::size_t n, uint32_t timeoutMs) {
    if (device == nullptr) return failure(IoStage::Transfer, EBADF);
    if (takeCancel(device)) return done(0);
    if (n == 0) return done(0);
    const bool forever = timeoutMs == kWaitForever;
    const Clock::time_point deadline = deadlineOf(forever ? 0 : timeoutMs);
    short revents = 0;
    for (;;) {
        // Read first: while data streams in, one system call per refill.
        const ssize_t got = ::read(device->fd, buf, n);
        if (got > 0) return done(got);
        if (got == 0) return failure(IoStage::Transfer, EIO); // end of file: the device is gone
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return failure(IoStage::Transfer, errno);
        // Hang-up or error with nothing to read: a gone device, not a
        // time-out, so that a reader cannot spin on it.
        if (revents & (POLLHUP | POLLERR)) return failure(IoStage::Transfer, EIO);

        pollfd fds[2] = {{device->fd, POLLIN, 0}, {device->cancelFd, POLLIN, 0}};
        int rc;
        do {
            rc = ::poll(fds, 2, pollTimeout(forever, deadline));
        } while (rc < 0 && errno == EINTR);
        if (rc < 0) return failure(IoStage::Wait, errno);
        if (fds[1].revents & POLLIN) {
            // A cancel may have been taken already with its wake-up still
            // on the way: drain that too, or the next poll would not wait.
            eventfd_t value = 0;
            eventfd_read(device->cancelFd, &value);
            if (device->cancelled.exchange(false)) return done(0);
        }
        if (rc == 0) return done(0);
        if (fds[0].revents & POLLNVAL) return failure(IoStage::Wait, EBADF);
        revents = fds[0].revents;
    }
}

IoResult write(PortDevice* device, const unsigned char* buf, std::size_t n, uint32_t timeoutMs) {
    if (device == nullptr) return failure(IoStage::Transfer, EBADF);
    const bool forever = timeoutMs == kWaitForever;
    const Clock::time_point deadline = deadlineOf(forever ? 0 : timeoutMs);
    std::size_t written = 0;
    while (written < n) {
        const ssize_t put = ::write(device->fd, buf + written, n - written);
        if (put > 0) {
            written += static_cast<std::size_t>(put);
            continue;
        }
        if (put < 0 && errno == EINTR) continue;
        if (put < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            IoResult r = failure(IoStage::Transfer, errno);
            r.count = static_cast<long long>(written);
            return r;
        }
        // The driver's buffer is full: wait for room until the deadline.
        pollfd fd = {device->fd, POLLOUT, 0};
        int rc;
        do {
            rc = ::poll(&fd, 1, pollTimeout(forever, deadline));
        } while (rc < 0 && errno == EINTR);
        if (rc < 0 || rc == 0 || (fd.revents & (POLLERR | POLLHUP | POLLNVAL))) {
            const int error = rc < 0 ? errno : rc == 0 ? ETIMEDOUT : (fd.revents & POLLNVAL) ? EBADF : EIO;
            IoResult r = failure(IoStage::Wait, error);
            r.count = static_cast<long long>(written);
            return r;
        }
    }
    return done(static_cast<long long>(written));
}

void cancelRead(PortDevice* device) {
    if (device == nullptr) return;
    device->cancelled = true;
    eventfd_write(device->cancelFd, 1);
}

void clearCancel(PortDevice* device) {
    if (device != nullptr) takeCancel(device);
}

std::string errorText(unsigned long code) {
    char text[256];
    // GNU strerror_r returns the text, which need not be in `text`.
    const char* message = strerror_r(static_cast<int>(code), text, sizeof text);
    return message != nullptr ? message : "";
}

unsigned long lastError() {
    return static_cast<unsigned long>(errno);
}

} // namespace port
} // namespace tarvel
