// The receiver thread: reads every frame the device sends and sorts it into
// the sync buffer (answers) and the async map (reports).
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>

#include "Tarvel.h"
#include "session/SessionUtil.h"

namespace {

const int kStartPolls = 1000;
const int kMaxReceiveErrors = 10;
const int kMaxInvalidUntraced = 20;

} // namespace

int Tarvel::StartReceiver() {
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    if (m_receiverRunning.load()) return 1;
    if (m_receiverThread.joinable()) {
        // A thread that ended on its own, or one still starting after a start
        // that timed out: make sure it ends, then reap it.
        m_receiverStopGen.store(m_receiverStartGen.load());
        m_serialPort._cancelRead();
        m_receiverThread.join();
        m_serialPort._clearCancelRead();
    }
    m_receiverStartGen.fetch_add(1);
    m_receiverThread = std::thread([this] { _receiverLoop(); });
    for (int i = 0; i < kStartPolls; ++i) {
        if (m_receiverRunning.load()) return 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return -1;
}

void Tarvel::StopReceiver() {
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    // Marks the latest start as stopped, so that a thread that has not set
    // its flag yet ends as soon as it does.
    m_receiverStopGen.store(m_receiverStartGen.load());
    m_receiverRunning.exchange(false);
    if (m_receiverThread.joinable()) {
        // Wake the read so that a long (or infinite) read time-out doesn't hold us.
        m_serialPort._cancelRead();
        m_receiverThread.join();
        m_serialPort._clearCancelRead();
    }
}

void Tarvel::_receiverLoop() {
    // Callers that reconfigure or close the port go first (see PortLock).
    auto takePort = [this] {
        while (m_portWaiters.load() != 0)
            std::this_thread::yield();
        return std::unique_lock<std::mutex>(m_portMutex);
    };

    {
        // Purge before the flag goes up: an answer to a command sent right
        // after StartReceiver returns must not be purged.
        auto port = takePort();
        m_serialPort.Flush();
    }
    m_receiverRunning.exchange(true);
    if (m_receiverStopGen.load() == m_receiverStartGen.load()) {
        m_receiverRunning.exchange(false);
        return;
    }

    int receiveErrors = 0;
    int invalidUntraced = 0;
    for (;;) {
        ByteVector buffer;
        int received;
        {
            auto port = takePort();
            received = m_serialPort.SlipReceive(buffer, m_kBufferSize, 2);
        }
        RecvMessage message;
        if (received < 0) {
            if (++receiveErrors > kMaxReceiveErrors) {
                m_receiverRunning.exchange(false);
                return;
            }
        } else if (received > 0 && ParseMessage(buffer, message, 2) == 0) {
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
                        std::fprintf(
                            stderr, "Tarvel::Receiver: Invalid return value of some untraced commands. %#06x\n", value);
                        if (++invalidUntraced > kMaxInvalidUntraced) {
                            m_receiverRunning.exchange(false);
                            return;
                        }
                    }
                }
                break;
            case COMMAND_FAILED:
                std::fprintf(stderr, "TarvelAPI::Receive: COMMAND_FAILED %d!\n", message.messageId);
                break;
            case PACKET_ERROR:
                std::fprintf(stderr, "TarvelAPI::Receive: PACKET_ERROR! MID: %d\n", message.messageId);
                break;
            case SLIP_PROTO_ERROR:
                std::fprintf(stderr, "TarvelAPI::Receive: SLIP_PROTO_ERROR! %d\n", message.messageId);
                break;
            case TARVEL_HW_ERROR:
                std::fprintf(stderr, "TarvelAPI::Receive: TARVEL_HW_ERROR! %d\n", message.messageId);
                break;
            case ASYNC_MESSAGE: {
                RecvAsyncMessage report;
                // A report too short for its header or its length is dropped
                // (the trace already holds it).
                if (tarvel::session::buildAsyncMessage(message, report)) _writeAsyncMessage(report);
                break;
            }
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
        }
        if (!m_receiverRunning.load()) return;
    }
}
