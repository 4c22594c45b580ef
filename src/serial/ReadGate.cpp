#include "serial/ReadGate.h"

namespace tarvel {

bool ReadGate::enterReadWaiting(const std::atomic<bool>* keepReading) {
    std::unique_lock<std::mutex> lock(m_mutex);
    // While this waiter is counted, no read takes or leaves the gate without
    // the mutex, so the holder bits change only under it.
    m_state += kWaiter;
    for (;;) {
        if (keepReading != nullptr && !keepReading->load()) {
            m_state -= kWaiter;
            return false;
        }
        // Operations waiting to purge or close go first: a reader that reads
        // back to back would otherwise keep them out.
        if (m_controlsWaiting == 0 && (m_state & (kRead | kControl)) == 0) {
            m_state += kRead - kWaiter;
            return true;
        }
        m_free.wait(lock);
    }
}

void ReadGate::leaveReadWaited() {
    // Someone waits, or the read was cancelled: drop a wake-up that the read
    // did not consume, so that it cannot cut the next read short.
    std::lock_guard<std::mutex> lock(m_mutex);
    port::clearCancel(m_device);
    m_state &= ~(kRead | kCancelled);
    m_free.notify_all();
}

void ReadGate::cancelHolder() {
    const unsigned state = m_state;
    if ((state & kRead) == 0 || (state & kCancelled) != 0) return;
    port::cancelRead(m_device);
    m_state |= kCancelled;
}

void ReadGate::enterControl() {
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_controlsWaiting;
    m_state += kWaiter;
    cancelHolder();
    m_free.wait(lock, [this] { return (m_state & (kRead | kControl)) == 0; });
    --m_controlsWaiting;
    m_state += kControl - kWaiter;
}

void ReadGate::leaveControl() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_state &= ~kControl;
    m_free.notify_all();
}

void ReadGate::interrupt() {
    std::lock_guard<std::mutex> lock(m_mutex);
    // Counted as a waiter while it cancels, so that the read cannot leave
    // between the cancel and its mark and keep a stale wake-up.
    m_state += kWaiter;
    cancelHolder();
    m_state -= kWaiter;
    // A reader waiting for its turn re-checks its keep-reading flag.
    m_free.notify_all();
}

} // namespace tarvel
