#include "serial/ReadGate.h"

namespace tarvel {

bool ReadGate::enterRead(const std::atomic<bool>* keepReading) {
    std::unique_lock<std::mutex> lock(m_mutex);
    // Operations waiting to purge or close go first: a reader that reads
    // back to back would otherwise keep them out.
    m_free.wait(lock, [this, keepReading] {
        if (keepReading != nullptr && !keepReading->load()) return true;
        return m_holder == Holder::None && m_controlsWaiting == 0;
    });
    if (keepReading != nullptr && !keepReading->load()) return false;
    m_holder = Holder::Read;
    return true;
}

void ReadGate::leaveRead() {
    std::lock_guard<std::mutex> lock(m_mutex);
    port::clearCancel(m_device);
    m_holder = Holder::None;
    m_free.notify_all();
}

void ReadGate::enterControl() {
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_controlsWaiting;
    if (m_holder == Holder::Read) port::cancelRead(m_device);
    m_free.wait(lock, [this] { return m_holder == Holder::None; });
    --m_controlsWaiting;
    m_holder = Holder::Control;
}

void ReadGate::leaveControl() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_holder = Holder::None;
    m_free.notify_all();
}

void ReadGate::interrupt() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_holder == Holder::Read) port::cancelRead(m_device);
    // A reader waiting for its turn re-checks its keep-reading flag.
    m_free.notify_all();
}

} // namespace tarvel
