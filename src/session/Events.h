// What the session keeps for reception as events: the report queue, the
// callback, the identities of its requests, the latest full report of each
// key, and the statistics. Internal.
#ifndef TARVEL_SESSION_EVENTS_H
#define TARVEL_SESSION_EVENTS_H

#include <chrono>
#include <cstdint>
#include <unordered_map>

#include "TarvelBase.h"
#include "session/ReportDelivery.h"
#include "session/ReportQueue.h"
#include "session/RequestRecord.h"
#include "session/Statistics.h"

namespace tarvel {
namespace session {

struct Events {
    ReportQueue queue;
    ReportDelivery delivery;
    Statistics stats;
    // Guarded by the session's async map mutex, like the map itself.
    RequestRecord requests;
    std::unordered_map<uint32_t, TarvelReport> latest; // key as the async map's
};

// Microseconds since the Unix epoch.
inline uint64_t wallClockUs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

} // namespace session
} // namespace tarvel

#endif
