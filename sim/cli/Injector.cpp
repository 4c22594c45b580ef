#include "Injector.h"

#include <algorithm>

namespace tarvelsim::cli {

Injector::Injector(Simulator& sim, std::vector<Injection> injections)
    : m_sim(sim), m_injections(std::move(injections)) {
    if (!m_injections.empty()) m_thread = std::thread([this] { run(); });
}

void Injector::stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_cv.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

void Injector::run() {
    using Clock = std::chrono::steady_clock;
    std::vector<Clock::time_point> due(m_injections.size(), Clock::now());
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stop) {
        const Clock::time_point now = Clock::now();
        for (std::size_t i = 0; i < m_injections.size(); ++i) {
            if (due[i] > now) continue;
            m_sim.injectFrame(m_injections[i].frame);
            due[i] += m_injections[i].period;
            if (due[i] <= now) due[i] = now + m_injections[i].period;
        }
        m_cv.wait_until(lock, *std::min_element(due.begin(), due.end()), [this] { return m_stop; });
    }
}

} // namespace tarvelsim::cli
