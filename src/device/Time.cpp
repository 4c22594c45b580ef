// Device clock.
#include <cstdio>
#include <mutex>

#include "Tarvel.h"
#include "protocol/Bytes.h"

int Tarvel::GetTime(long long* time) {
    if (time == nullptr) {
        std::fprintf(stderr, "Tarvel::GetTime: Time pointer is NULL!\n");
        return -2;
    }
    ByteVector answer;
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    const int c = _exchangeBytes(GET_TIME, {}, answer);
    if (c < 0) return c;

    uint32_t value = 0;
    if (answer.size() > 4) {
        std::fprintf(stderr, "Unable convert %d bit number to uint32.\n", static_cast<int>(8 * answer.size()));
    } else {
        for (unsigned char b : answer)
            value = (value << 8) | b;
    }
    *time = static_cast<long long>(value);
    return 0;
}

int Tarvel::SetTime(long long time) {
    ByteVector payload;
    tarvel::appendBE32(payload, static_cast<uint32_t>(time));
    // 0x1FFFF: the refusal with the hardware-error mark of the exchange.
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return tarvel::mapAnswer(_exchange(SET_TIME, payload), {{tarvel::kAnswerRefused, -21}, {0x1FFFF, -21}});
}
