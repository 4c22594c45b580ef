// The report queue: every report in arrival order, bounded, with waiters.
// The receiver appends; callers take from the front. Internal.
#ifndef TARVEL_SESSION_REPORT_QUEUE_H
#define TARVEL_SESSION_REPORT_QUEUE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

#include "TarvelBase.h"

namespace tarvel {
namespace session {

class ReportQueue {
public:
    static constexpr std::size_t kDefaultCapacity = 4096;

    // Appends; a full queue drops its oldest report first. Returns the
    // number of reports dropped (0 or 1; 0 also when the queue is off).
    std::size_t push(const TarvelReport& report);
    // Changes the capacity (0: off, nothing is kept); a smaller one drops
    // the oldest reports. Returns how many were dropped.
    std::size_t setCapacity(std::size_t capacity);
    // Takes up to `max` reports from the front into `out`, waiting up to
    // `timeout` for the first. `ended` is asked when the queue is empty: a
    // true answer ends the wait at once. The number taken (0 on time-out),
    // or -1 when `ended` said so and nothing was queued.
    int take(TarvelReport* out, std::size_t max, std::chrono::milliseconds timeout, const std::function<bool()>& ended);
    // Wakes every waiter to look at `ended` again.
    void wakeAll();
    bool enabled() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::deque<TarvelReport> m_reports;
    std::size_t m_capacity = kDefaultCapacity;
};

} // namespace session
} // namespace tarvel

#endif
