// Pieces shared by the session's source files.
#ifndef TARVEL_SESSION_UTIL_H
#define TARVEL_SESSION_UTIL_H

#include <atomic>
#include <functional>
#include <mutex>

#include "Tarvel.h"

namespace tarvel {
namespace session {

// Waits for an answer in the sync buffer, and the receiver's answer-wait bound.
constexpr unsigned short kSyncPolls = 50;

// The answer value: data as a big-endian number of at most 2 bytes (empty is
// 0). Longer data can't be a 16-bit answer: reported on stderr, taken as 0.
unsigned answerValue(const ByteVector& data);

// Fills `out` from an ASYNC_MESSAGE packet; false when the data is too short
// for the header or for the length its data length code stands for.
bool buildAsyncMessage(const RecvMessage& message, RecvAsyncMessage& out);

// Exclusive use of the port against the receiver thread: wakes the
// receiver's blocked read (through `cancel`), takes the port mutex and,
// when released, drops a wake-up that no read consumed (through `clear`).
class PortLock {
public:
    PortLock(std::mutex& mutex, std::atomic<unsigned>& waiters, const std::function<void()>& cancel,
             std::function<void()> clear)
        : m_lock(mutex, std::defer_lock), m_clear(std::move(clear)) {
        waiters.fetch_add(1);
        if (cancel) cancel();
        m_lock.lock();
        waiters.fetch_sub(1);
    }
    ~PortLock() {
        if (m_clear) m_clear();
    }
    PortLock(const PortLock&) = delete;
    PortLock& operator=(const PortLock&) = delete;

private:
    std::unique_lock<std::mutex> m_lock;
    std::function<void()> m_clear;
};

} // namespace session
} // namespace tarvel

// Inside a member of Tarvel: every operation that purges, reconfigures or
// closes the port while a receiver thread may be reading it holds this lock
// (after the exchange mutex).
#define TARVEL_PORT_LOCK(name)                                                                                         \
    tarvel::session::PortLock name(                                                                                    \
        m_portMutex, m_portWaiters,                                                                                    \
        [this] {                                                                                                       \
            if (m_receiverThread.joinable()) m_serialPort._cancelRead();                                               \
        },                                                                                                             \
        [this] { m_serialPort._clearCancelRead(); })

#endif
