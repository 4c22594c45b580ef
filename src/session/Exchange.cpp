// Sending command packets and the send-and-wait exchange every device
// operation rests on.
#include <mutex>

#include "Tarvel.h"
#include "protocol/Packet.h"

namespace {

// The length byte counts the command byte and the payload.
const std::size_t kMaxPayload = 254;
const int kPayloadTooLong = -6;

} // namespace

int Tarvel::SendCommand(CMD cmd, const ByteVector& payload, bool tracked) {
    if (payload.size() > kMaxPayload) {
        Printf_err("Tarvel::SendCommand: Payload of %u bytes is too long (at most %u).\n",
                   static_cast<unsigned>(payload.size()), static_cast<unsigned>(kMaxPayload));
        return kPayloadTooLong;
    }
    // The id counter and the queue order must agree between callers.
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    uint8_t id = tarvel::kUntrackedMessageId;
    if (tracked) {
        m_messageId = tarvel::nextMessageId(m_messageId);
        id = m_messageId;
    }
    const ByteVector packet = tarvel::buildPacket(id, cmd, payload);
    DataPrint(packet, 1);
    const int sent = m_serialPort.SlipSend(packet, false, false);
    return sent >= 0 ? 0 : sent;
}

int Tarvel::SendCommandHandler(CMD cmd, unsigned short handler, const ByteVector& payload, bool tracked) {
    ByteVector withHandler;
    withHandler.reserve(payload.size() + 2);
    withHandler.push_back(static_cast<unsigned char>(handler >> 8));
    withHandler.push_back(static_cast<unsigned char>(handler & 0xFF));
    withHandler.insert(withHandler.end(), payload.begin(), payload.end());
    return SendCommand(cmd, withHandler, tracked);
}

int Tarvel::_exchange(CMD cmd, const ByteVector& payload, bool tracked, bool quiet) {
    // Send and wait as one step: answers are matched by the current id.
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    const int sent = SendCommand(cmd, payload, tracked);
    if (sent != 0) return sent;
    if (!tracked) return 0;
    const int answer = GetResponse(quiet);
    return answer < 0 ? answer - 10 : answer;
}

int Tarvel::_exchangeHandler(CMD cmd, unsigned short handler, const ByteVector& payload, bool tracked) {
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    const int sent = SendCommandHandler(cmd, handler, payload, tracked);
    if (sent != 0) return sent;
    if (!tracked) return 0;
    const int answer = GetResponse(false);
    return answer < 0 ? answer - 10 : answer;
}

int Tarvel::_exchangeBytes(CMD cmd, const ByteVector& payload, ByteVector& answer) {
    std::lock_guard<std::recursive_mutex> exchange(m_exchangeMutex);
    const int sent = SendCommand(cmd, payload, true);
    if (sent != 0) return sent;
    const int result = GetBytesResponse(answer, false);
    return result < 0 ? result - 10 : result;
}

int Tarvel::_reboot(unsigned char mode) {
    const int answer = _exchange(REBOOT, ByteVector{mode});
    return answer == 0xFFFF ? -21 : answer;
}
