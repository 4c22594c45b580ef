// Reception requests: the device reports the CAN messages they name.
#include <cstdio>
#include <mutex>
#include <string>

#include "Tarvel.h"
#include "protocol/Bytes.h"
#include "session/Events.h"

using tarvel::kAnswerRefused;
using tarvel::mapAnswer;

namespace {

constexpr uint32_t kStandardIdMax = 0x7FF;
constexpr uint32_t kExtendedIdMax = 0x1FFFFFFF;
constexpr int kRefusedHere = -31; // a host-side check refused it; nothing was sent

// "123 (standard)", "18DA0123 (extended)": as CAN tools write identifiers.
std::string idText(uint32_t id, bool extended) {
    char text[32];
    std::snprintf(text, sizeof text, extended ? "%08X (extended)" : "%03X (standard)", static_cast<unsigned>(id));
    return text;
}

} // namespace

int Tarvel::RequestMessage(unsigned char channelMask, unsigned int id, bool tailFlag, bool idFlag, unsigned char dlc,
                           bool flag7, bool flag6, const unsigned char* data) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _request(channelMask, id, tailFlag, idFlag, dlc, flag7, flag6, data);
}

int Tarvel::RequestReport(unsigned char channelMask, unsigned int id, bool extended, bool tailFlag, unsigned char dlc,
                          bool flag7, bool flag6, const unsigned char* data) {
    const uint32_t limit = extended ? kExtendedIdMax : kStandardIdMax;
    if (id > limit) {
        Printf_err("Tarvel::RequestReport: Identifier 0x%X is too large for a %s identifier (at most 0x%X).\n", id,
                   extended ? "29-bit" : "11-bit", static_cast<unsigned>(limit));
        return kRefusedHere;
    }
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    {
        std::lock_guard<std::mutex> lock(m_asyncMutex);
        const tarvel::session::RequestIdentity* live = m_events->requests.conflict(channelMask, id, extended);
        if (live != nullptr) {
            // The device reports only the low 16 bits: the two would be one.
            Printf_err("Tarvel::RequestReport: A request for %s can't be told apart from the live request for %s: "
                       "both end in 0x%04X on a shared channel.\n",
                       idText(id, extended).c_str(), idText(live->id, live->extended).c_str(), id & 0xFFFFu);
            return kRefusedHere;
        }
    }
    return _request(channelMask, id, tailFlag, extended, dlc, flag7, flag6, data);
}

int Tarvel::_request(unsigned char channelMask, unsigned int id, bool tailFlag, bool idFlag, unsigned char dlc,
                     bool flag7, bool flag6, const unsigned char* data) {
    ByteVector payload{channelMask};
    tarvel::appendLE32(payload, id); // sent whole; idFlag can only set bit 31
    if (idFlag) payload.back() |= 0x80;
    payload.push_back(0x00);
    if (dlc > 15) {
        Printf_err("Tarvel::RequestMessage: Invalid DLC value: %u.\n", dlc);
        return -21;
    }
    payload.push_back(dlc);
    payload.push_back(static_cast<unsigned char>((flag7 << 7) | (flag6 << 6)));
    payload.push_back(tailFlag ? 1 : 0);
    if (data != nullptr) payload.insert(payload.end(), data, data + kDlcToLength[dlc]);

    const int key = static_cast<int>((static_cast<unsigned>(channelMask) << 16) | (id & 0xFFFF));
    // Recorded first: the device may report a frame before its answer arrives.
    tarvel::session::RequestRecord::Replaced replaced;
    {
        std::lock_guard<std::mutex> lock(m_asyncMutex);
        replaced = m_events->requests.add(channelMask, id & kExtendedIdMax, idFlag, key);
    }
    const int v = mapAnswer(_exchange(REQUEST_MESSAGE, payload),
                            {{1, -21}, {2, -21}, {3, -21}, {4, -21}, {5, -21}, {kAnswerRefused, -21}});
    if (v >= 0) return key;
    std::lock_guard<std::mutex> lock(m_asyncMutex);
    m_events->requests.undo(replaced);
    return v;
}

int Tarvel::EnableRequest(unsigned short handler) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchangeHandler(ENABLE_REQUEST, handler, {}));
}

int Tarvel::DisableRequest(unsigned short handler) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchangeHandler(DISABLE_REQUEST, handler, {}));
}

int Tarvel::RemoveRequest(unsigned short handler) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int v = mapAnswer(_exchangeHandler(REMOVE_REQUEST, handler, {}));
    if (v >= 0) {
        std::lock_guard<std::mutex> lock(m_asyncMutex);
        m_events->requests.remove(handler);
    }
    return v;
}
