// Opening and closing the connection, time-outs, and the host-side state
// that a connection (or a device restart) invalidates.
#include <chrono>
#include <mutex>

#include "Tarvel.h"
#include "protocol/RebootMode.h"
#include "session/Events.h"

namespace {

const unsigned kBaudRate = 2000000;
const unsigned char kDataBits = 8;
const unsigned char kOneStopBit = 0;
const unsigned char kEvenParity = 2;
const std::chrono::milliseconds kReceiverEndWait(1000);

} // namespace

int Tarvel::Connect(const std::string& port, unsigned int readTimeout, unsigned int writeTimeout) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int opened = m_serialPort.Connect(port, kBaudRate, kDataBits, kOneStopBit, kEvenParity);
    if (opened < 0) return opened; // 1 (this port is already open) goes on
    const int timeouts = m_serialPort.SetTimeout(readTimeout, writeTimeout);
    if (timeouts < 0) return timeouts - 100;
    const int flushed = m_serialPort.Flush();
    if (flushed < 0) return flushed - 200;

    const int version = tarvel::versionFromQuery(_reboot(tarvel::kVersionQuery));
    if (version < 0) return version - 300;
    m_deviceVersion = static_cast<uint16_t>(version);
    return 0;
}

int Tarvel::Disconnect() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    _clearHostState();
    m_closingPort = true;
    const int result = m_serialPort.Disconnect();
    // A receiver that still runs finds the port closed and ends by itself
    // after a few failed reads, which take no time. Waiting for that keeps
    // it from living on into the next Connect, whose version answer it
    // would take and then abandon.
    if (result == 0 && m_receiverThread.joinable()) {
        std::unique_lock<std::mutex> state(m_receiverStateMutex);
        m_receiverState.wait_for(state, kReceiverEndWait, [this] { return m_receiverEnded; });
    }
    m_closingPort = false;
    m_events->queue.wakeAll();
    return result;
}

int Tarvel::SetTimeout(unsigned int readTimeout, unsigned int writeTimeout) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return m_serialPort.SetTimeout(readTimeout, writeTimeout);
}

int Tarvel::GetTimeout(unsigned int& readTimeout, unsigned int& writeTimeout) {
    return m_serialPort.GetTimeout(readTimeout, writeTimeout);
}

void Tarvel::_clearHostState() {
    {
        // The reception side: what the receiver files, and the signals read from it.
        std::lock_guard<std::mutex> lock(m_asyncMutex);
        m_asyncMessages.clear();
        m_events->requests.clear();
        m_events->latest.clear();
        m_signalRequests.assign(1, SignalRequest{0, 0, 0});
        m_signalRequestCount = 0;
    }
    m_txMessages.clear();
    m_signals.clear();
    {
        std::lock_guard<std::mutex> lock(m_syncMutex);
        m_syncBuffer.clear();
    }
    m_messageId = 0;
}
