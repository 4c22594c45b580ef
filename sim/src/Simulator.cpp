// The public face: starting and stopping the serving thread, and what other
// threads may ask of it or hand to it.
#include "tarvelsim/Simulator.h"

#include <algorithm>
#include <future>

#include "SimulatorImpl.h"

namespace tarvelsim {

Simulator::Impl::Impl(Options o)
    : options(std::move(o)), model(options.versionStatus, options.capacity, SteadyClock::now()),
      line(terminal, options.faults, options.verbose),
      terminal(
          options.port, [this](std::function<void()> action) { mailbox.post(std::move(action)); },
          [this] {
              decoder.reset();
              line.clear();
          }) {}

void Simulator::Impl::setError(const std::string& e) {
    std::lock_guard<std::mutex> lock(stateMutex);
    error = e;
}

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
    std::string e;
    if (!d.options.eepromFile.empty()) {
        std::lock_guard<std::mutex> lock(d.stateMutex);
        if (!d.model.openEepromFile(d.options.eepromFile, e)) {
            d.error = e;
            return false;
        }
    }
    if (!d.mailbox.open(e)) {
        d.setError(e);
        return false;
    }
    d.decoder.reset();
    // The bus log last: a simulator refused its link must not start another's log afresh.
    if (!d.terminal.open(e) || (!d.options.link.empty() && !d.link.make(d.options.link, d.terminal.path(), e)) ||
        (!d.options.busLog.empty() && !d.busLog.open(d.options.busLog, e))) {
        d.setError(e);
        d.link.remove();
        d.terminal.close();
        d.mailbox.close();
        return false;
    }
    d.thread = std::thread([&d] { d.run(); });
    return true;
}

void Simulator::stop() {
    Impl& d = *m_impl;
    if (!d.thread.joinable()) return;
    if (d.thread.get_id() == std::this_thread::get_id()) return; // from a responder: can't join itself
    d.mailbox.requestStop();
    d.thread.join();
    d.terminal.abandonScan();
    d.mailbox.clear(); // a finished scan's verdict, among others
    d.terminal.close();
    d.link.remove();
    d.mailbox.close();
    d.busLog.close();
}

std::string Simulator::portPath() const {
    return m_impl->terminal.path();
}

std::string Simulator::lastError() const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return m_impl->error;
}

void Simulator::setFaults(const Faults& faults) {
    m_impl->line.setFaults(faults);
    if (m_impl->thread.joinable()) m_impl->mailbox.wake(); // a flood may start now
}

Faults Simulator::faults() const {
    return m_impl->line.faults();
}

void Simulator::setResponder(Responder responder) {
    auto hook = responder ? std::make_shared<Responder>(std::move(responder)) : nullptr;
    std::lock_guard<std::mutex> lock(m_impl->hookMutex);
    m_impl->responder = std::move(hook);
}

void Simulator::setBusObserver(BusObserver observer) {
    auto hook = observer ? std::make_shared<BusObserver>(std::move(observer)) : nullptr;
    std::lock_guard<std::mutex> lock(m_impl->hookMutex);
    m_impl->busObserver = std::move(hook);
}

void Simulator::injectFrame(const BusFrame& frame) {
    if (!m_impl->thread.joinable()) return;
    BusFrame f = frame;
    f.channel &= 3;
    f.id &= 0x1FFFFFFFu;
    if (f.data.size() > 64) f.data.resize(64);
    f.data.resize(dlcToLength(lengthToDlc(f.data.size())), 0);
    Impl* d = m_impl.get();
    d->mailbox.post([d, f] {
        const TimePoint now = SteadyClock::now();
        d->putOnBus({f}, now, d->line.current());
        d->line.flush(now);
    });
}

void Simulator::sendRaw(const Bytes& bytes) {
    if (!m_impl->thread.joinable()) return;
    Impl* d = m_impl.get();
    d->mailbox.post([d, bytes] {
        d->line.queue(bytes);
        d->line.flush(SteadyClock::now());
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
    return m_impl->terminal.hostConnectedAnyThread();
}

bool Simulator::booting() const {
    std::lock_guard<std::mutex> lock(m_impl->stateMutex);
    return SteadyClock::now() < m_impl->bootEnd;
}

void Simulator::hangUp() {
    Impl& d = *m_impl;
    if (!d.thread.joinable() || d.thread.get_id() == std::this_thread::get_id()) {
        d.terminal.close();
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    Impl* p = &d;
    d.mailbox.post([p, done] {
        p->terminal.close();
        done->set_value();
    });
    finished.wait_for(std::chrono::seconds(5));
}

} // namespace tarvelsim
