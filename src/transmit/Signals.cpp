// Signals inside transmit messages and their host-side record.
#include <mutex>

#include "Tarvel.h"
#include "protocol/Bytes.h"

using tarvel::appendBE16;
using tarvel::appendBE32;
using tarvel::mapAnswer;

namespace {
constexpr unsigned kMaxSignalBits = 16;
constexpr uint16_t kFeatureLevelCumulativeCheck = 100;
} // namespace

int Tarvel::AddSignal(unsigned short messageHandler, unsigned char group, unsigned short startSymbol,
                      unsigned short stopSymbol, unsigned char flags) {
    if (stopSymbol < startSymbol) {
        Printf_err("Tarvel::AddSignal: Invalid input: StartSymbol > StopSymbol (%u > %u)\n", startSymbol, stopSymbol);
        return -31;
    }
    if (stopSymbol - startSymbol >= static_cast<int>(kMaxSignalBits)) {
        Printf_err("Tarvel::AddSignal: Length of signal exceed maximal 16 bits.\n");
        return -31;
    }

    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    auto message = m_txMessages.find(messageHandler);
    if (message == m_txMessages.end()) {
        // Not fatal: the device may hold messages this session did not add.
        Printf_err("Tarvel::AddSignal: Message h=%u;grp=%u;sym<%u;%u> not found in internal API structure.\n",
                   messageHandler, group, startSymbol, stopSymbol);
    } else if ((flags & kSignalCumulative) && message->second.fastSlowSend &&
               m_deviceVersion == kFeatureLevelCumulativeCheck) {
        Printf_err("Tarvel::AddSignal: Invalid configuration: Fast slow send and cumulative signal at once.\n");
        return -32;
    }

    ByteVector payload{group};
    appendBE16(payload, startSymbol);
    appendBE16(payload, stopSymbol);
    payload.push_back(flags);
    const int v = mapAnswer(_exchangeHandler(ADD_SIGNAL, messageHandler, payload));
    if (v >= 0) m_signals.emplace(static_cast<uint16_t>(v), SignalEntry{startSymbol, stopSymbol, flags, group});
    return v;
}

int Tarvel::RemoveSignal(unsigned short handler) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int v = mapAnswer(_exchangeHandler(REMOVE_SIGNAL, handler, {}));
    if (v >= 0) m_signals.erase(handler);
    return v;
}

int Tarvel::SignalChangeValue(unsigned short handler, unsigned short value, bool flag, bool tracked) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    auto signal = m_signals.find(handler);
    if (signal == m_signals.end()) {
        Printf_err("Tarvel::SignalChangeValue: Signal not found in internal API structure.\n");
    } else {
        const SignalEntry& s = signal->second;
        // The device expects the value left-aligned in 16 bits, except for
        // cumulative and one-bit signals.
        if (!(s.flags & kSignalCumulative) && s.startSymbol != s.stopSymbol) {
            const unsigned length = s.stopSymbol - s.startSymbol + 1u;
            value = static_cast<unsigned short>(value << (kMaxSignalBits - length));
        }
    }
    ByteVector payload;
    appendBE16(payload, value);
    payload.push_back(flag ? 1 : 0);
    return mapAnswer(_exchangeHandler(CHANGE_SIGNAL, handler, payload, tracked));
}

int Tarvel::ChangeSignalSgroup(unsigned char group, unsigned short value) {
    ByteVector payload{group};
    appendBE16(payload, value);
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchange(CHANGE_SIGNAL, payload));
}

int Tarvel::ExecuteSignalChange(bool tracked) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchange(EXECUTE_SIGNAL_CHANGE, {}, tracked));
}

int Tarvel::SetSignalControl(unsigned short handler, unsigned char controlMode, unsigned int arg1, unsigned int arg2,
                             unsigned int arg3) {
    ByteVector payload{controlMode};
    appendBE16(payload, handler);
    appendBE32(payload, arg1);
    appendBE32(payload, arg2);
    appendBE32(payload, arg3);
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchange(SET_SIGNAL_CONTROL, payload));
}
