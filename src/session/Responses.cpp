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
    for (unsigned char b : data) value = (value << 8) | b;
    return value;
}

} // namespace session
} // namespace tarvel

namespace {

const int kHardwareErrorSeen = 0x10000;

} // namespace

int Tarvel::GetResponse(bool quiet) {
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    RecvMessage message;
    if (m_receiverRunning.load()) {
        if (ReadSyncMessage(m_messageId, message, tarvel::session::kSyncPolls, quiet) != 0) return -5;
        return static_cast<int>(tarvel::session::answerValue(message.data));
    }

    bool hardwareError = false;
    for (;;) {
        ByteVector buffer;
        {
            std::lock_guard<std::mutex> port(m_portMutex);
            m_serialPort.SlipReceive(buffer, m_kBufferSize, 0);
        }
        const int parsed = ParseMessage(buffer, message, quiet ? 2 : 0);
        if (parsed == -4) {
            if (!quiet) Printf_err("Tarvel::GetResponse: No valid answer for specified message.\n");
            return -4;
        }
        if (parsed != 0) continue;
        unsigned char id = message.messageId;
        if (message.responseId == ASYNC_MESSAGE) id = 0;
        if (message.responseId == TARVEL_HW_ERROR) {
            if (!quiet) Printf_err("TarvelAPI::GetResponse: TARVEL_HW_ERROR!\n");
            hardwareError = true;
        }
        if (id == m_messageId) break;
    }

    const int value = static_cast<int>(tarvel::session::answerValue(message.data));
    switch (message.responseId) {
    case OK:
        return value + (hardwareError ? kHardwareErrorSeen : 0);
    case COMMAND_FAILED:
        Printf_err("TarvelAPI::GetResponse: COMMAND_FAILED!\n");
        return -4;
    case PACKET_ERROR:
        Printf_err("TarvelAPI::GetResponse: PACKET_ERROR!\n");
        return -4;
    case SLIP_PROTO_ERROR:
        Printf_err("TarvelAPI::GetResponse: SLIP_PROTO_ERROR!\n");
        return -4;
    default:
        Printf_err("TarvelAPI::GetResponse: Unknown response ID: 0x%2.2X!\n", message.responseId);
        return -4;
    }
}

int Tarvel::GetBytesResponse(ByteVector& data, bool quiet) {
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    RecvMessage message;
    if (m_receiverRunning.load()) {
        if (ReadSyncMessage(m_messageId, message, tarvel::session::kSyncPolls, quiet) != 0) return -5;
        data = std::move(message.data);
        return 0;
    }

    bool hardwareError = false;
    for (;;) {
        ByteVector buffer;
        {
            std::lock_guard<std::mutex> port(m_portMutex);
            m_serialPort.SlipReceive(buffer, m_kBufferSize, quiet ? 1 : 0);
        }
        const int parsed = ParseMessage(buffer, message, quiet ? 2 : 0);
        if (parsed == -4) {
            if (!quiet) Printf_err("Tarvel::GetResponse: No valid answer for specified message.\n");
            return -4;
        }
        if (parsed != 0) continue;
        if (message.responseId == TARVEL_HW_ERROR) {
            if (!quiet) Printf_err("TarvelAPI::GetResponse: TARVEL_HW_ERROR!\n");
            hardwareError = true;
        }
        if (message.messageId == m_messageId) break;
    }

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
    case DATA_RESPONSE_B:
        data = std::move(message.data);
        return hwBit;
    case COMMAND_FAILED:
        Printf_err("TarvelAPI::GetResponse: COMMAND_FAILED!\n");
        return -4;
    case PACKET_ERROR:
        Printf_err("TarvelAPI::GetResponse: PACKET_ERROR!\n");
        return -4;
    case SLIP_PROTO_ERROR:
        Printf_err("TarvelAPI::GetResponse: SLIP_PROTO_ERROR!\n");
        return -4;
    default:
        Printf_err("TarvelAPI::GetResponse: Unknown response ID: 0x%2.2X!\n", message.responseId);
        return -4;
    }
}
