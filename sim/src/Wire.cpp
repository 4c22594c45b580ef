#include "tarvelsim/Wire.h"

namespace tarvelsim {

namespace {
constexpr uint8_t kDlcLength[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
}

uint16_t sum16(const uint8_t* data, std::size_t size) {
    uint32_t sum = 0;
    for (std::size_t i = 0; i < size; ++i)
        sum += data[i];
    return static_cast<uint16_t>(sum);
}

Bytes buildPacket(uint8_t messageId, uint8_t code, const Bytes& payload) {
    Bytes packet;
    packet.reserve(payload.size() + 5);
    packet.push_back(static_cast<uint8_t>(payload.size() + 1));
    packet.push_back(messageId);
    packet.push_back(code);
    packet.insert(packet.end(), payload.begin(), payload.end());
    const uint16_t sum = sum16(packet.data(), packet.size());
    packet.push_back(static_cast<uint8_t>(sum >> 8));
    packet.push_back(static_cast<uint8_t>(sum));
    return packet;
}

PacketCheck checkPacket(const Bytes& packet) {
    if (packet.size() < 5 || packet[0] != static_cast<uint8_t>(packet.size() - 4)) return PacketCheck::BadLength;
    const std::size_t n = packet.size() - 2;
    const uint16_t expected = static_cast<uint16_t>(packet[n] << 8 | packet[n + 1]);
    return sum16(packet.data(), n) == expected ? PacketCheck::Ok : PacketCheck::BadChecksum;
}

Bytes slipEncode(const Bytes& payload) {
    Bytes frame;
    frame.reserve(payload.size() * 2 + 2);
    frame.push_back(slip::END);
    for (uint8_t b : payload) {
        if (b == slip::END) {
            frame.push_back(slip::ESC);
            frame.push_back(slip::ESC_END);
        } else if (b == slip::ESC) {
            frame.push_back(slip::ESC);
            frame.push_back(slip::ESC_ESC);
        } else {
            frame.push_back(b);
        }
    }
    frame.push_back(slip::END);
    return frame;
}

SlipDecoder::SlipDecoder(std::size_t maxSize) : m_maxSize(maxSize) {
    m_gathered.reserve(maxSize);
}

void SlipDecoder::reset() {
    m_state = State::Hunt;
    m_gathered.clear();
}

SlipDecoder::Event SlipDecoder::feed(uint8_t byte) {
    switch (m_state) {
    case State::Hunt:
        if (byte == slip::END) {
            m_state = State::Gather;
            m_gathered.clear();
        }
        return Event::None;
    case State::Gather:
        if (byte == slip::END) {
            if (m_gathered.empty()) return Event::None; // repeated delimiter
            m_frame.swap(m_gathered);
            m_gathered.clear();
            m_state = State::Hunt;
            return Event::Frame;
        }
        if (byte == slip::ESC) {
            m_state = State::Escape;
            return Event::None;
        }
        break;
    case State::Escape:
        if (byte == slip::ESC_END) {
            byte = slip::END;
        } else if (byte == slip::ESC_ESC) {
            byte = slip::ESC;
        } else if (byte == slip::ESC_BRK) {
            m_gathered.clear();
            m_state = State::Gather;
            return Event::None;
        } else {
            m_frame.swap(m_gathered);
            m_gathered.clear();
            // An END right after ESC closes the broken frame and opens the next.
            m_state = byte == slip::END ? State::Gather : State::Hunt;
            return Event::BadEscape;
        }
        m_state = State::Gather;
        break;
    }
    if (m_gathered.size() >= m_maxSize) {
        m_frame.swap(m_gathered);
        m_gathered.clear();
        m_state = State::Hunt;
        return Event::TooLong;
    }
    m_gathered.push_back(byte);
    return Event::None;
}

std::size_t dlcToLength(uint8_t dlc) {
    return dlc < 16 ? kDlcLength[dlc] : 64;
}

uint8_t lengthToDlc(std::size_t length) {
    for (uint8_t dlc = 0; dlc < 16; ++dlc)
        if (kDlcLength[dlc] >= length) return dlc;
    return 15;
}

} // namespace tarvelsim
