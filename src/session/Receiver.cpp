// The receiver thread: reads every frame the device sends and sorts it into
// the sync buffer (answers) and the async map (reports).
#include <chrono>
#include <cstdio>
#include <mutex>

#include "Tarvel.h"
#include "session/Events.h"
#include "session/SessionUtil.h"

namespace {

const std::chrono::milliseconds kStartWait(1000); // as long as 1000 polls 1 ms apart
const int kMaxReceiveErrors = 10;
const int kMaxInvalidUntraced = 20;
const unsigned kChannels = 4; // a report's channel is 0..3

} // namespace

int Tarvel::StartReceiver() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    if (m_receiverRunning.load()) return 1;
    if (!m_serialPort.IsActive()) {
        // The thread would only fail its reads and end.
        Printf_err("Tarvel::StartReceiver: The port is not open!\n");
        return -1;
    }
    if (m_receiverThread.joinable()) {
        // A thread that ended on its own, or one still starting after a start
        // that timed out: make sure it ends, then reap it.
        m_receiverStopRequested = true;
        m_serialPort.InterruptRead();
        m_receiverThread.join();
    }
    m_receiverStopRequested = false;
    _receiverStateChanged(false, false);
    m_receiverThread = std::thread([this] { _receiverLoop(); });

    std::unique_lock<std::mutex> state(m_receiverStateMutex);
    m_receiverState.wait_for(state, kStartWait, [this] { return m_receiverRunning.load() || m_receiverEnded; });
    return m_receiverRunning.load() ? 0 : -1;
}

void Tarvel::StopReceiver() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    // Also obeyed by a thread that has not raised its flag yet.
    m_receiverStopRequested = true;
    m_receiverRunning.exchange(false);
    if (m_receiverThread.joinable()) {
        // Wake the read so that a long (or infinite) read time-out doesn't hold us.
        m_serialPort.InterruptRead();
        m_receiverThread.join();
    }
    m_events->queue.wakeAll();
}

void Tarvel::_receiverStateChanged(bool running, bool ended) {
    {
        std::lock_guard<std::mutex> state(m_receiverStateMutex);
        m_receiverRunning.exchange(running);
        m_receiverEnded = ended;
    }
    m_receiverState.notify_all();
}

void Tarvel::_receiverLoop() {
    // Purge before the flag goes up: an answer to a command sent right after
    // StartReceiver returns must not be purged.
    if (!m_receiverStopRequested) m_serialPort.Flush();
    m_receiveErrors = 0;
    m_invalidUntraced = 0;
    m_badChannelReported = false;
    if (!m_receiverStopRequested) {
        _receiverStateChanged(true, false);
        // A stop that came while the flag went up.
        if (m_receiverStopRequested) m_receiverRunning.exchange(false);
        while (m_receiverRunning.load()) {
            if (!_receiveOne()) {
                // Disconnect closing the port under it is not a fault of the line.
                if (m_closingPort) break;
                std::fprintf(stderr,
                             "Tarvel::Receiver: Too many faults (%d read errors, %d invalid untraced "
                             "answers); the receiver ends.\n",
                             m_receiveErrors, m_invalidUntraced);
                m_events->stats.receiverEnded.add();
                break;
            }
        }
    }
    _receiverStateChanged(false, true);
    // Waiters for answers and reports learn that no more will come.
    { std::lock_guard<std::mutex> lock(m_syncMutex); }
    m_syncArrived.notify_all();
    m_events->queue.wakeAll();
}

bool Tarvel::_receiveOne() {
    ByteVector buffer;
    uint64_t timeUs = 0;
    const int received = _readFrame(buffer, 2, &m_receiverRunning, &timeUs);
    if (received < 0) return ++m_receiveErrors <= kMaxReceiveErrors;
    if (received > 0 && m_countConsecutiveErrors) m_receiveErrors = 0;
    RecvMessage message;
    if (received == 0 || _parseFrame(buffer, message, 2) != 0) return true;
    m_events->stats.countErrorAnswer(message.responseId);

    switch (message.responseId) {
    case OK:
        if (message.messageId != 0) {
            _writeSyncBuffer(message);
        } else if (message.data.size() > 2) {
            std::fprintf(stderr, "Unable convert %d bit number to uint16.\n",
                         static_cast<int>(8 * message.data.size()));
        } else {
            const unsigned value = tarvel::session::answerValue(message.data);
            if (value != 0) {
                std::fprintf(stderr, "Tarvel::Receiver: Invalid return value of some untraced commands. %#06x\n",
                             value);
                return ++m_invalidUntraced <= kMaxInvalidUntraced;
            }
        }
        break;
    case COMMAND_FAILED: std::fprintf(stderr, "TarvelAPI::Receive: COMMAND_FAILED %d!\n", message.messageId); break;
    case PACKET_ERROR: std::fprintf(stderr, "TarvelAPI::Receive: PACKET_ERROR! MID: %d\n", message.messageId); break;
    case SLIP_PROTO_ERROR: std::fprintf(stderr, "TarvelAPI::Receive: SLIP_PROTO_ERROR! %d\n", message.messageId); break;
    case TARVEL_HW_ERROR: std::fprintf(stderr, "TarvelAPI::Receive: TARVEL_HW_ERROR! %d\n", message.messageId); break;
    case ASYNC_MESSAGE:
        if (message.messageId >= kChannels) {
            // Nobody could read such a report back: keeping it would only grow the map.
            m_events->stats.reportsBadChannel.add();
            if (!m_badChannelReported)
                std::fprintf(stderr, "Tarvel::Receiver: Dropping reports on channel %d: channels are 0 to 3.\n",
                             message.messageId);
            m_badChannelReported = true;
            break;
        }
        _fileReport(message, timeUs);
        break;
    case DATA_RESPONSE_A:
    case DATA_RESPONSE_B:
        // Answers with data (GET_TIME, READ_EEPROM) wait like OK answers.
        if (message.messageId != 0) {
            _writeSyncBuffer(message);
            break;
        }
        [[fallthrough]]; // an untraced data answer answers nothing
    default:
        std::fprintf(stderr, "TarvelAPI::Receive: Unknown response ID: %#4x\n", message.responseId);
        DataPrint(message.data, -1);
        break;
    }
    return true;
}
