// What the device sends to the host: answers and reports framed, queued and
// written as fast as the terminal takes them, with the faults applied (drop,
// corrupt, delay, garbage, cut frames, hardware errors, floods). Used on the
// serving thread, except the faults, which any thread may set.
#ifndef TARVELSIM_OUTGOING_LINE_H
#define TARVELSIM_OUTGOING_LINE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "tarvelsim/Simulator.h"

namespace tarvelsim {

class Terminal;

class OutgoingLine {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    OutgoingLine(Terminal& terminal, const Faults& faults, bool logTraffic);

    void setFaults(const Faults& faults); // any thread
    Faults faults() const;                // any thread
    // The faults in force; counters start again when they have changed.
    Faults current();

    // Answers go through every answer fault; reports only through the framing ones.
    void sendAnswers(const std::vector<DevicePacket>& answers, TimePoint now, const Faults& f);
    void sendReports(const std::vector<DevicePacket>& reports, const Faults& f);
    // Bytes as they are (dropped while the terminal is closed or the backlog is full).
    void queue(const Bytes& bytes);

    // Queues the delayed answers that are due.
    void releaseDelayed(TimePoint now);
    // Flood reports due now, numbered from firstNumber on (0: none).
    uint64_t takeFloodReports(TimePoint now, const Faults& f, uint32_t& firstNumber);
    // The next time something is due; reporting: reports may be sent.
    std::optional<TimePoint> nextDue(TimePoint now, const Faults& f, bool reporting) const;

    // Writes what the terminal takes without blocking.
    void flush(TimePoint now);
    std::size_t pending() const { return m_out.size() - m_outPos; }
    // Throws away everything not yet written.
    void clear();

private:
    void appendFrame(Bytes& to, const DevicePacket& packet, bool corrupt, const Faults& f) const;

    Terminal& m_terminal;
    const bool m_logTraffic;

    mutable std::mutex m_faultMutex;
    Faults m_faults;
    uint64_t m_faultGeneration = 0;
    uint64_t m_seenGeneration = ~uint64_t(0);

    Bytes m_out;
    std::size_t m_outPos = 0;
    struct Delayed {
        TimePoint due;
        Bytes bytes;
    };
    std::deque<Delayed> m_delayed;
    uint64_t m_answerCount = 0;
    TimePoint m_floodStart{};
    uint64_t m_floodSent = 0;
    uint32_t m_floodNumber = 0;
};

} // namespace tarvelsim

#endif
