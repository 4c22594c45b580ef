// A serial line in memory for the fuzz targets: MemoryLine.cpp implements the
// platform layer's device (serial/PortDevice.h) over the bytes given here, so
// that SerialPort and a whole session run on fuzz input without a terminal.
#ifndef TARVEL_FUZZ_MEMORY_LINE_H
#define TARVEL_FUZZ_MEMORY_LINE_H

#include <cstddef>

#include "TarvelTypes.h"

namespace memline {

// What every open device reads from now on: `input`, handed out by each read
// in a chunk of at most 1 + chunkSizes[i] bytes, i going round the list (an
// empty list: as much as the read asks for). Once the input is used up, a
// read times out at once. Also forgets what was written.
void setInput(ByteVector input, ByteVector chunkSizes);

// Input bytes not read yet.
std::size_t unread();

// Reads since setInput that found the input used up (time-outs).
std::size_t emptyReads();

// The bytes written since setInput, in order; the line keeps no copy.
ByteVector takeWritten();

} // namespace memline

#endif
