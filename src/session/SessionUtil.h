// Pieces shared by the session's source files.
#ifndef TARVEL_SESSION_UTIL_H
#define TARVEL_SESSION_UTIL_H

#include "Tarvel.h"

namespace tarvel {
namespace session {

// The answer value: data as a big-endian number of at most 2 bytes (empty is
// 0). Longer data can't be a 16-bit answer: reported on stderr, taken as 0.
unsigned answerValue(const ByteVector& data);

// Fills `out` from an ASYNC_MESSAGE packet; false when the data is too short
// for the header or for the length its data length code stands for.
bool buildAsyncMessage(const RecvMessage& message, RecvAsyncMessage& out);

} // namespace session
} // namespace tarvel

#endif
