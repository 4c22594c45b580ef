#include "protocol/Packet.h"

namespace tarvel {

uint16_t sum16(const unsigned char* p, std::size_t n) {
    uint32_t acc = 0;
    for (std::size_t i = 0; i < n; ++i) {
        acc += p[i];
    }
    return static_cast<uint16_t>(acc & 0xFFFFu);
}

ByteVector buildPacket(uint8_t messageId, uint8_t cmd, const ByteVector& payload) {
    ByteVector packet;
    packet.reserve(payload.size() + kPacketOverhead);
    packet.push_back(static_cast<unsigned char>((payload.size() + 1) & 0xFFu));
    packet.push_back(messageId);
    packet.push_back(cmd);
    packet.insert(packet.end(), payload.begin(), payload.end());
    const uint16_t sum = sum16(packet.data(), packet.size());
    packet.push_back(static_cast<unsigned char>(sum >> 8));
    packet.push_back(static_cast<unsigned char>(sum & 0xFFu));
    return packet;
}

PacketFault checkPacket(const unsigned char* p, std::size_t n) {
    if (n < 4 || p[0] != static_cast<unsigned char>((n - 4) & 0xFFu)) return PacketFault::Length;
    const uint16_t received = static_cast<uint16_t>((p[n - 2] << 8) | p[n - 1]);
    return sum16(p, n - 2) == received ? PacketFault::None : PacketFault::Checksum;
}

uint8_t nextMessageId(uint8_t current) {
    const uint8_t next = static_cast<uint8_t>(current + 1);
    return next < kFirstTrackedMessageId ? kFirstTrackedMessageId : next;
}

void appendHexBytes(std::string& out, const unsigned char* p, std::size_t n) {
    static const char kDigits[] = "0123456789ABCDEF";
    out.reserve(out.size() + 5 * n);
    for (std::size_t i = 0; i < n; ++i) {
        const char hex[5] = {'0', 'x', kDigits[p[i] >> 4], kDigits[p[i] & 0x0F], ' '};
        out.append(hex, sizeof hex);
    }
}

} // namespace tarvel
