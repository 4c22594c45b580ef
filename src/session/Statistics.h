// The session's counters: relaxed atomics, bumped on the hot paths (one
// increment per frame, never per byte), read and reset by callers. Internal.
#ifndef TARVEL_SESSION_STATISTICS_H
#define TARVEL_SESSION_STATISTICS_H

#include <atomic>
#include <cstdint>

#include "TarvelBase.h"

namespace tarvel {
namespace session {

class Counter {
public:
    void add(uint64_t n = 1) { m_value.fetch_add(n, std::memory_order_relaxed); }
    void set(uint64_t v) { m_value.store(v, std::memory_order_relaxed); }
    uint64_t get() const { return m_value.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> m_value{0};
};

// One counter per field of TarvelStatistics, in its order.
struct Statistics {
    Counter framesSent, bytesSent, framesReceived, bytesReceived;
    Counter rejectedSlip, rejectedLength, rejectedChecksum;
    Counter commandFailed, packetError, slipProtoError, hardwareError;
    Counter exchangesTimedOut, reportsReceived, reportsDropped, reportsBadChannel;
    Counter writesDropped, receiverEnded, lastReceivedUs;

    // Counts an error answer by its response identifier; false for others.
    bool countErrorAnswer(unsigned char responseId);
    TarvelStatistics snapshot() const;
    void reset();
};

} // namespace session
} // namespace tarvel

#endif
