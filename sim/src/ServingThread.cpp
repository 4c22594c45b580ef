// The serving thread: one poll loop over the terminal, its open/close events
// and the mailbox; every timer (periodic transmissions, delayed answers,
// floods, end of boot, reopening a port) is a poll time-out.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "SimulatorImpl.h"
#include "TrafficLog.h"

namespace tarvelsim {

namespace {

int msUntil(TimePoint now, TimePoint due) {
    if (due <= now) return 0;
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(due - now).count();
    return static_cast<int>(std::min<long long>((us + 999) / 1000, 60000));
}

} // namespace

bool Simulator::Impl::canReport(TimePoint now, const Faults& f) const {
    return terminal.fd() >= 0 && terminal.hostConnected() && !f.silent && now >= bootEnd;
}

void Simulator::Impl::putOnBus(const std::vector<BusFrame>& bus, TimePoint now, const Faults& f) {
    if (bus.empty()) return;
    std::shared_ptr<BusObserver> observer;
    {
        std::lock_guard<std::mutex> lock(hookMutex);
        observer = busObserver;
    }
    for (const BusFrame& frame : bus) {
        const auto when = std::chrono::system_clock::now();
        busLog.write(frame, when);
        if (observer) (*observer)(frame, when);
    }
    std::vector<DevicePacket> reports;
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        for (const BusFrame& frame : bus)
            model.reportsFor(frame, reports);
    }
    if (canReport(now, f)) line.sendReports(reports, f);
}

void Simulator::Impl::flood(TimePoint now, const Faults& f) {
    if (!canReport(now, f)) return;
    uint32_t number = 0;
    const uint64_t count = line.takeFloodReports(now, f, number);
    if (count == 0) return;
    std::vector<DevicePacket> reports;
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        for (uint64_t i = 0; i < count; ++i)
            reports.push_back(model.floodReport(number++));
    }
    line.sendReports(reports, f);
}

void Simulator::Impl::logPacket(HostPacket packet) {
    {
        std::lock_guard<std::mutex> lock(logMutex);
        log.push_back(std::move(packet));
    }
    logCv.notify_all();
}

void Simulator::Impl::onBadFrame(uint8_t responseId, TimePoint now) {
    if (now < bootEnd) return;
    const Bytes& frame = decoder.frame();
    const uint8_t id = frame.size() >= 2 ? frame[1] : 0;
    if (options.verbose) logTraffic("host", frame, " (rejected)");
    line.sendAnswers({{id, responseId, {}}}, now, line.current());
}

void Simulator::Impl::onFrame(const Bytes& frame, TimePoint now) {
    if (checkPacket(frame) != PacketCheck::Ok) {
        onBadFrame(response::PACKET_ERROR, now);
        return;
    }
    HostPacket packet;
    packet.messageId = frame[1];
    packet.command = frame[2];
    packet.payload.assign(frame.begin() + 3, frame.end() - 2);
    packet.raw = frame;
    if (options.verbose) logTraffic("host", frame);

    if (now < bootEnd) { // restarting: heard, not served
        logPacket(std::move(packet));
        return;
    }
    const Faults f = line.current();
    if (f.failCommand == packet.command) {
        line.sendAnswers({{packet.messageId, f.failResponse, {}}}, now, f);
        logPacket(std::move(packet));
        return;
    }
    std::shared_ptr<Responder> hook;
    {
        std::lock_guard<std::mutex> lock(hookMutex);
        hook = responder;
    }
    if (hook && *hook) {
        if (auto answers = (*hook)(packet)) {
            line.sendAnswers(*answers, now, f);
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
    line.sendAnswers(outcome.answers, now, f);
    if (outcome.restart) {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            model.restart(now);
            bootEnd = now + std::chrono::milliseconds(options.bootTimeMs);
        }
        line.flush(now); // the answer, queued before, leaves before anything else
    } else {
        putOnBus(bus, now, f);
    }
    logPacket(std::move(packet));
}

void Simulator::Impl::readInput(TimePoint now) {
    uint8_t buf[4096];
    for (;;) {
        const ssize_t n = ::read(terminal.fd(), buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (n <= 0) {
            if (terminal.isPort()) terminal.lineLost(now);
            return;
        }
        terminal.hostSeen();
        for (ssize_t i = 0; i < n; ++i) {
            switch (decoder.feed(buf[i])) {
            case SlipDecoder::Event::None: break;
            case SlipDecoder::Event::Frame: onFrame(decoder.frame(), now); break;
            case SlipDecoder::Event::BadEscape: onBadFrame(response::SLIP_PROTO_ERROR, now); break;
            case SlipDecoder::Event::TooLong: onBadFrame(response::PACKET_ERROR, now); break;
            }
            if (terminal.fd() < 0) return; // hung up by a responder
        }
        line.flush(now);
        if (static_cast<std::size_t>(n) < sizeof buf) return;
    }
}

int Simulator::Impl::timeout(TimePoint now, const Faults& f) {
    TimePoint next = now + std::chrono::seconds(60);
    if (auto t = line.nextDue(now, f, canReport(now, f))) next = std::min(next, *t);
    if (now < bootEnd) next = std::min(next, bootEnd);
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        if (auto t = model.nextTransmission()) next = std::min(next, *t);
    }
    if (auto t = terminal.reopenDue()) next = std::min(next, *t);
    return msUntil(now, next);
}

void Simulator::Impl::run() {
    for (;;) {
        TimePoint now = SteadyClock::now();
        Faults f = line.current();
        pollfd fds[3];
        nfds_t count = 0;
        fds[count++] = {mailbox.fd(), POLLIN, 0};
        const nfds_t ioIndex = count;
        if (terminal.fd() >= 0)
            fds[count++] = {terminal.fd(), static_cast<short>(POLLIN | (line.pending() ? POLLOUT : 0)), 0};
        if (terminal.watchFd() >= 0) fds[count++] = {terminal.watchFd(), POLLIN, 0};
        const int ready = ::poll(fds, count, timeout(now, f));
        if (ready < 0 && errno != EINTR) break;

        // Connection events first: they happened before anything a new
        // host wrote or a test posted after opening the terminal.
        terminal.drainWatch();
        if (!mailbox.runPosted()) break;
        now = SteadyClock::now();
        f = line.current();
        terminal.reopenIfDue(now);
        const bool polled = terminal.fd() >= 0 && ioIndex < count;
        if (polled && (fds[ioIndex].revents & (POLLIN | POLLHUP | POLLERR))) readInput(now);
        if (polled && terminal.fd() >= 0 && (fds[ioIndex].revents & POLLNVAL) && terminal.isPort())
            terminal.lineLost(now);

        now = SteadyClock::now();
        line.releaseDelayed(now);
        if (now >= bootEnd) {
            std::vector<BusFrame> bus;
            {
                std::lock_guard<std::mutex> lock(stateMutex);
                model.transmitDue(now, bus);
            }
            putOnBus(bus, now, f);
        }
        flood(now, f);
        line.flush(now);
    }
}

} // namespace tarvelsim
