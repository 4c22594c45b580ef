// The sender thread and its write queue: callers queue copies of their bytes
// and return; one thread per port writes them out in batches.
#include <cstdio>
#include <string>
#include <system_error>

#include "SerialPort.h"
#include "serial/PortDevice.h"
#include "serial/SystemError.h"

namespace event = tarvel::event;
namespace port = tarvel::port;

namespace {

const uint32_t kStartWaitMs = 2000;
const uint32_t kIdleWaitMs = 1000;
const std::size_t kBatchReserve = 1298;

// Report text of a state; RUNNING is never reported.
std::string stateText(int state) {
    switch (state) {
    case SerialPort::START_REQ: return "START_REQ";
    case SerialPort::STOP_REQ: return "STOP_REQ";
    case SerialPort::STOPPED: return "STOPPED";
    case SerialPort::FAILED: return "FAILED";
    default: return "UNKNOWN" + std::to_string(state);
    }
}

int stateCode(int state) {
    switch (state) {
    case SerialPort::START_REQ: return -2;
    case SerialPort::STOP_REQ: return -3;
    case SerialPort::STOPPED: return -4;
    case SerialPort::FAILED: return -1;
    default: return -5;
    }
}

} // namespace

int SerialPort::WriteByteNonblock(unsigned char* buf, int n) {
    if (m_threadStatus.load() != RUNNING) {
        // A RUNNING state implies the data event exists, so only this path
        // needs the lock; it also makes concurrent first writers start once.
        std::lock_guard<std::mutex> lock(m_startMutex);
        if (m_dataReadyEvent == nullptr) {
            m_dataReadyEvent = event::create("SerialDataReady");
            if (m_dataReadyEvent == nullptr) return -5;
        }
        const int state = m_threadStatus.load();
        if (state == IDLE || state == STOPPED) _startSenderThread();
    }
    const int state = m_threadStatus.load();
    if (state != RUNNING) {
        std::fprintf(stderr, "SerialPort::WriteByteNonblock: Unexpected state of thread: %s.",
                     stateText(state).c_str());
        return stateCode(state);
    }
    const int count = _writeBuffer(buf, n);
    event::set(m_dataReadyEvent);
    return count;
}

// Called with m_startMutex held.
int SerialPort::_startSenderThread() {
    if (m_threadStatus.load() == RUNNING) return 1;
    if (m_senderThread.joinable()) {
        if (m_senderThread.get_id() == std::this_thread::get_id())
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
        m_senderThread.join();
    }
    m_threadStatus = START_REQ;
    if (m_threadStatusEvent == nullptr) {
        m_threadStatusEvent = event::create("SenderThreadStatus");
        if (m_threadStatusEvent == nullptr) return -1;
    }
    event::reset(m_threadStatusEvent);
    {
        std::lock_guard<std::mutex> lock(m_queueMutex);
        m_writeQueue.clear();
    }
    // std::thread throws std::system_error (resource_unavailable_try_again)
    // when no thread can be made.
    m_senderThread = std::thread([this] { SenderThread(this); });
    event::wait(m_threadStatusEvent, kStartWaitMs);
    return m_threadStatus.load() == RUNNING ? 0 : -1;
}

int SerialPort::_writeBuffer(unsigned char* buf, int n) {
    ByteVector copy(buf, buf + (n > 0 ? n : 0));
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_writeQueue.size() < kMaxQueuedBuffers) {
        m_writeQueue.push_back(std::move(copy));
    } else {
        m_writeQueue.back() = std::move(copy);
        m_droppedWrites.fetch_add(1, std::memory_order_relaxed);
    }
    return static_cast<int>(m_writeQueue.size());
}

int SerialPort::_getPopBuffer(ByteVector& out) {
    std::lock_guard<std::mutex> lock(m_queueMutex);
    if (m_writeQueue.empty()) return -1;
    out = std::move(m_writeQueue.front());
    m_writeQueue.pop_front();
    return 0;
}

int SerialPort::SenderThread(SerialPort* port) {
    int errors = 0;
    bool first = true;
    ByteVector batch;
    batch.reserve(kBatchReserve);
    ByteVector popped;
    do {
        // Nothing can be queued before the start has returned, so the first
        // cycle does not wait.
        if (!first) {
            const unsigned long w = event::wait(port->m_dataReadyEvent, kIdleWaitMs);
            if (w == event::kAbandoned || w == event::kFailed) {
                PrintSystemError(port::lastError(),
                                 "SerialPort::SenderThread WaitForSingleObject failed with error: ", true);
                ++errors;
            }
        }
        first = false;
        // Reset before draining: a buffer queued during the drain sets the
        // event again instead of waiting for the next time-out.
        if (!event::reset(port->m_dataReadyEvent)) {
            PrintSystemError(port::lastError(), "SerialPort::SenderThread ResetEvent failed with error: ", true);
            ++errors;
        }
        for (;;) {
            std::size_t buffers = 0;
            while (batch.size() <= kSendBatchLimit && port->_getPopBuffer(popped) == 0) {
                batch.insert(batch.end(), popped.begin(), popped.end());
                ++buffers;
            }
            if (buffers == 0) break;
            if (port->WriteByte(batch.data(), static_cast<int>(batch.size()), true) < 0) ++errors;
            batch.clear();
        }
        if (errors > kMaxSenderErrors) {
            std::fprintf(stderr, "SerialPort::SenderThread Maximal error count hit. Thread failed.");
            break;
        }
        if (errors == 0) {
            int expected = START_REQ;
            if (port->m_threadStatus.compare_exchange_strong(expected, RUNNING)) event::set(port->m_threadStatusEvent);
        }
    } while (port->m_threadStatus.load() == RUNNING);

    int state = port->m_threadStatus.load();
    while (!port->m_threadStatus.compare_exchange_weak(state, state == STOP_REQ ? STOPPED : FAILED)) {
    }
    event::set(port->m_threadStatusEvent); // a start still waiting learns the outcome now
    return port->m_threadStatus.load() == STOPPED ? 0 : -1;
}

void SerialPort::_stopSenderThread() {
    if (!m_senderThread.joinable()) {
        const int state = m_threadStatus.load();
        if (state != IDLE) m_threadStatus = STOPPED;
        return;
    }
    if (m_senderThread.get_id() == std::this_thread::get_id())
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    std::lock_guard<std::mutex> lock(m_startMutex);
    m_threadStatus = STOP_REQ;
    if (m_dataReadyEvent != nullptr) event::set(m_dataReadyEvent);
    m_senderThread.join();
    m_threadStatus = STOPPED; // also after a thread that had failed: restartable
}

unsigned long long SerialPort::GetDroppedWrites() const {
    return m_droppedWrites.load(std::memory_order_relaxed);
}
