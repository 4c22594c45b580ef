#include "session/ReportQueue.h"

namespace tarvel {
namespace session {

std::size_t ReportQueue::push(const TarvelReport& report) {
    std::size_t dropped = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_capacity == 0) return 0;
        if (m_reports.size() >= m_capacity) {
            m_reports.pop_front();
            dropped = 1;
        }
        m_reports.push_back(report);
    }
    m_arrived.notify_all();
    return dropped;
}

std::size_t ReportQueue::setCapacity(std::size_t capacity) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_capacity = capacity;
    std::size_t dropped = 0;
    while (m_reports.size() > capacity) {
        m_reports.pop_front();
        ++dropped;
    }
    return dropped;
}

int ReportQueue::take(TarvelReport* out, std::size_t max, std::chrono::milliseconds timeout,
                      const std::function<bool()>& ended) {
    std::unique_lock<std::mutex> lock(m_mutex);
    bool over = false;
    const auto ready = [&] {
        if (!m_reports.empty()) return true;
        over = ended();
        return over;
    };
    if (!ready() && timeout.count() > 0) m_arrived.wait_for(lock, timeout, ready);
    if (m_reports.empty()) return over ? -1 : 0;
    std::size_t n = 0;
    while (n < max && !m_reports.empty()) {
        out[n++] = m_reports.front();
        m_reports.pop_front();
    }
    return static_cast<int>(n);
}

void ReportQueue::wakeAll() {
    // Taken and dropped so that a waiter between its check and its wait
    // cannot miss the wake-up.
    { std::lock_guard<std::mutex> lock(m_mutex); }
    m_arrived.notify_all();
}

bool ReportQueue::enabled() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_capacity > 0;
}

} // namespace session
} // namespace tarvel
