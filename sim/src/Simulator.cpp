#include "tarvelsim/Simulator.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/inotify.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "DeviceModel.h"
#include "tarvelsim/Wire.h"

namespace tarvelsim {

namespace {

constexpr std::size_t kMaxPending = std::size_t(1) << 20; // bytes the host has not taken yet
constexpr std::size_t kFloodLowWater = 4096;              // rate floods pause above this backlog
constexpr unsigned kFloodBatch = 16;                      // reports per refill when flooding flat out
constexpr uint64_t kFloodBurst = 1000;                    // rate flood: most reports per wake-up
constexpr auto kReopenInterval = std::chrono::milliseconds(250);
const uint8_t kGarbage[] = {0x55, 0xAA, 0x13};
const uint8_t kCutJunk[] = {0x01, 0x02, 0x03, slip::ESC, slip::ESC_BRK};

std::string hex(const Bytes& bytes) {
    std::string s;
    char buf[4];
    for (uint8_t b : bytes) {
        std::snprintf(buf, sizeof buf, "%02X ", b);
        s += buf;
    }
    if (!s.empty()) s.pop_back();
    return s;
}

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

int msUntil(TimePoint now, TimePoint due) {
    if (due <= now) return 0;
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(due - now).count();
    return static_cast<int>(std::min<long long>((us + 999) / 1000, 60000));
}

} // namespace

struct Simulator::Impl {
    explicit Impl(Options o)
        : options(std::move(o)), model(options.versionStatus, options.capacity, SteadyClock::now()),
          faults(options.faults) {}

    Options options;

    // Guarded state, read by the peek functions.
    mutable std::mutex stateMutex;
    DeviceModel model;
    TimePoint bootEnd{};
    std::string error;

    mutable std::mutex faultMutex;
    Faults faults;
    uint64_t faultGeneration = 0;

    std::mutex responderMutex;
    std::shared_ptr<Responder> responder;

    mutable std::mutex logMutex;
    mutable std::condition_variable logCv;
    std::vector<HostPacket> log;

    std::mutex actionMutex;
    std::vector<std::function<void()>> actions;
    bool stopRequested = false;

    // Thread and descriptors.
    std::thread thread;
    std::atomic<bool> running{false};
    int wakeRead = -1, wakeWrite = -1;
    int io = -1;    // master side of the pseudo-terminal, or the port
    int slave = -1; // our own slave descriptor: the master never sees EIO between hosts
    int watch = -1; // open/close events of the slave path
    std::string path;
    std::string linkMade;
    bool hungUp = false;

    // Serving thread only.
    SlipDecoder decoder{512};
    Bytes out;
    std::size_t outPos = 0;
    struct Delayed {
        TimePoint due;
        Bytes bytes;
    };
    std::deque<Delayed> delayed;
    bool hostConnected = false;
    std::atomic<bool> connectedMirror{false}; // for hostConnected()
    uint64_t eventGeneration = 0;
    std::thread scanner;
    bool rescan = false;
    std::atomic<bool> abandonScan{false};
    uint64_t seenGeneration = ~uint64_t(0);
    uint64_t answerCount = 0;
    TimePoint floodStart{};
    uint64_t floodSent = 0;
    uint32_t floodNumber = 0;
    TimePoint reopenAt{};

    void setError(const std::string& e) {
        std::lock_guard<std::mutex> lock(stateMutex);
        error = e;
    }

    // --- opening and closing ---------------------------------------------------

    bool openPty() {
        io = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (io < 0 || ::grantpt(io) != 0 || ::unlockpt(io) != 0) {
            setError(std::string("cannot open a pseudo-terminal: ") + std::strerror(errno));
            closeFd(io);
            return false;
        }
        char name[128];
        if (::ptsname_r(io, name, sizeof name) != 0) {
            setError(std::string("ptsname: ") + std::strerror(errno));
            closeFd(io);
            return false;
        }
        path = name;
        ::fcntl(io, F_SETFL, ::fcntl(io, F_GETFL) | O_NONBLOCK);
        slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (slave < 0) {
            setError("cannot open " + path + ": " + std::strerror(errno));
            closeFd(io);
            return false;
        }
        makeRaw(slave);
#ifdef __linux__
        watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (watch >= 0 && ::inotify_add_watch(watch, name, IN_OPEN | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE) < 0)
            closeFd(watch);
#endif
        setConnected(watch < 0); // without events, assume a host is always there
        return true;
    }

    bool openPort(bool quiet) {
        io = ::open(options.port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (io < 0) {
            if (!quiet) setError("cannot open " + options.port + ": " + std::strerror(errno));
            return false;
        }
        if (::isatty(io)) configureLine(io);
        setConnected(true); // a real line can't tell whether a host listens
        decoder.reset();
        return true;
    }

    void closeTerminal() {
        if (watch >= 0) {
            // Closing an inotify instance waits for a grace period of the
            // kernel (tens of milliseconds); nobody needs to wait for it.
            std::thread([fd = watch] { ::close(fd); }).detach();
            watch = -1;
        }
        closeFd(io);
        closeFd(slave);
        out.clear();
        outPos = 0;
        delayed.clear();
        setConnected(false);
    }

    void removeLink() {
        if (!linkMade.empty()) ::unlink(linkMade.c_str());
        linkMade.clear();
    }

    bool makeLink() {
        if (options.link.empty()) return true;
        struct stat st {};
        if (::lstat(options.link.c_str(), &st) == 0) {
            if (!S_ISLNK(st.st_mode)) {
                setError(options.link + " exists and is not a symbolic link");
                return false;
            }
            ::unlink(options.link.c_str());
        }
        if (::symlink(path.c_str(), options.link.c_str()) != 0) {
            setError("cannot link " + options.link + ": " + std::strerror(errno));
            return false;
        }
        linkMade = options.link;
        return true;
    }

    // --- host connections (pseudo-terminal) -------------------------------------

    // Whether any descriptor but ours still refers to the terminal. Reads all
    // of /proc (tens of milliseconds), so it runs beside the serving thread.
    static bool othersHold(const std::string& path, int ours, const std::atomic<bool>& abandon) {
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

    // Reads the open/close events of the slave path. After a close, a scan
    // finds out whether anybody still holds the terminal; if nobody does and
    // nothing was opened meanwhile, the next host gets a fresh terminal.
    // Events are counted, not trusted for a count of openers: the kernel
    // merges identical events that follow each other.
    void drainWatch() {
#ifdef __linux__
        if (watch < 0) return;
        alignas(inotify_event) char buf[4096];
        bool lastWasClose = false, any = false;
        for (;;) {
            const ssize_t n = ::read(watch, buf, sizeof buf);
            if (n <= 0) break;
            for (ssize_t at = 0; at < n;) {
                const auto* e = reinterpret_cast<const inotify_event*>(buf + at);
                if (e->mask & IN_OPEN) any = true, lastWasClose = false;
                if (e->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE)) any = lastWasClose = true;
                at += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
            }
        }
        if (!any) return;
        ++eventGeneration;
        setConnected(true);
        if (lastWasClose) startScan();
#endif
    }

    void startScan() {
        if (scanner.joinable()) { // one at a time; the running one's result is stale
            rescan = true;
            return;
        }
        const uint64_t generation = eventGeneration;
        scanner = std::thread([this, generation, name = path, ours = slave] {
            const bool held = othersHold(name, ours, abandonScan);
            post([this, generation, held] { scanDone(generation, held); });
        });
    }

    void scanDone(uint64_t generation, bool held) {
        if (scanner.joinable()) scanner.join();
        drainWatch(); // an open that raced the scan cancels its verdict
        if (rescan) {
            rescan = false;
            if (!scanner.joinable()) startScan();
            return;
        }
        if (generation == eventGeneration && !held) hostGone();
    }

    void setConnected(bool connected) {
        hostConnected = connected;
        connectedMirror = connected;
    }

    void hostGone() {
        setConnected(false);
        if (slave >= 0) {
            ::ioctl(slave, TIOCNXCL);
            makeRaw(slave);
            ::tcflush(slave, TCIOFLUSH);
        }
        uint8_t buf[4096];
        while (io >= 0 && ::read(io, buf, sizeof buf) > 0) {
        }
        decoder.reset();
        out.clear();
        outPos = 0;
        delayed.clear();
    }

    void lineLost(TimePoint now) {
        // A real port went away (unplugged, or its other side closed): retry.
        closeFd(io);
        setConnected(false);
        out.clear();
        outPos = 0;
        delayed.clear();
        reopenAt = now + kReopenInterval;
    }

    void doHangUp() {
        hungUp = true;
        closeTerminal();
    }

    // --- output ---------------------------------------------------------------

    std::size_t pending() const {
        return out.size() - outPos;
    }

    void queue(const Bytes& bytes) {
        if (io < 0 || pending() + bytes.size() > kMaxPending) return;
        if (outPos > 0 && outPos == out.size()) {
            out.clear();
            outPos = 0;
        }
        out.insert(out.end(), bytes.begin(), bytes.end());
    }

    void flush(TimePoint now) {
        while (io >= 0 && pending() > 0) {
            const ssize_t n = ::write(io, out.data() + outPos, pending());
            if (n > 0) {
                outPos += static_cast<std::size_t>(n);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
            if (!options.port.empty()) lineLost(now);
            break;
        }
        if (outPos == out.size()) {
            out.clear();
            outPos = 0;
        } else if (outPos > 65536) {
            out.erase(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(outPos));
            outPos = 0;
        }
    }

    void appendFrame(Bytes& to, const DevicePacket& packet, bool corrupt, const Faults& f) const {
        Bytes raw = buildPacket(packet.messageId, packet.responseId, packet.data);
        if (corrupt) raw.back() ^= 0x5A;
        if (options.verbose)
            std::fprintf(stderr, "tarvel-sim: device %s%s\n", hex(raw).c_str(), corrupt ? " (checksum spoilt)" : "");
        if (f.garbageBeforeFrames) to.insert(to.end(), std::begin(kGarbage), std::end(kGarbage));
        Bytes frame = slipEncode(raw);
        if (f.cutFrames) frame.insert(frame.begin() + 1, std::begin(kCutJunk), std::end(kCutJunk));
        to.insert(to.end(), frame.begin(), frame.end());
    }

    Faults currentFaults() {
        std::lock_guard<std::mutex> lock(faultMutex);
        if (seenGeneration != faultGeneration) {
            seenGeneration = faultGeneration;
            answerCount = 0;
            floodStart = SteadyClock::now();
            floodSent = 0;
        }
        return faults;
    }

    void sendAnswers(const std::vector<DevicePacket>& answers, TimePoint now, const Faults& f) {
        for (const DevicePacket& packet : answers) {
            if (f.silent) continue;
            ++answerCount;
            if (f.dropEvery && answerCount % f.dropEvery == 0) {
                if (options.verbose)
                    std::fprintf(stderr, "tarvel-sim: answer %llu dropped\n",
                                 static_cast<unsigned long long>(answerCount));
                continue;
            }
            Bytes bytes;
            if (f.hwErrorBeforeAnswer) appendFrame(bytes, {0, response::TARVEL_HW_ERROR, {}}, false, f);
            appendFrame(bytes, packet, f.corruptEvery && answerCount % f.corruptEvery == 0, f);
            if (f.answerDelayMs > 0 || !delayed.empty()) {
                TimePoint due = now + std::chrono::milliseconds(f.answerDelayMs);
                if (!delayed.empty()) due = std::max(due, delayed.back().due);
                delayed.push_back({due, std::move(bytes)});
            } else {
                queue(bytes);
            }
        }
    }

    bool canReport(TimePoint now, const Faults& f) const {
        return io >= 0 && hostConnected && !f.silent && now >= bootEnd;
    }

    void sendReports(const std::vector<DevicePacket>& reports, TimePoint now, const Faults& f) {
        if (reports.empty() || !canReport(now, f)) return;
        Bytes bytes;
        for (const DevicePacket& p : reports)
            appendFrame(bytes, p, false, f);
        queue(bytes);
    }

    void putOnBus(const std::vector<BusFrame>& bus, TimePoint now, const Faults& f) {
        if (bus.empty()) return;
        std::vector<DevicePacket> reports;
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            for (const BusFrame& frame : bus)
                model.reportsFor(frame, reports);
        }
        sendReports(reports, now, f);
    }

    void flood(TimePoint now, const Faults& f) {
        if (!canReport(now, f)) return;
        uint64_t count = 0;
        if (f.floodMax) {
            if (pending() == 0) count = kFloodBatch;
        } else if (f.floodPerSecond > 0) {
            const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now - floodStart).count();
            const uint64_t due = static_cast<uint64_t>(us) * f.floodPerSecond / 1000000;
            if (due > floodSent) {
                count = pending() < kFloodLowWater ? std::min(due - floodSent, kFloodBurst) : 0;
                floodSent = due; // what the line could not take is skipped, not queued
            }
        }
        if (count == 0) return;
        std::vector<DevicePacket> reports;
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            for (uint64_t i = 0; i < count; ++i)
                reports.push_back(model.floodReport(floodNumber++));
        }
        sendReports(reports, now, f);
    }

    // --- input ----------------------------------------------------------------

    void logPacket(HostPacket packet) {
        {
            std::lock_guard<std::mutex> lock(logMutex);
            log.push_back(std::move(packet));
        }
        logCv.notify_all();
    }

    void onBadFrame(uint8_t responseId, TimePoint now) {
        if (now < bootEnd) return;
        const Bytes& frame = decoder.frame();
        const uint8_t id = frame.size() >= 2 ? frame[1] : 0;
        if (options.verbose) std::fprintf(stderr, "tarvel-sim: host   %s (rejected)\n", hex(frame).c_str());
        sendAnswers({{id, responseId, {}}}, now, currentFaults());
    }

    void onFrame(const Bytes& frame, TimePoint now) {
        if (checkPacket(frame) != PacketCheck::Ok) {
            onBadFrame(response::PACKET_ERROR, now);
            return;
        }
        HostPacket packet;
        packet.messageId = frame[1];
        packet.command = frame[2];
        packet.payload.assign(frame.begin() + 3, frame.end() - 2);
        packet.raw = frame;
        if (options.verbose) std::fprintf(stderr, "tarvel-sim: host   %s\n", hex(frame).c_str());

        if (now < bootEnd) { // restarting: heard, not served
            logPacket(std::move(packet));
            return;
        }
        const Faults f = currentFaults();
        if (f.failCommand == packet.command) {
            sendAnswers({{packet.messageId, f.failResponse, {}}}, now, f);
            logPacket(std::move(packet));
            return;
        }
        std::shared_ptr<Responder> hook;
        {
            std::lock_guard<std::mutex> lock(responderMutex);
            hook = responder;
        }
        if (hook && *hook) {
            if (auto answers = (*hook)(packet)) {
                sendAnswers(*answers, now, f);
                logPacket(std::move(packet));
                return;
            }
        }
        std::vector<BusFrame> bus;
        DeviceModel::Outcome outcome;
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            outcome = model.execute(packet, now, bus);
        }
        sendAnswers(outcome.answers, now, f);
        if (outcome.restart) {
            {
                std::lock_guard<std::mutex> lock(stateMutex);
                model.restart(now);
                bootEnd = now + std::chrono::milliseconds(options.bootTimeMs);
            }
            flush(now); // the answer, queued before, leaves before anything else
        } else {
            putOnBus(bus, now, f);
        }
        logPacket(std::move(packet));
    }

    void readInput(TimePoint now) {
        uint8_t buf[4096];
        for (;;) {
            const ssize_t n = ::read(io, buf, sizeof buf);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
            if (n <= 0) {
                if (!options.port.empty()) lineLost(now);
                return;
            }
            if (!hostConnected) setConnected(true); // someone writes, whatever the events said
            for (ssize_t i = 0; i < n; ++i) {
                switch (decoder.feed(buf[i])) {
                case SlipDecoder::Event::None: break;
                case SlipDecoder::Event::Frame: onFrame(decoder.frame(), now); break;
                case SlipDecoder::Event::BadEscape: onBadFrame(response::SLIP_PROTO_ERROR, now); break;
                case SlipDecoder::Event::TooLong: onBadFrame(response::PACKET_ERROR, now); break;
                }
                if (io < 0) return; // hung up by a responder
            }
            flush(now);
            if (static_cast<std::size_t>(n) < sizeof buf) return;
        }
    }

    // --- the serving thread ----------------------------------------------------

    void wake() const {
        const uint8_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(wakeWrite, &one, 1);
    }

    void post(std::function<void()> action) {
        {
            std::lock_guard<std::mutex> lock(actionMutex);
            actions.push_back(std::move(action));
        }
        wake();
    }

    bool runActions() {
        uint8_t buf[64];
        while (::read(wakeRead, buf, sizeof buf) > 0) {
        }
        std::vector<std::function<void()>> todo;
        {
            std::lock_guard<std::mutex> lock(actionMutex);
            if (stopRequested) return false;
            todo.swap(actions);
        }
        for (auto& action : todo)
            action();
        return true;
    }

    int timeout(TimePoint now, const Faults& f) {
        TimePoint next = now + std::chrono::seconds(60);
        if (!delayed.empty()) next = std::min(next, delayed.front().due);
        if (now < bootEnd) next = std::min(next, bootEnd);
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (auto t = model.nextTransmission()) next = std::min(next, *t);
        }
        if (canReport(now, f)) {
            if (f.floodMax && pending() == 0) return 0;
            if (!f.floodMax && f.floodPerSecond > 0)
                next = std::min(next,
                                floodStart + std::chrono::microseconds((floodSent + 1) * 1000000 / f.floodPerSecond));
        }
        if (io < 0 && !options.port.empty() && !hungUp) next = std::min(next, reopenAt);
        return msUntil(now, next);
    }

    void run() {
        running = true;
        for (;;) {
            TimePoint now = SteadyClock::now();
            Faults f = currentFaults();
            pollfd fds[3];
            nfds_t count = 0;
            fds[count++] = {wakeRead, POLLIN, 0};
            const nfds_t ioIndex = count;
            if (io >= 0) fds[count++] = {io, static_cast<short>(POLLIN | (pending() ? POLLOUT : 0)), 0};
            if (watch >= 0) fds[count++] = {watch, POLLIN, 0};
            const int ready = ::poll(fds, count, timeout(now, f));
            if (ready < 0 && errno != EINTR) break;

            // Connection events first: they happened before anything a new
            // host wrote or a test posted after opening the terminal.
            drainWatch();
            if (!runActions()) break;
            now = SteadyClock::now();
            f = currentFaults();
            if (io < 0 && !options.port.empty() && !hungUp && now >= reopenAt) {
                if (!openPort(true)) reopenAt = now + kReopenInterval;
            }
            if (io >= 0 && ioIndex < count && (fds[ioIndex].revents & (POLLIN | POLLHUP | POLLERR))) readInput(now);
            if (io >= 0 && ioIndex < count && (fds[ioIndex].revents & POLLNVAL) && !options.port.empty()) lineLost(now);

            now = SteadyClock::now();
            while (!delayed.empty() && delayed.front().due <= now) {
                queue(delayed.front().bytes);
                delayed.pop_front();
            }
            if (now >= bootEnd) {
                std::vector<BusFrame> bus;
                {
                    std::lock_guard<std::mutex> lock(stateMutex);
                    model.transmitDue(now, bus);
                }
                putOnBus(bus, now, f);
            }
            flood(now, f);
            flush(now);
        }
        running = false;
    }
};

// --- public face ----------------------------------------------------------------

Simulator::Simulator(Options options) : m_impl(std::make_unique<Impl>(std::move(options))) {}

Simulator::~Simulator() {
    stop();
}

bool Simulator::start() {
    Impl& d = *m_impl;
    if (d.thread.joinable()) {
        d.setError("already started");
        return false;
    }
    d.setError("");
    if (!d.options.eepromFile.empty()) {
        std::string e;
        std::lock_guard<std::mutex> lock(d.stateMutex);
        if (!d.model.openEepromFile(d.options.eepromFile, e)) {
            d.error = e;
            return false;
        }
    }
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) {
        d.setError(std::string("pipe: ") + std::strerror(errno));
        return false;
    }
    for (int fd : pipeFds) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    d.wakeRead = pipeFds[0];
    d.wakeWrite = pipeFds[1];
    d.hungUp = false;
    {
        std::lock_guard<std::mutex> lock(d.actionMutex);
        d.stopRequested = false;
        d.actions.clear();
    }
    d.abandonScan = false;
    d.rescan = false;
    d.decoder.reset();
    if (!d.options.port.empty()) d.path = d.options.port;
    const bool opened = d.options.port.empty() ? d.openPty() : d.openPort(false);
    if (!opened || !d.makeLink()) {
        d.closeTerminal();
        closeFd(d.wakeRead);
        closeFd(d.wakeWrite);
        return false;
    }
    d.thread = std::thread([&d] { d.run(); });
    return true;
}

void Simulator::stop() {
    Impl& d = *m_impl;
    if (!d.thread.joinable()) return;
    if (d.thread.get_id() == std::this_thread::get_id()) return; // from a responder: can't join itself
    {
        std::lock_guard<std::mutex> lock(d.actionMutex);
        d.stopRequested = true;
        d.actions.clear();
    }
    d.wake();
    d.thread.join();
    d.abandonScan = true;
    if (d.scanner.joinable()) d.scanner.join();
    {
        std::lock_guard<std::mutex> lock(d.actionMutex);
        d.actions.clear(); // a finished scan's verdict, among others
    }
    d.closeTerminal();
    d.removeLink();
    closeFd(d.wakeRead);
    closeFd(d.wakeWrite);
}

std::string Simulator::portPath() const {
    return m_impl->path;
}

std::string Simulator::lastError() const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return m_impl->error;
}

void Simulator::setFaults(const Faults& faults) {
    {
        std::lock_guard<std::mutex> lock(m_impl->faultMutex);
        m_impl->faults = faults;
        ++m_impl->faultGeneration;
    }
    if (m_impl->thread.joinable()) m_impl->wake(); // a flood may start now
}

Faults Simulator::faults() const {
    std::lock_guard<std::mutex> lock(m_impl->faultMutex);
    return m_impl->faults;
}

void Simulator::setResponder(Responder responder) {
    auto hook = responder ? std::make_shared<Responder>(std::move(responder)) : nullptr;
    std::lock_guard<std::mutex> lock(m_impl->responderMutex);
    m_impl->responder = std::move(hook);
}

void Simulator::injectFrame(const BusFrame& frame) {
    if (!m_impl->thread.joinable()) return;
    BusFrame f = frame;
    f.channel &= 3;
    if (f.data.size() > 64) f.data.resize(64);
    f.data.resize(dlcToLength(lengthToDlc(f.data.size())), 0);
    Impl* d = m_impl.get();
    d->post([d, f] {
        const TimePoint now = SteadyClock::now();
        d->putOnBus({f}, now, d->currentFaults());
        d->flush(now);
    });
}

void Simulator::sendRaw(const Bytes& bytes) {
    if (!m_impl->thread.joinable()) return;
    Impl* d = m_impl.get();
    d->post([d, bytes] {
        d->queue(bytes);
        d->flush(SteadyClock::now());
    });
}

void Simulator::sendPacket(const DevicePacket& packet) {
    sendRaw(slipEncode(buildPacket(packet.messageId, packet.responseId, packet.data)));
}

std::vector<HostPacket> Simulator::hostPackets() const {
    std::lock_guard<std::mutex> lock(m_impl->logMutex);
    return m_impl->log;
}

std::size_t Simulator::hostPacketCount() const {
    std::lock_guard<std::mutex> lock(m_impl->logMutex);
    return m_impl->log.size();
}

void Simulator::clearLog() {
    std::lock_guard<std::mutex> lock(m_impl->logMutex);
    m_impl->log.clear();
}

bool Simulator::waitForPackets(std::size_t n, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(m_impl->logMutex);
    return m_impl->logCv.wait_for(lock, std::chrono::milliseconds(std::max(timeoutMs, 0)),
                                  [&] { return m_impl->log.size() >= n; });
}

uint32_t Simulator::clock() const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return m_impl->model.clock(SteadyClock::now());
}

Bytes Simulator::eeprom(uint16_t address, std::size_t length) const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return m_impl->model.eeprom(address, length);
}

std::size_t Simulator::messageCount() const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return m_impl->model.messageCount();
}

std::size_t Simulator::requestCount() const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return m_impl->model.requestCount();
}

bool Simulator::hostConnected() const {
    return m_impl->connectedMirror;
}

bool Simulator::booting() const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return SteadyClock::now() < m_impl->bootEnd;
}

void Simulator::hangUp() {
    Impl& d = *m_impl;
    if (!d.thread.joinable() || d.thread.get_id() == std::this_thread::get_id()) {
        d.doHangUp();
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    Impl* p = &d;
    d.post([p, done] {
        p->doHangUp();
        done->set_value();
    });
    finished.wait_for(std::chrono::seconds(5));
}

} // namespace tarvelsim
