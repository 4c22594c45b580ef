// Host packets byte for byte, the checksum and the message-id sequence.
#include "protocol/Packet.h"
#include "Tarvel.h"

#include <gtest/gtest.h>

using tarvel::buildPacket;
using tarvel::nextMessageId;

TEST(Packet, KnownPackets) {
    // First tracked command after construction: counter 0 -> id 5.
    EXPECT_EQ(buildPacket(nextMessageId(0), Tarvel::PING, {}), (ByteVector{0x01, 0x05, 0x09, 0x00, 0x0F}));
    // The 6th tracked command (id 0x0A), with a big-endian handler in front of the payload.
    EXPECT_EQ(buildPacket(0x0A, Tarvel::REMOVE_MESSAGE, {0x12, 0x34}),
              (ByteVector{0x03, 0x0A, 0x02, 0x12, 0x34, 0x00, 0x55}));
    // The checksum carries into its high byte.
    EXPECT_EQ(buildPacket(0x05, Tarvel::ADD_MESSAGE, {0xFF, 0xFF}),
              (ByteVector{0x03, 0x05, 0x01, 0xFF, 0xFF, 0x02, 0x07}));
}

TEST(Packet, LengthByteAndChecksumOfTheLongestPayload) {
    const ByteVector packet = buildPacket(0xFF, 0xFF, ByteVector(254, 0xFF));
    ASSERT_EQ(packet.size(), 259u);
    EXPECT_EQ(packet[0], 0xFF);
    // 257 bytes of 0xFF: 65535, the largest sum before the wrap.
    EXPECT_EQ(packet[257], 0xFF);
    EXPECT_EQ(packet[258], 0xFF);
}
