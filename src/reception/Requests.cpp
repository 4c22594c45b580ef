// Reception requests: the device reports the CAN messages they name.
#include <mutex>

#include "Tarvel.h"
#include "protocol/Bytes.h"

using tarvel::kAnswerRefused;
using tarvel::mapAnswer;

int Tarvel::RequestMessage(unsigned char channelMask, unsigned int id, bool tailFlag, bool idFlag, unsigned char dlc,
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

    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int v = mapAnswer(_exchange(REQUEST_MESSAGE, payload),
                            {{1, -21}, {2, -21}, {3, -21}, {4, -21}, {5, -21}, {kAnswerRefused, -21}});
    if (v < 0) return v;
    return static_cast<int>((static_cast<unsigned>(channelMask) << 16) | (id & 0xFFFF));
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
    return mapAnswer(_exchangeHandler(REMOVE_REQUEST, handler, {}));
}
