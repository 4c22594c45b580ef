// The commands the device understands: each host packet taken apart,
// carried out on the tables and answered.
#include "DeviceModel.h"

#include <algorithm>

namespace tarvelsim {

namespace {

constexpr uint16_t kNoHandler = 0xFFFF;   // unknown handler, invalid request
constexpr uint16_t kBadLength = 0xFFFE;   // data does not fit the DLC
constexpr uint16_t kOutOfMemory = 0xFFFD; // table full
constexpr uint16_t kUnknownEntry = 1;     // remove/enable/disable of an unknown entry
constexpr uint32_t kId29 = 0x1FFFFFFF;

uint16_t be16(const Bytes& d, std::size_t at) {
    return static_cast<uint16_t>(d[at] << 8 | d[at + 1]);
}
uint32_t be32(const Bytes& d, std::size_t at) {
    return static_cast<uint32_t>(d[at]) << 24 | static_cast<uint32_t>(d[at + 1]) << 16 |
           static_cast<uint32_t>(d[at + 2]) << 8 | d[at + 3];
}
uint32_t le32(const Bytes& d, std::size_t at) {
    return static_cast<uint32_t>(d[at]) | static_cast<uint32_t>(d[at + 1]) << 8 |
           static_cast<uint32_t>(d[at + 2]) << 16 | static_cast<uint32_t>(d[at + 3]) << 24;
}

} // namespace

template <class Map> uint16_t DeviceModel::allocate(const Map& map, uint16_t& next) {
    // Increasing handlers, reused only after a wrap: a host that keeps a copy
    // of removed entries does not meet its old handler again soon.
    for (;;) {
        const uint16_t h = next;
        next = next >= 0xFFFC ? 1 : static_cast<uint16_t>(next + 1);
        if (map.find(h) == map.end()) return h;
    }
}

DeviceModel::Outcome DeviceModel::execute(const HostPacket& packet, TimePoint now, std::vector<BusFrame>& bus) {
    const Bytes& d = packet.payload;
    const bool tracked = packet.messageId != kUntrackedId;
    Outcome out;
    auto ok = [&](uint16_t value) {
        out.answers.push_back({tracked ? packet.messageId : uint8_t(0),
                               response::OK,
                               {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}});
        return out;
    };
    auto failed = [&]() {
        out.answers.push_back({packet.messageId, response::COMMAND_FAILED, {}});
        return out;
    };
    auto data = [&](Bytes bytes) {
        if (!tracked) return ok(0);
        out.answers.push_back({packet.messageId, response::DATA_RESPONSE_A, std::move(bytes)});
        return out;
    };

    switch (packet.command) {
    case cmd::PING: return ok(0);

    case cmd::REBOOT:
        if (d.size() != 1) return failed();
        if (d[0] == 3) return ok(m_versionStatus);
        if (d[0] > 5 || d[0] == 4) return failed();
        out.restart = true;
        return ok(0);

    case cmd::GET_TIME: {
        const uint32_t t = clock(now);
        return data({static_cast<uint8_t>(t >> 24), static_cast<uint8_t>(t >> 16), static_cast<uint8_t>(t >> 8),
                     static_cast<uint8_t>(t)});
    }
    case cmd::SET_TIME:
        if (d.size() != 4) return failed();
        m_clockBase = be32(d, 0);
        m_clockSince = now;
        return ok(0);

    case cmd::READ_EEPROM: {
        if (d.size() != 3) return failed();
        const std::size_t address = be16(d, 0), length = d[2];
        if (length == 0 || length > kMaxEepromRead || address + length > kEepromSize) return failed();
        return data(eeprom(static_cast<uint16_t>(address), length));
    }
    case cmd::WRITE_EEPROM: {
        if (d.size() < 3) return failed();
        const std::size_t address = be16(d, 0), length = d.size() - 2;
        if (address + length > kEepromSize) return failed();
        writeEeprom(static_cast<uint16_t>(address), d.data() + 2, length);
        return ok(0);
    }

    case cmd::ADD_MESSAGE: {
        if (d.size() < 10 || d[9] > 15) return ok(kNoHandler);
        const uint8_t dlc = d[9];
        if (d.size() != 17 + dlcToLength(dlc)) return ok(kBadLength);
        if (m_messages.size() >= m_capacity) return ok(kOutOfMemory);
        Message m;
        m.selector1 = d[0];
        m.selector2 = d[1];
        m.idWord = le32(d, 2);
        m.flags = d[6];
        m.extraFlag = d[7];
        m.dlc = dlc;
        m.param2 = be16(d, 10);
        m.param1 = be16(d, 12);
        m.param3 = be16(d, 14);
        m.data.assign(d.begin() + 17, d.end());
        const uint16_t h = allocate(m_messages, m_nextMessage);
        Message& stored = m_messages.emplace(h, std::move(m)).first->second;
        ok(h);
        if (d[16]) activate(h, stored, now, bus);
        return out;
    }
    case cmd::REMOVE_MESSAGE:
    case cmd::ENABLE_MESSAGE:
    case cmd::DISABLE_MESSAGE: {
        if (d.size() != 2) return failed();
        const uint16_t h = be16(d, 0);
        auto it = m_messages.find(h);
        if (it == m_messages.end()) return ok(kUnknownEntry);
        ok(0);
        if (packet.command == cmd::REMOVE_MESSAGE) {
            for (auto s = m_signals.begin(); s != m_signals.end();)
                s = s->second.message == h ? m_signals.erase(s) : std::next(s);
            m_messages.erase(it);
        } else if (packet.command == cmd::ENABLE_MESSAGE) {
            if (!it->second.enabled || it->second.param1 == 0) activate(h, it->second, now, bus);
        } else {
            it->second.enabled = false;
        }
        return out;
    }
    case cmd::SET_MESSAGE_DATA: {
        if (d.size() < 3) return failed();
        const uint16_t h = be16(d, 0);
        auto it = m_messages.find(h);
        if (it == m_messages.end()) return ok(kNoHandler);
        Bytes& bytes = it->second.data;
        const std::size_t n = bytes.size();
        if (d.size() != 3 + 2 * n) return ok(kBadLength);
        for (std::size_t i = 0; i < n; ++i) {
            const uint8_t mask = d[3 + i];
            bytes[i] = static_cast<uint8_t>((bytes[i] & ~mask) | (d[3 + n + i] & mask));
        }
        ok(0);
        changed(h, bus);
        return out;
    }
    case cmd::GET_HANDLER: {
        if (d.size() != 7) return failed();
        const uint32_t id = le32(d, 2);
        for (const auto& [h, m] : m_messages) {
            if (m.selector1 == d[0] && m.selector2 == d[1] && (m.idWord & kId29) == (id & kId29) &&
                (m.idWord >> 31) == (id >> 31) && (m.flags & 0xC0) == (d[6] & 0xC0))
                return ok(h);
        }
        return ok(kNoHandler);
    }

    case cmd::ADD_CRC: {
        if (d.size() != 16) return failed();
        if (m_crcs.size() >= kMaxCrcs) return ok(kOutOfMemory);
        const uint16_t h = allocate(m_crcs, m_nextCrc);
        m_crcs[h] = Crc{d, true};
        return ok(h);
    }
    case cmd::CHANGE_CRC:
    case cmd::DISABLE_CRC: {
        if (d.size() != (packet.command == cmd::CHANGE_CRC ? 18u : 2u)) return failed();
        auto it = m_crcs.find(be16(d, 0));
        if (it == m_crcs.end()) return ok(kUnknownEntry);
        if (packet.command == cmd::CHANGE_CRC)
            it->second = Crc{Bytes(d.begin() + 2, d.end()), true};
        else
            it->second.enabled = false;
        return ok(0);
    }
    case cmd::GATEWAY_ID:
        if (d.size() != 5) return failed();
        m_gatewayTarget = d[0];
        m_gatewayId = le32(d, 1);
        return ok(0);
    case cmd::BLOB_REMOVE: return ok(0);

    case cmd::ADD_SIGNAL: {
        if (d.size() != 8) return failed();
        auto m = m_messages.find(be16(d, 0));
        const uint16_t start = be16(d, 3), stop = be16(d, 5);
        if (m == m_messages.end() || stop < start || stop - start > 15 || stop >= 8 * m->second.data.size())
            return ok(kNoHandler);
        if (m_signals.size() >= kMaxSignals) return ok(kOutOfMemory);
        Signal s;
        s.message = m->first;
        s.group = d[2];
        s.start = start;
        s.stop = stop;
        s.flags = d[7];
        const uint16_t h = allocate(m_signals, m_nextSignal);
        m_signals[h] = s;
        return ok(h);
    }
    case cmd::CHANGE_SIGNAL: {
        if (d.size() == 5) { // by handler: staged unless the flag asks for now
            auto it = m_signals.find(be16(d, 0));
            if (it == m_signals.end()) return ok(kNoHandler);
            Signal& s = it->second;
            if (d[4] == 1) {
                applySignal(s, be16(d, 2));
                ok(0);
                changed(s.message, bus);
                return out;
            }
            s.staged = true;
            s.stagedValue = be16(d, 2);
            return ok(0);
        }
        if (d.size() == 3) { // by group: applied at once
            std::vector<uint16_t> touched;
            for (auto& [h, s] : m_signals) {
                if (s.group != d[0]) continue;
                applySignal(s, be16(d, 1));
                if (std::find(touched.begin(), touched.end(), s.message) == touched.end()) touched.push_back(s.message);
            }
            if (touched.empty()) return ok(kNoHandler);
            ok(0);
            for (uint16_t m : touched)
                changed(m, bus);
            return out;
        }
        return failed();
    }
    case cmd::EXECUTE_SIGNAL_CHANGE: {
        std::vector<uint16_t> touched;
        for (auto& [h, s] : m_signals) {
            if (!s.staged) continue;
            applySignal(s, s.stagedValue);
            if (std::find(touched.begin(), touched.end(), s.message) == touched.end()) touched.push_back(s.message);
        }
        ok(0);
        for (uint16_t m : touched)
            changed(m, bus);
        return out;
    }
    case cmd::REMOVE_SIGNAL:
        if (d.size() != 2) return failed();
        return ok(m_signals.erase(be16(d, 0)) ? 0 : kNoHandler);
    case cmd::SET_SIGNAL_CONTROL: {
        if (d.size() != 15) return failed();
        auto it = m_signals.find(be16(d, 1));
        if (it == m_signals.end()) return ok(kNoHandler);
        it->second.controlMode = d[0];
        for (int i = 0; i < 3; ++i)
            it->second.controlArgs[i] = be32(d, 3 + 4 * std::size_t(i));
        return ok(0);
    }

    case cmd::REQUEST_MESSAGE: {
        if (d.size() < 9) return failed();
        Request r;
        r.channelMask = d[0];
        r.idWord = le32(d, 1);
        r.dlc = d[6];
        r.flags = d[7];
        r.tailFlag = d[8];
        if (r.dlc > 15 || (d.size() != 9 && d.size() != 9 + dlcToLength(r.dlc))) return ok(kNoHandler);
        r.data.assign(d.begin() + 9, d.end());
        const uint16_t h = static_cast<uint16_t>(r.idWord);
        if (m_requests.size() >= kMaxRequests && m_requests.find(h) == m_requests.end()) return ok(kNoHandler);
        m_requests[h] = std::move(r); // the same low 16 bits replace an older request
        return ok(0);
    }
    case cmd::ENABLE_REQUEST:
    case cmd::DISABLE_REQUEST:
    case cmd::REMOVE_REQUEST: {
        if (d.size() != 2) return failed();
        auto it = m_requests.find(be16(d, 0));
        if (it == m_requests.end()) return ok(kNoHandler);
        if (packet.command == cmd::REMOVE_REQUEST)
            m_requests.erase(it);
        else
            it->second.enabled = packet.command == cmd::ENABLE_REQUEST;
        return ok(0);
    }

    default: return failed();
    }
}

} // namespace tarvelsim
