// Fuzz target: the SLIP decoder as the port runs it, SerialPort::SlipReceive
// over the memory line, which hands the bytes out in chunks of sizes taken
// from the input.
//
// Input: [maxSize] [separator] [flags: low 4 bits k, bit 7 mode 2] [k chunk sizes] [stream...]
// - read as raw line bytes, the stream gives the frames and errors that the
//   reference decoder below gives;
// - cut at the separator into payloads (pieces longer than maxSize - 1 cut
//   again), sent with SlipSend, the stream comes back payload by payload.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzCheck.h"
#include "MemoryLine.h"
#include "SerialPort.h"
#include "serial/SlipCodec.h"

namespace {

namespace slip = tarvel::slip;

// SlipReceive's framing written plainly, on the whole input at once: hunt for
// END; gather up to the next END, skipping empty frames; ESC ESC_END and ESC
// ESC_ESC stand for END and ESC, ESC ESC_BRK drops what was gathered, any
// other byte after ESC is a protocol error (-3); maxSize bytes gathered is
// too long (-2); input ending after the opening END is silence in mid-frame
// (-3), before it a time-out (0). Consumes what SlipReceive consumes.
// `frame` holds the bytes gathered, also on failure.
int gatherFrame(const ByteVector& in, std::size_t& pos, std::size_t maxSize, ByteVector& frame) {
    while (pos < in.size() && in[pos] != slip::kEnd)
        ++pos;
    if (pos == in.size()) return 0;
    ++pos;
    for (;;) {
        if (pos == in.size()) return -3;
        const unsigned char b = in[pos++];
        if (b == slip::kEnd) {
            if (!frame.empty()) return static_cast<int>(frame.size());
        } else if (b == slip::kEsc) {
            if (pos == in.size()) return -3;
            const unsigned char e = in[pos++];
            if (e == slip::kEscEnd)
                frame.push_back(slip::kEnd);
            else if (e == slip::kEscEsc)
                frame.push_back(slip::kEsc);
            else if (e == slip::kEscBrk)
                frame.clear();
            else
                return -3;
        } else {
            frame.push_back(b);
        }
        if (frame.size() >= maxSize) return -2;
    }
}

// A frame on success; after a time-out or an error, nothing.
int referenceFrame(const ByteVector& in, std::size_t& pos, std::size_t maxSize, ByteVector& frame) {
    frame.clear();
    const int result = gatherFrame(in, pos, maxSize, frame);
    if (result <= 0) frame.clear();
    return result;
}

std::vector<ByteVector> payloadsOf(const ByteVector& stream, unsigned char separator, std::size_t maxLength) {
    std::vector<ByteVector> payloads;
    ByteVector piece;
    for (unsigned char b : stream) {
        if (b != separator) piece.push_back(b);
        if (!piece.empty() && (b == separator || piece.size() == maxLength)) {
            payloads.push_back(piece);
            piece.clear();
        }
    }
    if (!piece.empty()) payloads.push_back(piece);
    return payloads;
}

void openMemoryPort(SerialPort& port) {
    FUZZ_CHECK(port.Connect("memory", 2000000, 8, 0, 2) == 0);
    FUZZ_CHECK(port.SetTimeout(0, 0) == 0);
}

// The raw stream: SlipReceive and the reference agree call by call, up to
// the time-out at the end of the input.
void checkAgainstReference(const ByteVector& stream, const ByteVector& chunks, std::size_t maxSize, int mode) {
    SerialPort port;
    openMemoryPort(port);
    memline::setInput(stream, chunks);
    std::size_t refPos = 0;
    // Every call but the last consumes at least one byte.
    for (std::size_t calls = 0; calls <= stream.size() + 1; ++calls) {
        ByteVector got(3, 0x55); // SlipReceive must replace what the buffer held
        const int r = port.SlipReceive(got, maxSize, mode);
        ByteVector want;
        const int w = referenceFrame(stream, refPos, maxSize, want);
        FUZZ_CHECK(r == w);
        FUZZ_CHECK(got == want);
        if (r == 0) {
            FUZZ_CHECK(memline::unread() == 0);
            return;
        }
    }
    FUZZ_CHECK(!"SlipReceive kept returning frames after its input ended");
}

// The payloads go out with SlipSend and come back, each exactly and in order.
void checkRoundTrip(const std::vector<ByteVector>& payloads, const ByteVector& chunks, std::size_t maxSize, int mode) {
    SerialPort port;
    openMemoryPort(port);
    memline::setInput(ByteVector(), chunks);
    for (const ByteVector& p : payloads)
        FUZZ_CHECK(port.SlipSend(p, false, true) > 0);
    memline::setInput(memline::takeWritten(), chunks);
    for (const ByteVector& p : payloads) {
        ByteVector got;
        FUZZ_CHECK(port.SlipReceive(got, maxSize, mode) == static_cast<int>(p.size()));
        FUZZ_CHECK(got == p);
    }
    ByteVector rest;
    FUZZ_CHECK(port.SlipReceive(rest, maxSize, mode) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size < 3) return 0;
    const std::size_t maxSize = data[0];
    const unsigned char separator = data[1];
    const std::size_t k = data[2] & 0x0F;
    const int mode = (data[2] & 0x80) != 0 ? 2 : 1; // mode 0 only adds reports on stderr
    if (size < 3 + k) return 0;
    const ByteVector chunks(data + 3, data + 3 + k);
    const ByteVector stream(data + 3 + k, data + size);

    checkAgainstReference(stream, chunks, maxSize, mode);
    if (maxSize >= 2) checkRoundTrip(payloadsOf(stream, separator, maxSize - 1), chunks, maxSize, mode);
    return 0;
}
