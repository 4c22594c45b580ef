// Whatever bytes the line delivers, the session holds together: noise costs
// at most the exchanges it hits (and may end the receiver, which restarts),
// never memory safety, a hang or a later exchange.
#include <gtest/gtest.h>

#include <random>

#include "SimSession.h"
#include "tarvelsim/Wire.h"

namespace {

using tarvelsim::Bytes;

// Random bytes, one in four a framing byte, so that frames, escapes, drop
// requests and oversized frames all occur.
Bytes lineNoise(std::mt19937& rng, std::size_t n) {
    static const uint8_t framing[] = {0xC0, 0xDB, 0xDC, 0xDD, 0xDE};
    Bytes out(n);
    for (auto& b : out) {
        const uint32_t r = rng();
        b = (r % 4 == 0) ? framing[(r >> 8) % 5] : static_cast<uint8_t>(r >> 16);
    }
    return out;
}

// Well-framed packets with right checksums and random content: any response
// id, any message id, data of any length (short reports, long OK answers).
Bytes packetNoise(std::mt19937& rng, int packets) {
    Bytes out;
    for (int i = 0; i < packets; ++i) {
        Bytes data(rng() % 70);
        for (auto& b : data)
            b = static_cast<uint8_t>(rng());
        const uint8_t responseId = static_cast<uint8_t>(0x80 + rng() % 0x20);
        const Bytes frame =
            tarvelsim::slipEncode(tarvelsim::buildPacket(static_cast<uint8_t>(rng()), responseId, data));
        out.insert(out.end(), frame.begin(), frame.end());
    }
    return out;
}

class LineNoise : public SimSession {
protected:
    // Pings until one succeeds, restarting a receiver that the noise ended.
    bool recovers(bool withReceiver) {
        for (int attempt = 0; attempt < 300; ++attempt) {
            if (withReceiver && (tarvel.GetInternalThreadStatus() & 1) == 0) tarvel.StartReceiver();
            if (tarvel.Ping() == 0) return true;
        }
        return false;
    }
};

TEST_F(LineNoise, ExchangesResumeAfterNoiseWithAndWithoutReceiver) {
    std::mt19937 rng(20261123);
    for (const bool withReceiver : {false, true}) {
        for (int round = 0; round < 6; ++round) {
            SCOPED_TRACE(::testing::Message() << (withReceiver ? "receiver" : "direct") << " round " << round);
            if (withReceiver) {
                ASSERT_GE(tarvel.StartReceiver(), 0);
            }
            sim().sendRaw(round % 2 ? packetNoise(rng, 40) : lineNoise(rng, 2048));
            sim().sendRaw({0xC0}); // closes whatever frame the noise left open
            EXPECT_TRUE(recovers(withReceiver));
            tarvel.StopReceiver();
        }
    }
    // The session's own state survived: message ids still follow the counter.
    sim().clearLog();
    ASSERT_EQ(0, tarvel.Ping());
    const auto log = sent(1);
    EXPECT_GE(log.back().messageId, 5);
}

} // namespace
