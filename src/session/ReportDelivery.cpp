#include "session/ReportDelivery.h"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace tarvel {
namespace session {

struct ReportDelivery::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<TarvelReport> pending;
    Callback callback;
    bool invoking = false;
    bool stop = false;
    std::thread::id thread;
};

ReportDelivery::ReportDelivery() : m_shared(std::make_shared<Shared>()) {}

ReportDelivery::~ReportDelivery() {
    {
        std::lock_guard<std::mutex> lock(m_shared->mutex);
        m_shared->stop = true;
    }
    m_shared->changed.notify_all();
    if (!m_thread.joinable()) return;
    // Destroyed from inside the callback: the thread can't wait for itself;
    // it ends on its own once the callback returns, and needs nothing of ours.
    if (onDeliveryThread())
        m_thread.detach();
    else
        m_thread.join();
}

void ReportDelivery::set(Callback callback) {
    std::unique_lock<std::mutex> lock(m_shared->mutex);
    const bool start = callback && !m_thread.joinable();
    m_shared->callback = std::move(callback);
    if (!m_shared->callback) m_shared->pending.clear();
    if (start) {
        m_thread = std::thread(run, m_shared);
        m_shared->thread = m_thread.get_id();
    }
    if (std::this_thread::get_id() != m_shared->thread)
        m_shared->changed.wait(lock, [this] { return !m_shared->invoking; });
}

bool ReportDelivery::active() const {
    std::lock_guard<std::mutex> lock(m_shared->mutex);
    return static_cast<bool>(m_shared->callback);
}

std::size_t ReportDelivery::deliver(const TarvelReport& report) {
    std::size_t dropped = 0;
    {
        std::lock_guard<std::mutex> lock(m_shared->mutex);
        if (!m_shared->callback) return 0;
        if (m_shared->pending.size() >= kBacklog) {
            m_shared->pending.pop_front();
            dropped = 1;
        }
        m_shared->pending.push_back(report);
    }
    m_shared->changed.notify_all();
    return dropped;
}

bool ReportDelivery::onDeliveryThread() const {
    std::lock_guard<std::mutex> lock(m_shared->mutex);
    return std::this_thread::get_id() == m_shared->thread;
}

void ReportDelivery::run(std::shared_ptr<Shared> shared) {
    std::unique_lock<std::mutex> lock(shared->mutex);
    for (;;) {
        shared->changed.wait(lock, [&] { return shared->stop || !shared->pending.empty(); });
        if (shared->stop) return;
        const TarvelReport report = shared->pending.front();
        shared->pending.pop_front();
        Callback callback = shared->callback;
        shared->invoking = true;
        lock.unlock();
        try {
            callback(report);
        } catch (...) {
            // A throwing callback must not end the thread; the report is done.
        }
        lock.lock();
        shared->invoking = false;
        shared->changed.notify_all();
    }
}

} // namespace session
} // namespace tarvel
