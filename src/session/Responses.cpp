// Waiting for the answer to the last tracked command: from the sync buffer
// while the receiver runs, else by reading the line directly.
#include <cstdio>
#include <mutex>

#include "Tarvel.h"
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
// 0 with the answer in `message`; -4 when a read yields no frame.
int Tarvel::_readAnswerDirect(RecvMessage& message, int slipMode, bool quiet, bool& hardwareError) {
    hardwareError = false;
    for (;;) {
        ByteVector buffer;
        m_serialPort.SlipReceive(buffer, m_kBufferSize, slipMode);
        const int parsed = ParseMessage(buffer, message, quiet ? 2 : 0);
        if (parsed == -4) {
            if (!quiet) Printf_err("Tarvel::GetResponse: No valid answer for specified message.\n");
            return -4;
        }
        if (parsed != 0) continue;
        // A report's message id is its channel: it answers nothing.
        const unsigned char id = message.responseId == ASYNC_MESSAGE ? 0 : message.messageId;
        if (message.responseId == TARVEL_HW_ERROR) {
            if (!quiet) Printf_err("TarvelAPI::GetResponse: TARVEL_HW_ERROR!\n");
            hardwareError = true;
        }
        if (id == m_messageId) return 0;
    }
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
        if (ReadSyncMessage(m_messageId, message, tarvel::session::kSyncPolls, quiet) != 0) return -5;
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
        if (ReadSyncMessage(m_messageId, message, tarvel::session::kSyncPolls, quiet) != 0) return -5;
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
