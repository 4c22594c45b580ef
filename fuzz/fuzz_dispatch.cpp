// Fuzz target: the receiver's dispatch. A session whose port is open on the
// memory line receives the input's bytes, run frame by frame through the
// receiver's step on this thread (no receiver thread), until the bytes are
// used up or the receiver would end.
//
// Input: [flags: low 4 bits k, bit 4 repeat] [k chunk sizes] [stream...]; with
// `repeat` the line repeats the stream until kLineBytes have arrived, as a
// device that keeps sending.
// Checks: no crash or sanitizer report; the answers and reports the session
// holds fit in the frames the bytes can carry (two END bytes each), and the
// unclaimed answers stay under a fixed bound however many arrive.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "FuzzCheck.h"
#include "MemoryLine.h"
#include "Tarvel.h"
#include "TarvelTestAccess.h"
#include "serial/SlipCodec.h"

namespace {

// Room for 292 of the smallest answers (7 bytes framed), more than the bound.
const std::size_t kLineBytes = 2048;
// Answers nobody has claimed: tracked ids run 5..255, so a longer queue holds
// answers whose ids have come round again. Far above any real backlog.
const std::size_t kMaxHeldAnswers = 256;

ByteVector lineBytes(const uint8_t* stream, std::size_t n, bool repeat) {
    ByteVector bytes(stream, stream + n);
    if (!repeat || n == 0) return bytes;
    while (bytes.size() < kLineBytes) {
        const std::size_t have = bytes.size();
        bytes.resize(2 * have);
        std::copy_n(bytes.begin(), have, bytes.begin() + static_cast<std::ptrdiff_t>(have));
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // The receiver reports odd frames on stderr: buffer it, so that a run
    // that discards it doesn't pay a system call per report.
    static char buffer[1 << 16];
    std::setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    const std::size_t k = data[0] & 0x0F;
    if (size < 1 + k) return 0;
    const ByteVector chunks(data + 1, data + 1 + k);
    const bool repeat = (data[0] & 0x10) != 0;
    const ByteVector bytes = lineBytes(data + 1 + k, size - 1 - k, repeat);

    Tarvel session;
    session.ClearPrintStream();
    // The session's port opened directly: Connect's version query would start
    // the port's sender thread, which costs more than most inputs.
    memline::setInput(bytes, chunks);
    SerialPort& port = TarvelTestAccess::port(session);
    FUZZ_CHECK(port.Connect("memory", 2000000, 8, 0, 2) == 0 && port.SetTimeout(0, 0) == 0);

    // Every step but the last consumes at least one byte; the step whose
    // read found the line empty ends the bytes.
    for (std::size_t steps = 0; memline::emptyReads() == 0; ++steps) {
        FUZZ_CHECK(steps <= bytes.size());
        if (!TarvelTestAccess::receiveOne(session)) break;
    }

    const std::size_t answers = TarvelTestAccess::syncBufferSize(session);
    const std::size_t reports = TarvelTestAccess::asyncMapSize(session);
    const std::size_t ends = static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), tarvel::slip::kEnd));
    FUZZ_CHECK(answers + reports <= ends / 2);
    FUZZ_CHECK(answers <= kMaxHeldAnswers);
    return 0;
}
