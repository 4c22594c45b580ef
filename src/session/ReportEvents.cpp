// Reception as events: the report queue, the report callback, the latest full
// report of a request, the statistics, and the settings for slow or noisy
// devices.
#include <algorithm>
#include <chrono>
#include <mutex>

#include "Tarvel.h"
#include "session/Events.h"

namespace {
const int kQueueOff = -2;
const int kReceiverStopped = -3;
const unsigned int kMaxAnswerWaitMs = 0xFFFF;
} // namespace

int Tarvel::SetReportQueue(unsigned int capacity) {
    m_events->stats.reportsDropped.add(m_events->queue.setCapacity(capacity));
    return 0;
}

int Tarvel::WaitReport(TarvelReport& report, unsigned int timeoutMs) {
    const int n = WaitReports(&report, 1, timeoutMs);
    return n > 0 ? 1 : n;
}

int Tarvel::WaitReports(TarvelReport* reports, unsigned int maxCount, unsigned int timeoutMs) {
    if (!m_events->queue.enabled()) return kQueueOff;
    if (reports == nullptr || maxCount == 0) return 0;
    const int n = m_events->queue.take(reports, maxCount, std::chrono::milliseconds(timeoutMs),
                                       [this] { return !m_receiverRunning.load(); });
    return n < 0 ? kReceiverStopped : n;
}

int Tarvel::SetReportCallback(void (*function)(const TarvelReport* report, void* user), void* user) {
    if (function == nullptr) return SetReportCallback(ReportCallback());
    return SetReportCallback([function, user](const TarvelReport& report) { function(&report, user); });
}

int Tarvel::SetReportCallback(ReportCallback callback) {
    m_events->delivery.set(std::move(callback));
    return 0;
}

int Tarvel::ReadReport(int requestKey, TarvelReport& report) {
    const uint32_t key = static_cast<uint32_t>(requestKey);
    std::lock_guard<std::mutex> lock(m_asyncMutex);
    // The same channel choice as ReadAsyncMessage: the lowest selected one
    // that holds a report.
    for (uint32_t channel = 0; channel < 4; ++channel) {
        if ((key & (1u << (16 + channel))) == 0) continue;
        const auto it = m_events->latest.find((channel << 16) | (key & 0xFFFFu));
        if (it == m_events->latest.end()) continue;
        report = it->second;
        return 0;
    }
    return -1;
}

TarvelStatistics Tarvel::GetStatistics() {
    TarvelStatistics s = m_events->stats.snapshot();
    // The port counts its own losses; the counter holds where they stood at the last reset.
    s.writesDropped = m_serialPort.GetDroppedWrites() - m_events->stats.writesDropped.get();
    return s;
}

void Tarvel::ResetStatistics() {
    m_events->stats.reset();
    m_events->stats.writesDropped.set(m_serialPort.GetDroppedWrites());
}

int Tarvel::SetAnswerWait(unsigned int ms) {
    m_answerWaitMs = std::min(ms, kMaxAnswerWaitMs);
    return 0;
}

int Tarvel::SetReceiverErrorCounting(bool consecutive) {
    m_countConsecutiveErrors = consecutive;
    return 0;
}

const char* Tarvel::LibraryVersion() {
    return TARVEL_LIBRARY_VERSION;
}
