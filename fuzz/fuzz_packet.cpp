// Fuzz target: the packet checks, Tarvel::CheckMessage and
// Tarvel::ParseMessage, on a session without print sinks.
//
// - The input as a device packet: both checks find the same length and
//   checksum faults, and ParseMessage fills its output on success only.
// - The input as [id] [code] [payload...]: the packet buildPacket makes of it
//   parses back to the same id, code and payload, and with any one byte
//   changed (position and change taken from the input) it fails the check.
#include <cstddef>
#include <cstdint>

#include "FuzzCheck.h"
#include "Tarvel.h"
#include "protocol/Packet.h"

namespace {

Tarvel& quietSession() {
    static Tarvel* session = [] {
        Tarvel* t = new Tarvel;
        t->ClearPrintStream();
        return t;
    }();
    return *session;
}

RecvMessage sentinel() {
    RecvMessage m;
    m.messageId = 0xA5;
    m.responseId = 0x5A;
    m.data = ByteVector{1, 2, 3};
    return m;
}

bool sameMessage(const RecvMessage& a, const RecvMessage& b) {
    return a.messageId == b.messageId && a.responseId == b.responseId && a.data == b.data;
}

void checkArbitraryPacket(Tarvel& t, const ByteVector& packet, int quietLevel) {
    const int checked = t.CheckMessage(packet, quietLevel != 0);
    RecvMessage out = sentinel();
    const int parsed = t.ParseMessage(packet, out, quietLevel);

    FUZZ_CHECK(checked == 0 || checked == -1 || checked == -2);
    if (packet.empty())
        FUZZ_CHECK(checked == -1 && parsed == -4);
    else if (checked != 0)
        FUZZ_CHECK(parsed == checked);
    else // a right length byte and sum: ParseMessage also needs the response byte
        FUZZ_CHECK(parsed == 0 || (parsed == -1 && packet.size() == 4));

    if (parsed != 0) {
        FUZZ_CHECK(sameMessage(out, sentinel()));
        return;
    }
    FUZZ_CHECK(out.messageId == packet[1] && out.responseId == packet[2]);
    FUZZ_CHECK(out.data == ByteVector(packet.begin() + 3, packet.end() - 2));
}

void checkBuiltPacket(Tarvel& t, const uint8_t* data, std::size_t size) {
    const ByteVector payload(data + 2, data + size);
    const ByteVector packet = tarvel::buildPacket(data[0], data[1], payload);
    FUZZ_CHECK(packet.size() == payload.size() + tarvel::kPacketOverhead);
    FUZZ_CHECK(t.CheckMessage(packet, true) == 0);
    RecvMessage out = sentinel();
    FUZZ_CHECK(t.ParseMessage(packet, out, 2) == 0);
    FUZZ_CHECK(out.messageId == data[0] && out.responseId == data[1] && out.data == payload);

    // One byte changed by a non-zero amount changes its length byte, its
    // sum or the sum it carries: always caught.
    ByteVector damaged = packet;
    damaged[size % damaged.size()] ^= static_cast<unsigned char>(1 + size % 255);
    FUZZ_CHECK(t.CheckMessage(damaged, true) != 0);
    out = sentinel();
    FUZZ_CHECK(t.ParseMessage(damaged, out, 2) != 0 && sameMessage(out, sentinel()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Tarvel& t = quietSession();
    // Level 0 formats the fault reports (to no sink), the others skip them.
    checkArbitraryPacket(t, ByteVector(data, data + size), static_cast<int>(size % 3));
    if (size >= 2) checkBuiltPacket(t, data, size);
    return 0;
}
