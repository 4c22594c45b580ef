// The simulator's own frame and packet code, on fixed byte strings.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <gtest/gtest.h>

#include "tarvelsim/Wire.h"

using namespace tarvelsim;

namespace {

using Event = SlipDecoder::Event;

TEST(SimWire, PacketsFramesAndLengthCodes) {
    EXPECT_EQ((Bytes{0x01, 0x05, 0x09, 0x00, 0x0F}), buildPacket(5, cmd::PING, {}));
    EXPECT_EQ((Bytes{0x03, 0x05, 0x01, 0xFF, 0xFF, 0x02, 0x07}), buildPacket(5, 0x01, {0xFF, 0xFF}));
    EXPECT_EQ(PacketCheck::Ok, checkPacket({0x01, 0x05, 0x09, 0x00, 0x0F}));
    EXPECT_EQ(PacketCheck::BadChecksum, checkPacket({0x01, 0x05, 0x09, 0x00, 0x0E}));
    EXPECT_EQ(PacketCheck::BadLength, checkPacket({0x02, 0x05, 0x09, 0x00, 0x10}));
    EXPECT_EQ(PacketCheck::BadLength, checkPacket({0x00, 0x05, 0x00, 0x05})); // no code byte
    EXPECT_EQ(PacketCheck::BadLength, checkPacket({}));

    // Only END and ESC are escaped.
    EXPECT_EQ((Bytes{0xC0, 0xDB, 0xDC, 0xC0}), slipEncode({0xC0}));
    EXPECT_EQ((Bytes{0xC0, 0xDB, 0xDD, 0xC0}), slipEncode({0xDB}));
    EXPECT_EQ((Bytes{0xC0, 0xDC, 0xDD, 0xDE, 0xC0}), slipEncode({0xDC, 0xDD, 0xDE}));
    EXPECT_EQ((Bytes{0xC0, 0xC0}), slipEncode({}));

    EXPECT_EQ(12u, dlcToLength(9));
    EXPECT_EQ(64u, dlcToLength(15));
    EXPECT_EQ(8, lengthToDlc(8));
    EXPECT_EQ(9, lengthToDlc(9)); // 9 bytes travel in a 12-byte frame
    EXPECT_EQ(15, lengthToDlc(49));
}

TEST(SimWire, DecoderHuntsSkipsDropsAndRecovers) {
    struct Case {
        Bytes input;
        std::vector<Bytes> frames;
        std::vector<Event> faults;
        std::size_t maxSize = 512;
    };
    const Case cases[] = {
        // Garbage before the opening END, repeated delimiters, escapes.
        {{0x55, 0x66, 0xC0, 0x01, 0xC0, 0xC0, 0xC0, 0x02, 0xDB, 0xDC, 0xDB, 0xDD, 0xC0}, {{1}, {2, 0xC0, 0xDB}}, {}},
        // ESC ESC_BRK throws away what was gathered; an END right after it is skipped.
        {{0xC0, 0x01, 0xDB, 0xDE, 0x02, 0x03, 0xC0}, {{0x02, 0x03}}, {}},
        {{0xC0, 0x01, 0xDB, 0xDE, 0xC0, 0x04, 0xC0}, {{0x04}}, {}},
        // Bytes after a closing END are not a frame until the next END opens one.
        {{0xC0, 0xC0, 0x07, 0x08}, {}, {}},
        // A bad escape: the rest of that frame is dropped, the next frame is whole.
        {{0xC0, 0x01, 0xDB, 0x05, 0x06, 0xC0, 0xC0, 0x0B, 0xC0}, {{0x0B}}, {Event::BadEscape}},
        // ESC END: the END both breaks the frame and opens the next one.
        {{0xC0, 0x01, 0xDB, 0xC0, 0x0C, 0xC0}, {{0x0C}}, {Event::BadEscape}},
        // Exactly maxSize bytes pass; one more is too long, and the frame after it survives.
        {{0xC0, 1, 2, 3, 4, 0xC0, 0xC0, 1, 2, 3, 4, 5, 0xC0, 0xC0, 9, 0xC0}, {{1, 2, 3, 4}, {9}}, {Event::TooLong}, 4},
    };
    for (const Case& c : cases) {
        SlipDecoder decoder(c.maxSize);
        std::vector<Bytes> frames;
        std::vector<Event> faults;
        for (uint8_t b : c.input) {
            const Event e = decoder.feed(b);
            if (e == Event::Frame)
                frames.push_back(decoder.frame());
            else if (e != Event::None)
                faults.push_back(e);
        }
        EXPECT_EQ(c.frames, frames);
        EXPECT_EQ(c.faults, faults);
    }
}

} // namespace

#endif
