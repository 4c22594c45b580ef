// Signals read out of the latest report of a requested message. Host-only:
// nothing is sent to the device.
#include <cstdio>
#include <mutex>

#include "Tarvel.h"

namespace {
constexpr unsigned kMaxReadBits = 64;

unsigned signalLength(const SignalRequest& entry) {
    return entry[2] - entry[1] + 1;
}

// Bits are numbered least significant first across the data bytes; the
// accumulator holds the bytes from the signal's first byte on.
template <typename T> T extract(const ByteVector& data, const SignalRequest& entry, std::size_t byteCount) {
    const std::size_t first = entry[1] / 8;
    T acc = 0;
    for (std::size_t k = 0; k < byteCount && k < sizeof(T); ++k)
        acc |= static_cast<T>(data[first + k]) << (8 * k);
    acc >>= entry[1] % 8;
    const unsigned length = signalLength(entry);
    return length >= 8 * sizeof(T) ? acc : acc & ((static_cast<T>(1) << length) - 1);
}

std::size_t spanBytes(const SignalRequest& entry) {
    return entry[2] / 8 - entry[1] / 8 + 1;
}
} // namespace

int Tarvel::RequestSignal(int requestKey, unsigned short StartSymbol, unsigned short StopSymbol) {
    if (StopSymbol < StartSymbol) {
        Printf_err("Tarvel::RequestSignal: Invalid input: StartSymbol > StopSymbol (%u > %u)\n", StartSymbol,
                   StopSymbol);
        return -1;
    }
    if (StopSymbol - StartSymbol >= static_cast<int>(kMaxReadBits)) {
        Printf_err("Tarvel::RequestSignal: Length of signal exceed maximal 64 bits.\n");
        return -1;
    }
    // The async map's lock, not the exchange's: reading a signal must not wait
    // behind a command in progress.
    std::lock_guard<std::mutex> lock(m_asyncMutex);
    m_signalRequests.push_back({static_cast<uint32_t>(requestKey), StartSymbol, StopSymbol});
    return static_cast<int>(++m_signalRequestCount);
}

int Tarvel::_locateSignal(unsigned short handler, bool doRead, RecvAsyncMessage& report, SignalRequest& entry,
                          unsigned int* age) {
    if (!doRead) return -1000;
    if (!m_receiverRunning) return -3;
    bool registered = false;
    {
        std::lock_guard<std::mutex> lock(m_asyncMutex);
        registered = handler < m_signalRequests.size();
        if (registered) entry = m_signalRequests[handler];
    }
    if (!registered) {
        Printf_err("Requested signal is not registered! Signal handler: %u\n", handler);
        return -4;
    }
    report = ReadAsyncMessage(static_cast<int>(entry[0]));
    if (report.data.empty() || report.key == 0) return -1;

    const std::size_t lastByte = entry[2] / 8;
    if (lastByte >= report.data.size()) {
        Printf_err("Requested stop bit exceeds real length of received message! (%i/%i)\n", static_cast<int>(entry[2]),
                   static_cast<int>(8 * report.data.size()));
        return -2;
    }
    if (age != nullptr) *age = static_cast<uint32_t>(GetTickMs()) - report.timestamp;
    return 0;
}

int Tarvel::SignalReadValue(unsigned short handler, unsigned int& value, unsigned int* age, bool doRead) {
    RecvAsyncMessage report;
    SignalRequest entry;
    const int r = _locateSignal(handler, doRead, report, entry, age);
    if (r != 0) return r;
    // Bits beyond the 32-bit accumulator are dropped without a word.
    value = extract<uint32_t>(report.data, entry, spanBytes(entry));
    return 0;
}

int Tarvel::SignalReadValue(unsigned short handler, unsigned long long& value, unsigned int* age, bool doRead) {
    RecvAsyncMessage report;
    SignalRequest entry;
    const int r = _locateSignal(handler, doRead, report, entry, age);
    if (r != 0) return r;
    const std::size_t count = spanBytes(entry);
    if (count > sizeof(uint64_t))
        std::fprintf(stderr, "Data may be lost. Size of Bytevector: %u vs output integer size: %u",
                     static_cast<unsigned>(count), static_cast<unsigned>(sizeof(uint64_t)));
    value = extract<uint64_t>(report.data, entry, count);
    return 0;
}
