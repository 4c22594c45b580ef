// SLIP encoding and decoding, apart from the port so that they can be run on
// memory as well (benchmarks). Internal to the library.
#ifndef TARVEL_SERIAL_SLIP_CODEC_H
#define TARVEL_SERIAL_SLIP_CODEC_H

#include <cstddef>
#include <iostream>

#include "TarvelTypes.h"

namespace tarvel {
namespace slip {

const unsigned char kEnd = 0xC0;
const unsigned char kEsc = 0xDB;
const unsigned char kEscEnd = 0xDC;
const unsigned char kEscEsc = 0xDD;
const unsigned char kEscBrk = 0xDE;

// Room the encoder needs for n payload bytes: every byte escaped, both
// delimiters, and some slack.
inline std::size_t encodeBound(std::size_t n) {
    return 2 * n + 4;
}

// Writes END, the escaped payload and END into out; returns the frame length.
inline std::size_t encode(const unsigned char* data, std::size_t n, unsigned char* out) {
    std::size_t pos = 0;
    out[pos++] = kEnd;
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned char b = data[i];
        if (b == kEnd) {
            out[pos++] = kEsc;
            out[pos++] = kEscEnd;
        } else if (b == kEsc) {
            out[pos++] = kEsc;
            out[pos++] = kEscEsc;
        } else {
            out[pos++] = b;
        }
    }
    out[pos++] = kEnd;
    return pos;
}

namespace detail {
inline void report(bool verbose, const char* text) {
    if (verbose) std::cerr << text << std::endl;
}
} // namespace detail

// Decodes one frame from `read`, a callable int(unsigned char*) with
// ReadByte's results for one byte. Results as SerialPort::SlipReceive after
// its port check; `verbose` enables its reports.
template <class ReadOne>
int decode(ReadOne&& read, ByteVector& buffer, std::size_t maxSize, bool verbose, bool dropEnabled) {
    unsigned char b = 0;
    for (;;) { // hunt for the opening END
        const int r = read(&b);
        if (r <= 0) {
            buffer.resize(0);
            return r;
        }
        if (b == kEnd) break;
    }
    if (buffer.size() != maxSize) buffer.resize(maxSize);

    std::size_t count = 0;
    int result = 0;
    for (;;) {
        int r = read(&b);
        if (r == 1) {
            if (b == kEnd) {
                if (count != 0) {
                    buffer.resize(count);
                    return static_cast<int>(count);
                }
            } else if (b == kEsc) {
                r = read(&b);
                if (r == 1) {
                    if (b == kEscEnd) {
                        b = kEnd;
                    } else if (b == kEscEsc) {
                        b = kEsc;
                    } else if (b == kEscBrk && dropEnabled) {
                        detail::report(verbose, "SerialPort::SlipReceive: Buffer drop requested.");
                        count = 0;
                    } else {
                        detail::report(verbose, "SerialPort::SlipReceive: Unexpected data after ESC char!");
                        result = -3;
                        break;
                    }
                    if (b != kEscBrk) {
                        if (count < buffer.size()) buffer[count] = b;
                        ++count;
                    }
                }
            } else {
                if (count < buffer.size()) buffer[count] = b;
                ++count;
            }
        }
        if (r == 0) {
            detail::report(verbose,
                           "SerialPort::SlipReceive: Serial ReadByte timeouted but byte after ESC char was expected.");
            result = -3;
            break;
        }
        if (r == -1) {
            result = -1;
            break;
        }
        if (r < 0) {
            if (verbose) std::cerr << "SerialPort::SlipReceive: Unexpected error: " << r << std::endl;
            result = -1;
            break;
        }
        if (count >= maxSize) {
            detail::report(verbose, "SerialPort::SlipReceive: Designated buffer is out of space.");
            result = -2;
            break;
        }
    }
    buffer.resize(0);
    return result;
}

} // namespace slip
} // namespace tarvel

#endif
