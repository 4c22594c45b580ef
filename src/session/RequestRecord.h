// What the session knows of the requests the device accepted: for each
// channel and 16-bit handler, the full identifier and its format. A report
// carries only the handler; its identifier comes from here. Not locked:
// the session guards it with the async map's mutex. Internal.
#ifndef TARVEL_SESSION_REQUEST_RECORD_H
#define TARVEL_SESSION_REQUEST_RECORD_H

#include <cstdint>
#include <unordered_map>

namespace tarvel {
namespace session {

struct RequestIdentity {
    uint32_t id = 0; // 11 or 29 bits
    bool extended = false;
    int32_t requestKey = 0; // as RequestMessage returned it
};

class RequestRecord {
public:
    static constexpr unsigned kChannels = 4;

    // What add() replaced, for undo().
    struct Replaced {
        uint16_t handler = 0;
        unsigned char channelMask = 0;
        bool had[kChannels] = {};
        RequestIdentity was[kChannels];
    };

    // Records a request on the channels of `channelMask` (bits 0..3); an
    // older request on the same channel and handler is replaced. Made before
    // the request is sent, so that a report arriving before the answer
    // already finds it.
    Replaced add(unsigned char channelMask, uint32_t id, bool extended, int32_t requestKey);
    // Puts back what add() replaced: the device refused the request.
    void undo(const Replaced& replaced);
    // The live request on one of the channels of `channelMask` that the
    // device could not tell apart from (id, extended): the same low 16 bits,
    // another identifier or format. Null when there is none.
    const RequestIdentity* conflict(unsigned char channelMask, uint32_t id, bool extended) const;
    const RequestIdentity* find(unsigned channel, uint16_t handler) const;
    void remove(uint16_t handler);
    void clear();

private:
    std::unordered_map<uint16_t, RequestIdentity> m_byChannel[kChannels];
};

} // namespace session
} // namespace tarvel

#endif
