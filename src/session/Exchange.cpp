// Sending command packets and the send-and-wait exchange every device
// operation rests on.
#include <mutex>

#include "Tarvel.h"
#include "protocol/Bytes.h"
#include "protocol/Packet.h"
#include "session/Events.h"

namespace {

// The length byte counts the command byte and the payload.
const std::size_t kMaxPayload = 254;
const int kPayloadTooLong = -6;

ByteVector withHandler(unsigned short handler, const ByteVector& payload) {
    ByteVector bytes;
    bytes.reserve(payload.size() + 2);
    tarvel::appendBE16(bytes, handler);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

} // namespace

int Tarvel::SendCommand(CMD cmd, const ByteVector& payload, bool tracked) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _send(cmd, payload, tracked);
}

int Tarvel::SendCommandHandler(CMD cmd, unsigned short handler, const ByteVector& payload, bool tracked) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _send(cmd, withHandler(handler, payload), tracked);
}

int Tarvel::_send(CMD cmd, const ByteVector& payload, bool tracked) {
    if (payload.size() > kMaxPayload) {
        Printf_err("Tarvel::SendCommand: Payload of %u bytes is too long (at most %u).\n",
                   static_cast<unsigned>(payload.size()), static_cast<unsigned>(kMaxPayload));
        return kPayloadTooLong;
    }
    uint8_t id = tarvel::kUntrackedMessageId;
    if (tracked) {
        m_messageId = tarvel::nextMessageId(m_messageId);
        id = m_messageId;
        // Answers still queued answer earlier commands; one of them could
        // carry the id that this command takes now.
        std::lock_guard<std::mutex> lock(m_syncMutex);
        m_syncBuffer.clear();
    }
    const ByteVector packet = tarvel::buildPacket(id, cmd, payload);
    DataPrint(packet, 1);
    const int sent = m_serialPort.SlipSend(packet, false, false);
    if (sent < 0) return sent;
    m_events->stats.framesSent.add();
    m_events->stats.bytesSent.add(packet.size());
    return 0;
}

int Tarvel::_exchange(CMD cmd, const ByteVector& payload, bool tracked, bool quiet) {
    const int sent = _send(cmd, payload, tracked);
    if (sent != 0) return sent;
    if (!tracked) return 0;
    const int answer = _awaitAnswer(quiet);
    return answer < 0 ? answer - 10 : answer;
}

int Tarvel::_exchangeHandler(CMD cmd, unsigned short handler, const ByteVector& payload, bool tracked) {
    return _exchange(cmd, withHandler(handler, payload), tracked);
}

int Tarvel::_exchangeBytes(CMD cmd, const ByteVector& payload, ByteVector& answer) {
    const int sent = _send(cmd, payload, true);
    if (sent != 0) return sent;
    const int result = _awaitBytes(answer, false);
    return result < 0 ? result - 10 : result;
}

int Tarvel::_reboot(unsigned char mode) {
    return tarvel::mapAnswer(_exchange(REBOOT, ByteVector{mode}));
}
