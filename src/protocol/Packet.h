// Packet layout shared by the sender and the checkers:
// [length][message id][command or response][payload...][sum16 high][sum16 low]
#ifndef TARVEL_PROTOCOL_PACKET_H
#define TARVEL_PROTOCOL_PACKET_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "TarvelTypes.h"

namespace tarvel {

// Bytes around the payload: length, id, command, two checksum bytes.
constexpr std::size_t kPacketOverhead = 5;
// The id every untracked command carries; tracked ids run 5..255.
constexpr uint8_t kUntrackedMessageId = 4;
constexpr uint8_t kFirstTrackedMessageId = 5;

// Sum of the bytes as unsigned numbers, modulo 65536.
uint16_t sum16(const unsigned char* p, std::size_t n);

// A complete host packet; the length byte is (payload size + 1) modulo 256.
ByteVector buildPacket(uint8_t messageId, uint8_t cmd, const ByteVector& payload);

// The id of the next tracked command: increment with wrap, values below 5 become 5.
uint8_t nextMessageId(uint8_t current);

// What is wrong with a received packet, judged by its length byte and sum16.
enum class PacketFault { None, Length, Checksum };
// A packet of at least 4 bytes whose length byte is its size - 4 (mod 256)
// and whose last two bytes are the sum16 of the others, big-endian.
PacketFault checkPacket(const unsigned char* p, std::size_t n);

// Appends "0xHH " (upper-case, zero-filled, trailing blank) for every byte.
void appendHexBytes(std::string& out, const unsigned char* p, std::size_t n);

} // namespace tarvel

#endif
