// EEPROM blocks of 1..16 bytes; the lowest addresses hold device data and are
// write-protected.
#include <algorithm>
#include <cstdio>
#include <mutex>

#include "Tarvel.h"
#include "protocol/Bytes.h"

namespace {
constexpr unsigned kMaxEepromBlock = 16;
constexpr unsigned kFirstWritableAddress = 30;

bool validBlockLength(unsigned char length) {
    return length >= 1 && length <= kMaxEepromBlock;
}
} // namespace

int Tarvel::ReadEeprom(unsigned short address, unsigned char length, unsigned char* data) {
    if (data == nullptr) {
        std::fprintf(stderr, "Tarvel::ReadEeprom: Data pointer is NULL!\n");
        return -2;
    }
    if (!validBlockLength(length)) {
        std::fprintf(stderr, "Tarvel::ReadEeprom: Invalid eeprom block length - max 16 bit: %i!\n", length);
        return -1;
    }
    ByteVector payload;
    tarvel::appendBE16(payload, address);
    payload.push_back(length);

    ByteVector answer;
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int c = _exchangeBytes(READ_EEPROM, payload, answer);
    if (c < 0) return c;
    if (answer.size() != length) {
        std::fprintf(stderr,
                     "Tarvel::ReadEeprom: Invalid eeprom block length returned from tarvel. Request: %u Response %zu\n",
                     static_cast<unsigned>(length), answer.size());
        return -666;
    }
    std::copy(answer.begin(), answer.end(), data);
    return 0;
}

int Tarvel::WriteEeprom(unsigned short address, unsigned char length, const unsigned char* data) {
    if (!validBlockLength(length)) {
        std::fprintf(stderr, "Tarvel::WriteEeprom: Invalid eeprom block length - max 16 bit: %i!\n", length);
        return -1;
    }
    if (address < kFirstWritableAddress) {
        std::fprintf(stderr, "Tarvel::WriteEeprom: Invalid eeprom address: %i! Must be >= 30!\n", address);
        return -1;
    }
    ByteVector payload;
    tarvel::appendBE16(payload, address);
    if (data != nullptr)
        payload.insert(payload.end(), data, data + length);
    else
        payload.resize(payload.size() + length, 0x00);
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return tarvel::mapAnswer(_exchange(WRITE_EEPROM, payload));
}
