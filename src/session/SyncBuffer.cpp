// The sync buffer: answers queued by the receiver thread, taken out by the
// waiting caller.
#include <chrono>
#include <mutex>

#include "Tarvel.h"

namespace {
// Answers nobody waits for (a device answering unasked) must not pile up.
const std::size_t kMaxQueuedAnswers = 256;
} // namespace

void Tarvel::_writeSyncBuffer(const RecvMessage& message) {
    {
        std::lock_guard<std::mutex> lock(m_syncMutex);
        if (m_syncBuffer.size() >= kMaxQueuedAnswers) m_syncBuffer.pop_front();
        m_syncBuffer.push_back(message);
    }
    m_syncArrived.notify_all();
}

int Tarvel::ReadSyncMessage(unsigned short messageId, RecvMessage& message, unsigned short polls, bool quiet) {
    if (!m_receiverRunning.load()) {
        if (!quiet) Printf_err("Tarvel::ReadSyncMessage: Receiving thread is not running!\n");
        return -1;
    }
    // The wait lasts as long as `polls` polls 1 ms apart would, but wakes as
    // soon as the receiver queues an answer.
    if (polls > 0) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(polls);
        std::unique_lock<std::mutex> lock(m_syncMutex);
        for (;;) {
            while (!m_syncBuffer.empty()) {
                RecvMessage& front = m_syncBuffer.front();
                const bool match = front.messageId == messageId && front.responseId != ASYNC_MESSAGE;
                if (match) {
                    message = std::move(front);
                    m_syncBuffer.pop_front();
                    return 0;
                }
                // Answers ahead of ours were not waited for: drop them. Let the
                // receiver in between two entries.
                m_syncBuffer.pop_front();
                lock.unlock();
                lock.lock();
            }
            // A receiver that has ended queues nothing more: no use waiting on.
            if (!m_receiverRunning.load()) break;
            if (m_syncArrived.wait_until(lock, deadline) == std::cv_status::timeout && m_syncBuffer.empty()) {
                break;
            }
        }
    }
    if (!quiet) Printf_err("Message with message ID: %i not found.\n", static_cast<int>(messageId));
    return -2;
}
