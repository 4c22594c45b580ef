#include "session/RequestRecord.h"

namespace tarvel {
namespace session {

namespace {
uint16_t low16(uint32_t id) {
    return static_cast<uint16_t>(id & 0xFFFFu);
}
} // namespace

RequestRecord::Replaced RequestRecord::add(unsigned char channelMask, uint32_t id, bool extended, int32_t requestKey) {
    Replaced replaced;
    replaced.handler = low16(id);
    replaced.channelMask = channelMask;
    for (unsigned c = 0; c < kChannels; ++c) {
        if (!(channelMask & (1u << c))) continue;
        RequestIdentity& entry = m_byChannel[c][low16(id)];
        replaced.had[c] = entry.requestKey != 0;
        replaced.was[c] = entry;
        entry = RequestIdentity{id, extended, requestKey};
    }
    return replaced;
}

void RequestRecord::undo(const Replaced& replaced) {
    for (unsigned c = 0; c < kChannels; ++c) {
        if (!(replaced.channelMask & (1u << c))) continue;
        if (replaced.had[c])
            m_byChannel[c][replaced.handler] = replaced.was[c];
        else
            m_byChannel[c].erase(replaced.handler);
    }
}

const RequestIdentity* RequestRecord::conflict(unsigned char channelMask, uint32_t id, bool extended) const {
    for (unsigned c = 0; c < kChannels; ++c) {
        if (!(channelMask & (1u << c))) continue;
        const RequestIdentity* live = find(c, low16(id));
        if (live != nullptr && (live->id != id || live->extended != extended)) return live;
    }
    return nullptr;
}

const RequestIdentity* RequestRecord::find(unsigned channel, uint16_t handler) const {
    if (channel >= kChannels) return nullptr;
    const auto it = m_byChannel[channel].find(handler);
    return it == m_byChannel[channel].end() ? nullptr : &it->second;
}

void RequestRecord::remove(uint16_t handler) {
    for (auto& channel : m_byChannel)
        channel.erase(handler);
}

void RequestRecord::clear() {
    for (auto& channel : m_byChannel)
        channel.clear();
}

} // namespace session
} // namespace tarvel
