// Checksum configurations, gateway identifier and blob removal: fixed
// payloads that the host passes on without meaning of its own.
#include <cstdlib>
#include <mutex>

#include "Tarvel.h"
#include "protocol/Bytes.h"

using tarvel::kAnswerRefused;
using tarvel::mapAnswer;

namespace {
constexpr std::size_t kCrcBlockSize = 16;
const std::initializer_list<std::pair<int, int>> kCrcAnswers = {{1, -21}, {2, -22}, {3, -23}, {kAnswerRefused, -21}};
} // namespace

int Tarvel::AddCrc(const unsigned char* crcBlock) {
    if (crcBlock == nullptr) {
        Printf_err("Tarvel::AddCrc: Checksum block pointer is NULL!\n");
        return -2;
    }
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchange(ADD_CRC, ByteVector(crcBlock, crcBlock + kCrcBlockSize)));
}

int Tarvel::ChangeCrc(unsigned short handler, unsigned char* crcBlock) {
    ByteVector block;
    if (crcBlock != nullptr) {
        block.assign(crcBlock, crcBlock + kCrcBlockSize);
    } else {
        // Unseeded on purpose: the application decides whether to seed rand.
        for (std::size_t i = 0; i < kCrcBlockSize; ++i)
            block.push_back(static_cast<unsigned char>(std::rand() % 256));
    }
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchangeHandler(CHANGE_CRC, handler, block), kCrcAnswers);
}

int Tarvel::DisableCrc(unsigned short handler) {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchangeHandler(DISABLE_CRC, handler, {}), kCrcAnswers);
}

int Tarvel::GatewayID(unsigned char target, unsigned int id) {
    ByteVector payload{target};
    tarvel::appendLE32(payload, id);
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchange(GATEWAY_ID, payload));
}

int Tarvel::BlobRemove() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return mapAnswer(_exchange(BLOB_REMOVE, {0x00}));
}
