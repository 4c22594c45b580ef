// The simulator's own frame and packet code, on fixed byte strings.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <gtest/gtest.h>

#include "tarvelsim/Wire.h"

using namespace tarvelsim;

namespace {

std::vector<Bytes> decodeAll(const Bytes& input, std::vector<SlipDecoder::Event>* faults = nullptr,
                             std::size_t maxSize = 512) {
    SlipDecoder decoder(maxSize);
    std::vector<Bytes> frames;
    for (uint8_t b : input) {
        const auto e = decoder.feed(b);
        if (e == SlipDecoder::Event::Frame) frames.push_back(decoder.frame());
        else if (e != SlipDecoder::Event::None && faults) faults->push_back(e);
    }
    return frames;
}

} // namespace

TEST(SimWire, PacketsAndChecksums) {
    EXPECT_EQ((Bytes{0x01, 0x05, 0x09, 0x00, 0x0F}), buildPacket(5, cmd::PING, {}));
    EXPECT_EQ((Bytes{0x03, 0x05, 0x01, 0xFF, 0xFF, 0x02, 0x07}), buildPacket(5, 0x01, {0xFF, 0xFF}));

    EXPECT_EQ(PacketCheck::Ok, checkPacket({0x01, 0x05, 0x09, 0x00, 0x0F}));
    EXPECT_EQ(PacketCheck::BadChecksum, checkPacket({0x01, 0x05, 0x09, 0x00, 0x0E}));
    EXPECT_EQ(PacketCheck::BadLength, checkPacket({0x02, 0x05, 0x09, 0x00, 0x10}));
    EXPECT_EQ(PacketCheck::BadLength, checkPacket({0x00, 0x05, 0x00, 0x05})); // no code byte
    EXPECT_EQ(PacketCheck::BadLength, checkPacket({}));
}

TEST(SimWire, EncodingEscapesOnlyEndAndEsc) {
    EXPECT_EQ((Bytes{0xC0, 0xDB, 0xDC, 0xC0}), slipEncode({0xC0}));
    EXPECT_EQ((Bytes{0xC0, 0xDB, 0xDD, 0xC0}), slipEncode({0xDB}));
    EXPECT_EQ((Bytes{0xC0, 0xDC, 0xDD, 0xDE, 0xC0}), slipEncode({0xDC, 0xDD, 0xDE}));
    EXPECT_EQ((Bytes{0xC0, 0xC0}), slipEncode({}));
}

TEST(SimWire, DecoderHuntsSkipsAndDrops) {
    // Garbage before the opening END, repeated delimiters, escapes.
    EXPECT_EQ((std::vector<Bytes>{{0x01}, {0x02, 0xC0, 0xDB}}),
              decodeAll({0x55, 0x66, 0xC0, 0x01, 0xC0, 0xC0, 0xC0, 0x02, 0xDB, 0xDC, 0xDB, 0xDD, 0xC0}));
    // ESC ESC_BRK throws away what was gathered; an END right after it is skipped.
    EXPECT_EQ((std::vector<Bytes>{{0x02, 0x03}}), decodeAll({0xC0, 0x01, 0xDB, 0xDE, 0x02, 0x03, 0xC0}));
    EXPECT_EQ((std::vector<Bytes>{{0x04}}), decodeAll({0xC0, 0x01, 0xDB, 0xDE, 0xC0, 0x04, 0xC0}));
    // Bytes after a closing END are not a frame until the next END opens one.
    EXPECT_TRUE(decodeAll({0xC0, 0xC0, 0x07, 0x08}).empty());
}

TEST(SimWire, DecoderRecoversAfterFaults) {
    std::vector<SlipDecoder::Event> faults;
    // A bad escape: the rest of that frame is dropped, the next frame is whole.
    auto frames = decodeAll({0xC0, 0x01, 0xDB, 0x05, 0x06, 0xC0, 0xC0, 0x0B, 0xC0}, &faults);
    EXPECT_EQ((std::vector<SlipDecoder::Event>{SlipDecoder::Event::BadEscape}), faults);
    EXPECT_EQ((std::vector<Bytes>{{0x0B}}), frames);

    // ESC END: the END both breaks the frame and opens the next one.
    faults.clear();
    frames = decodeAll({0xC0, 0x01, 0xDB, 0xC0, 0x0C, 0xC0}, &faults);
    EXPECT_EQ(1u, faults.size());
    EXPECT_EQ((std::vector<Bytes>{{0x0C}}), frames);

    // Exactly maxSize bytes pass; one more is too long, and the frame after it survives.
    faults.clear();
    Bytes input{0xC0, 1, 2, 3, 4, 0xC0, 0xC0, 1, 2, 3, 4, 5, 0xC0, 0xC0, 9, 0xC0};
    frames = decodeAll(input, &faults, 4);
    EXPECT_EQ((std::vector<SlipDecoder::Event>{SlipDecoder::Event::TooLong}), faults);
    EXPECT_EQ((std::vector<Bytes>{{1, 2, 3, 4}, {9}}), frames);
}

TEST(SimWire, DataLengthCodes) {
    EXPECT_EQ(12u, dlcToLength(9));
    EXPECT_EQ(64u, dlcToLength(15));
    EXPECT_EQ(8, lengthToDlc(8));
    EXPECT_EQ(9, lengthToDlc(9)); // 9 bytes travel in a 12-byte frame
    EXPECT_EQ(15, lengthToDlc(49));
}

#endif
