// Waiting for the answer to the last tracked command: from the sync buffer
// while the receiver runs, else by reading the line directly.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>

#include "Tarvel.h"
#include "session/Events.h"
#include "session/SessionUtil.h"

namespace tarvel {
namespace session {

unsigned answerValue(const ByteVector& data) {
    if (data.size() > 2) {
        std::fprintf(stderr, "Unable convert %d bit number to uint16.\n", static_cast<int>(8 * data.size()));
        return 0;
    }
    unsigned value = 0;
    for (unsigned char b : data)
        value = (value << 8) | b;
    return value;
}

} // namespace session
} // namespace tarvel

namespace {

const int kHardwareErrorSeen = 0x10000;

} // namespace

// Reads frames until the answer carrying the current message id arrives.
// 0 with the answer in `message`; -4 when a read yields no frame, or when
// frames that are not the answer have kept coming for a read time-out.
int Tarvel::_readAnswerDirect(RecvMessage& message, int slipMode, bool quiet, bool& hardwareError) {
    using Clock = std::chrono::steady_clock;
    unsigned int readTimeout = 0, writeTimeout = 0;
    m_serialPort.GetTimeout(readTimeout, writeTimeout);
    const bool bounded = readTimeout != 0xFFFFFFFFu;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(std::max(readTimeout, 1u));
    hardwareError = false;
    for (;;) {
        ByteVector buffer;
        _readFrame(buffer, slipMode, nullptr);
        const int parsed = _parseFrame(buffer, message, quiet ? 2 : 0);
        if (parsed == 0) {
            m_events->stats.countErrorAnswer(message.responseId);
            // A report's message id is its channel: it answers nothing.
            const unsigned char id = message.responseId == ASYNC_MESSAGE ? 0 : message.messageId;
            if (message.responseId == TARVEL_HW_ERROR) {
                if (!quiet) Printf_err("TarvelAPI::GetResponse: TARVEL_HW_ERROR!\n");
                hardwareError = true;
            }
            if (id == m_messageId) return 0;
        }
        // A device that keeps talking without answering holds the caller no
        // longer than a silent one.
        if (parsed == -4 || (bounded && Clock::now() >= deadline)) {
            m_events->stats.exchangesTimedOut.add();
            if (!quiet) Printf_err("Tarvel::GetResponse: No valid answer for specified message.\n");
            return -4;
        }
    }
}

int Tarvel::_readFrame(ByteVector& buffer, int slipMode, const std::atomic<bool>* keepReading, uint64_t* timeUs) {
    const int received = keepReading != nullptr
                             ? m_serialPort.SlipReceive(buffer, m_kBufferSize, slipMode, *keepReading)
                             : m_serialPort.SlipReceive(buffer, m_kBufferSize, slipMode);
    tarvel::session::Statistics& stats = m_events->stats;
    if (received > 0) {
        const uint64_t now = tarvel::session::wallClockUs();
        if (timeUs != nullptr) *timeUs = now;
        stats.framesReceived.add();
        stats.bytesReceived.add(static_cast<uint64_t>(received));
        stats.lastReceivedUs.set(now);
    } else if (received == -2 || received == -3) {
        stats.rejectedSlip.add();
    }
    return received;
}

int Tarvel::_parseFrame(const ByteVector& buffer, RecvMessage& message, int quietLevel) {
    const int parsed = ParseMessage(buffer, message, quietLevel);
    if (parsed == -1) m_events->stats.rejectedLength.add();
    if (parsed == -2) m_events->stats.rejectedChecksum.add();
    return parsed;
}

// An error answer, or one the exchange does not know: reported whatever the
// caller's quiet flag says.
int Tarvel::_failedAnswer(unsigned char responseId) {
    switch (responseId) {
    case COMMAND_FAILED: Printf_err("TarvelAPI::GetResponse: COMMAND_FAILED!\n"); break;
    case PACKET_ERROR: Printf_err("TarvelAPI::GetResponse: PACKET_ERROR!\n"); break;
    case SLIP_PROTO_ERROR: Printf_err("TarvelAPI::GetResponse: SLIP_PROTO_ERROR!\n"); break;
    default: Printf_err("TarvelAPI::GetResponse: Unknown response ID: 0x%2.2X!\n", responseId); break;
    }
    return -4;
}

int Tarvel::_readSyncAnswer(RecvMessage& message, bool quiet) {
    const unsigned int wait = std::min(m_answerWaitMs.load(), 0xFFFFu);
    const int found = ReadSyncMessage(m_messageId, message, static_cast<unsigned short>(wait), quiet);
    if (found != 0) m_events->stats.exchangesTimedOut.add();
    return found;
}

int Tarvel::GetResponse(bool quiet) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _awaitAnswer(quiet);
}

int Tarvel::GetBytesResponse(ByteVector& data, bool quiet) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _awaitBytes(data, quiet);
}

int Tarvel::_awaitAnswer(bool quiet) {
    RecvMessage message;
    if (m_receiverRunning.load()) {
        if (_readSyncAnswer(message, quiet) != 0) return -5;
        return static_cast<int>(tarvel::session::answerValue(message.data));
    }

    bool hardwareError = false;
    if (_readAnswerDirect(message, 0, quiet, hardwareError) != 0) return -4;
    const int value = static_cast<int>(tarvel::session::answerValue(message.data));
    if (message.responseId != OK) return _failedAnswer(message.responseId);
    return value + (hardwareError ? kHardwareErrorSeen : 0);
}

int Tarvel::_awaitBytes(ByteVector& data, bool quiet) {
    RecvMessage message;
    if (m_receiverRunning.load()) {
        if (_readSyncAnswer(message, quiet) != 0) return -5;
        data = std::move(message.data);
        return 0;
    }

    bool hardwareError = false;
    if (_readAnswerDirect(message, quiet ? 1 : 0, quiet, hardwareError) != 0) return -4;
    const int hwBit = hardwareError ? kHardwareErrorSeen : 0;
    switch (message.responseId) {
    case OK: {
        if (message.data.size() != 2) {
            Printf_err("TarvelAPI::GetResponse: Wrong OK packet length: %i!\n", static_cast<int>(message.data.size()));
        }
        const int value = static_cast<int>(tarvel::session::answerValue(message.data));
        data = std::move(message.data);
        return value + hwBit;
    }
    case DATA_RESPONSE_A:
    case DATA_RESPONSE_B: data = std::move(message.data); return hwBit;
    default: return _failedAnswer(message.responseId);
    }
}
