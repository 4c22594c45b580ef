#include "OutgoingLine.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "Terminal.h"
#include "TrafficLog.h"

namespace tarvelsim {

namespace {

constexpr std::size_t kMaxPending = std::size_t(1) << 20; // bytes the host has not taken yet
constexpr std::size_t kFloodLowWater = 4096;              // rate floods pause above this backlog
constexpr unsigned kFloodBatch = 16;                      // reports per refill when flooding flat out
constexpr uint64_t kFloodBurst = 1000;                    // rate flood: most reports per wake-up
const uint8_t kGarbage[] = {0x55, 0xAA, 0x13};
const uint8_t kCutJunk[] = {0x01, 0x02, 0x03, slip::ESC, slip::ESC_BRK};

} // namespace

OutgoingLine::OutgoingLine(Terminal& terminal, const Faults& faults, bool logTraffic)
    : m_terminal(terminal), m_logTraffic(logTraffic), m_faults(faults) {}

void OutgoingLine::setFaults(const Faults& faults) {
    std::lock_guard<std::mutex> lock(m_faultMutex);
    m_faults = faults;
    ++m_faultGeneration;
}

Faults OutgoingLine::faults() const {
    std::lock_guard<std::mutex> lock(m_faultMutex);
    return m_faults;
}

Faults OutgoingLine::current() {
    std::lock_guard<std::mutex> lock(m_faultMutex);
    if (m_seenGeneration != m_faultGeneration) {
        m_seenGeneration = m_faultGeneration;
        m_answerCount = 0;
        m_floodStart = std::chrono::steady_clock::now();
        m_floodSent = 0;
    }
    return m_faults;
}

void OutgoingLine::appendFrame(Bytes& to, const DevicePacket& packet, bool corrupt, const Faults& f) const {
    Bytes raw = buildPacket(packet.messageId, packet.responseId, packet.data);
    if (corrupt) raw.back() ^= 0x5A;
    if (m_logTraffic) logTraffic("device", raw, corrupt ? " (checksum spoilt)" : "");
    if (f.garbageBeforeFrames) to.insert(to.end(), std::begin(kGarbage), std::end(kGarbage));
    Bytes frame = slipEncode(raw);
    if (f.cutFrames) frame.insert(frame.begin() + 1, std::begin(kCutJunk), std::end(kCutJunk));
    to.insert(to.end(), frame.begin(), frame.end());
}

void OutgoingLine::sendAnswers(const std::vector<DevicePacket>& answers, TimePoint now, const Faults& f) {
    for (const DevicePacket& packet : answers) {
        if (f.silent) continue;
        ++m_answerCount;
        if (f.dropEvery && m_answerCount % f.dropEvery == 0) {
            if (m_logTraffic)
                std::fprintf(stderr, "tarvel-sim: answer %llu dropped\n",
                             static_cast<unsigned long long>(m_answerCount));
            continue;
        }
        Bytes bytes;
        if (f.hwErrorBeforeAnswer) appendFrame(bytes, {0, response::TARVEL_HW_ERROR, {}}, false, f);
        appendFrame(bytes, packet, f.corruptEvery && m_answerCount % f.corruptEvery == 0, f);
        if (f.answerDelayMs > 0 || !m_delayed.empty()) { // answers keep their order
            TimePoint due = now + std::chrono::milliseconds(f.answerDelayMs);
            if (!m_delayed.empty()) due = std::max(due, m_delayed.back().due);
            m_delayed.push_back({due, std::move(bytes)});
        } else {
            queue(bytes);
        }
    }
}

void OutgoingLine::sendReports(const std::vector<DevicePacket>& reports, const Faults& f) {
    if (reports.empty()) return;
    Bytes bytes;
    for (const DevicePacket& p : reports)
        appendFrame(bytes, p, false, f);
    queue(bytes);
}

void OutgoingLine::queue(const Bytes& bytes) {
    if (m_terminal.fd() < 0 || pending() + bytes.size() > kMaxPending) return;
    if (m_outPos > 0 && m_outPos == m_out.size()) {
        m_out.clear();
        m_outPos = 0;
    }
    m_out.insert(m_out.end(), bytes.begin(), bytes.end());
}

void OutgoingLine::releaseDelayed(TimePoint now) {
    while (!m_delayed.empty() && m_delayed.front().due <= now) {
        queue(m_delayed.front().bytes);
        m_delayed.pop_front();
    }
}

uint64_t OutgoingLine::takeFloodReports(TimePoint now, const Faults& f, uint32_t& firstNumber) {
    uint64_t count = 0;
    if (f.floodMax) {
        if (pending() == 0) count = kFloodBatch;
    } else if (f.floodPerSecond > 0) {
        const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now - m_floodStart).count();
        const uint64_t due = static_cast<uint64_t>(us) * f.floodPerSecond / 1000000;
        if (due > m_floodSent) {
            count = pending() < kFloodLowWater ? std::min(due - m_floodSent, kFloodBurst) : 0;
            m_floodSent = due; // what the line could not take is skipped, not queued
        }
    }
    firstNumber = m_floodNumber;
    m_floodNumber += static_cast<uint32_t>(count);
    return count;
}

std::optional<OutgoingLine::TimePoint> OutgoingLine::nextDue(TimePoint now, const Faults& f, bool reporting) const {
    std::optional<TimePoint> next;
    if (!m_delayed.empty()) next = m_delayed.front().due;
    if (reporting) {
        if (f.floodMax && pending() == 0) return now;
        if (!f.floodMax && f.floodPerSecond > 0) {
            const TimePoint flood =
                m_floodStart + std::chrono::microseconds((m_floodSent + 1) * 1000000 / f.floodPerSecond);
            next = next ? std::min(*next, flood) : flood;
        }
    }
    return next;
}

void OutgoingLine::flush(TimePoint now) {
    while (m_terminal.fd() >= 0 && pending() > 0) {
        const ssize_t n = ::write(m_terminal.fd(), m_out.data() + m_outPos, pending());
        if (n > 0) {
            m_outPos += static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        if (m_terminal.isPort()) m_terminal.lineLost(now);
        break;
    }
    if (m_outPos == m_out.size()) {
        m_out.clear();
        m_outPos = 0;
    } else if (m_outPos > 65536) {
        m_out.erase(m_out.begin(), m_out.begin() + static_cast<std::ptrdiff_t>(m_outPos));
        m_outPos = 0;
    }
}

void OutgoingLine::clear() {
    m_out.clear();
    m_outPos = 0;
    m_delayed.clear();
}

} // namespace tarvelsim
