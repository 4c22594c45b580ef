// The device's table of transmitted CAN messages and its host-side copy.
#include <mutex>
#include <unordered_map>

#include "Tarvel.h"
#include "protocol/Bytes.h"

using tarvel::appendBE16;
using tarvel::appendLE32;
using tarvel::kAnswerRefused;
using tarvel::mapAnswer;

namespace {
constexpr unsigned char kMaxDlc = 15;
constexpr uint32_t kIdMask = 0x1FFFFFFF;
constexpr uint32_t kIdFlagBit = 0x80000000u;

// The key bytes that ADD_MESSAGE and GET_HANDLER share: selectors,
// identifier word (little-endian) and the flags byte.
void appendMessageKey(ByteVector& out, unsigned char selector1, unsigned char selector2, uint32_t idWord,
                      unsigned char flags) {
    out.push_back(selector1);
    out.push_back(selector2);
    appendLE32(out, idWord);
    out.push_back(flags);
}

unsigned char flagsByte(bool fastSlowSend, bool flag6, bool flag5, bool flag4) {
    return static_cast<unsigned char>((fastSlowSend << 7) | (flag6 << 6) | (flag5 << 5) | (flag4 << 4));
}

// Answers to the commands that act on one message by its handler: the general
// refusal, and 1 for a handler the device doesn't accept here.
const std::initializer_list<std::pair<int, int>> kSwitchAnswers = {{kAnswerRefused, -21}, {1, -22}};
} // namespace

int Tarvel::AddMessage(const tagCanMessage& message, const ByteVector& data) {
    if (message.dlc > kMaxDlc) {
        Printf_err("Tarvel::AddMessage: Invalid DLC value: %u.\n", message.dlc);
        return -21;
    }
    const unsigned length = kDlcToLength[message.dlc];
    if (data.size() != length) {
        Printf_err("Tarvel::AddMessage: Payload size does not equal to CAN message length! (%i/%i)\n",
                   static_cast<int>(data.size()), static_cast<int>(length));
        return -21;
    }

    ByteVector payload;
    payload.reserve(17 + length);
    appendMessageKey(payload, message.selector1, message.selector2,
                     (message.id & kIdMask) | (message.idFlag ? kIdFlagBit : 0),
                     flagsByte(message.fastSlowSend, message.flag6, message.flag5, message.flag4));
    payload.push_back(message.extraFlag ? 1 : 0);
    payload.push_back(0x00);
    payload.push_back(message.dlc);
    appendBE16(payload, message.param2);
    appendBE16(payload, message.param1);
    appendBE16(payload, message.param3);
    payload.push_back(message.enabled ? 1 : 0);
    payload.insert(payload.end(), data.begin(), data.end());

    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int v = _exchange(ADD_MESSAGE, payload);
    if (v < 0) return v;
    switch (v) {
    case 0:
    case kAnswerRefused: Printf_err("Tarvel::AddMessage: Invalid message.\n"); return -21;
    case 0xFFFD: Printf_err("Tarvel::AddMessage: Tarvel is out of memory.\n"); return -23;
    case 0xFFFE: Printf_err("Tarvel::AddMessage: Invalid message length.\n"); return -22;
    default:
        m_txMessages.emplace(static_cast<uint16_t>(v), message); // an existing entry is kept
        return v;
    }
}

int Tarvel::AddMessage(const tagCanMessage& message) {
    if (message.dlc > kMaxDlc) {
        Printf_err("Tarvel::AddMessage: Invalid DLC value: %u.\n", message.dlc);
        return -21;
    }
    return AddMessage(message, ByteVector(kDlcToLength[message.dlc], 0x00));
}

int Tarvel::AddMessage(const unsigned char* data, unsigned char dlc, unsigned char selector1, unsigned char selector2,
                       unsigned int id, bool idFlag, bool flag6, bool flag5, bool flag4, bool extraFlag, bool enabled,
                       bool fastSlowSend, unsigned short param1, unsigned short param2, unsigned short param3) {
    tagCanMessage message{};
    message.dlc = dlc;
    message.selector1 = selector1;
    message.selector2 = selector2;
    message.id = id;
    message.idFlag = idFlag;
    message.flag6 = flag6;
    message.flag5 = flag5;
    message.flag4 = flag4;
    message.extraFlag = extraFlag;
    message.enabled = enabled;
    message.fastSlowSend = fastSlowSend;
    message.param1 = param1;
    message.param2 = param2;
    message.param3 = param3;

    if (data == nullptr) return AddMessage(message);
    if (dlc > kMaxDlc) return -31;
    return AddMessage(message, ByteVector(data, data + kDlcToLength[dlc]));
}

int Tarvel::RemoveMessage(unsigned short handler) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int v = mapAnswer(_exchangeHandler(REMOVE_MESSAGE, handler, {}), kSwitchAnswers);
    if (v >= 0) m_txMessages.erase(handler);
    return v;
}

// Switches a message on or off on the device and mirrors that in the host copy.
int Tarvel::_switchMessage(CMD cmd, unsigned short handler, bool enabled, const char* notFoundReport) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int v = mapAnswer(_exchangeHandler(cmd, handler, {}), kSwitchAnswers);
    if (v < 0) return v;
    const auto it = m_txMessages.find(handler);
    if (it != m_txMessages.end())
        it->second.enabled = enabled;
    else
        Printf_err("%s", notFoundReport);
    return v;
}

int Tarvel::EnableMessage(unsigned short handler) {
    return _switchMessage(ENABLE_MESSAGE, handler, true,
                          "Tarvel::EnableMessage: Message not found in internal API structure.\n");
}

int Tarvel::DisableMessage(unsigned short handler) {
    return _switchMessage(DISABLE_MESSAGE, handler, false,
                          "Tarvel::DisableMessage: Message not found in internal API structure.\n");
}

int Tarvel::SetMessageData(unsigned short handler, const unsigned char* data, const unsigned char* mask, bool flag,
                           bool tracked) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    auto it = m_txMessages.find(handler);
    if (it == m_txMessages.end()) {
        Printf_err("Tarvel::SetMessageData: Message not found in internal API structure.\n");
        return -31;
    }
    const unsigned length = kDlcToLength[it->second.dlc];

    // The mask block goes first although data is the earlier argument.
    ByteVector payload;
    payload.reserve(1 + 2 * length);
    payload.push_back(flag ? 1 : 0);
    if (mask != nullptr)
        payload.insert(payload.end(), mask, mask + length);
    else
        payload.resize(payload.size() + length, 0xFF);
    if (data != nullptr)
        payload.insert(payload.end(), data, data + length);
    else
        payload.resize(payload.size() + length, 0x00);

    return mapAnswer(_exchangeHandler(SET_MESSAGE_DATA, handler, payload, tracked));
}

int Tarvel::GetHandler(unsigned char selector1, unsigned char selector2, unsigned int id, bool idFlag,
                       bool fastSlowSend, bool flag6) {
    // Unlike ADD_MESSAGE the identifier goes out unmasked.
    ByteVector payload;
    appendMessageKey(payload, selector1, selector2, id | (idFlag ? kIdFlagBit : 0),
                     flagsByte(fastSlowSend, flag6, false, false));
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchange(GET_HANDLER, payload));
}
