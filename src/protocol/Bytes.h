// Small helpers for building payloads and mapping device answers.
#ifndef TARVEL_PROTOCOL_BYTES_H
#define TARVEL_PROTOCOL_BYTES_H

#include <cstdint>
#include <initializer_list>
#include <utility>

#include "Tarvel.h"

namespace tarvel {

inline void appendBE16(ByteVector& out, uint16_t v) {
    out.push_back(static_cast<unsigned char>(v >> 8));
    out.push_back(static_cast<unsigned char>(v));
}

inline void appendBE32(ByteVector& out, uint32_t v) {
    out.push_back(static_cast<unsigned char>(v >> 24));
    out.push_back(static_cast<unsigned char>(v >> 16));
    out.push_back(static_cast<unsigned char>(v >> 8));
    out.push_back(static_cast<unsigned char>(v));
}

inline void appendLE32(ByteVector& out, uint32_t v) {
    out.push_back(static_cast<unsigned char>(v));
    out.push_back(static_cast<unsigned char>(v >> 8));
    out.push_back(static_cast<unsigned char>(v >> 16));
    out.push_back(static_cast<unsigned char>(v >> 24));
}

// The device's general "refused" answer.
constexpr int kAnswerRefused = 0xFFFF;

// Maps a device answer to a result code: negative codes (failed send or wait)
// pass through, listed answers become their codes, others stay as they are.
inline int mapAnswer(int answer, std::initializer_list<std::pair<int, int>> codes = {{kAnswerRefused, -21}}) {
    if (answer < 0) return answer;
    for (const auto& c : codes)
        if (c.first == answer) return c.second;
    return answer;
}

} // namespace tarvel

#endif
