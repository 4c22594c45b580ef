// The device's state: EEPROM, clock, restart, and its side of the virtual
// bus (transmissions, signal placement, reports). The commands are in
// DeviceCommands.cpp.
#include "DeviceModel.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tarvelsim {

namespace {

constexpr uint32_t kId29 = 0x1FFFFFFF;
constexpr uint8_t kCumulative = 0x80;

uint32_t fieldMask(unsigned bits) {
    return bits >= 32 ? 0xFFFFFFFFu : (1u << bits) - 1;
}

uint32_t readField(const Bytes& data, unsigned start, unsigned length) {
    uint32_t v = 0;
    for (unsigned i = 0; i < length; ++i) {
        const unsigned bit = start + i;
        if (bit / 8 < data.size() && (data[bit / 8] >> (bit % 8) & 1)) v |= 1u << i;
    }
    return v;
}

void writeField(Bytes& data, unsigned start, unsigned length, uint32_t value) {
    for (unsigned i = 0; i < length; ++i) {
        const unsigned bit = start + i;
        if (bit / 8 >= data.size()) break;
        const uint8_t m = static_cast<uint8_t>(1u << (bit % 8));
        if (value >> i & 1)
            data[bit / 8] |= m;
        else
            data[bit / 8] &= static_cast<uint8_t>(~m);
    }
}

} // namespace

DeviceModel::DeviceModel(uint16_t versionStatus, unsigned capacity, TimePoint now)
    : m_versionStatus(versionStatus), m_capacity(capacity), m_clockSince(now), m_eeprom(kEepromSize, 0xFF) {}

DeviceModel::~DeviceModel() {
    if (m_eepromFd >= 0) ::close(m_eepromFd);
}

bool DeviceModel::openEepromFile(const std::string& path, std::string& error) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = "cannot open EEPROM file " + path + ": " + std::strerror(errno);
        return false;
    }
    std::size_t have = 0;
    while (have < kEepromSize) {
        const ssize_t n = ::pread(fd, m_eeprom.data() + have, kEepromSize - have, static_cast<off_t>(have));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        have += static_cast<std::size_t>(n);
    }
    if (have < kEepromSize) { // a new or short file: fill it up erased
        std::fill(m_eeprom.begin() + static_cast<std::ptrdiff_t>(have), m_eeprom.end(), 0xFF);
        if (::pwrite(fd, m_eeprom.data() + have, kEepromSize - have, static_cast<off_t>(have)) !=
            static_cast<ssize_t>(kEepromSize - have)) {
            error = "cannot write EEPROM file " + path + ": " + std::strerror(errno);
            ::close(fd);
            return false;
        }
    }
    if (m_eepromFd >= 0) ::close(m_eepromFd);
    m_eepromFd = fd;
    return true;
}

void DeviceModel::writeEeprom(uint16_t address, const uint8_t* data, std::size_t length) {
    std::memcpy(m_eeprom.data() + address, data, length);
    if (m_eepromFd >= 0) {
        // Best effort: the image in memory stays authoritative for this run.
        [[maybe_unused]] const ssize_t n = ::pwrite(m_eepromFd, data, length, address);
    }
}

uint32_t DeviceModel::clock(TimePoint now) const {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_clockSince).count();
    return m_clockBase + static_cast<uint32_t>(ms);
}

Bytes DeviceModel::eeprom(uint16_t address, std::size_t length) const {
    const std::size_t end = std::min<std::size_t>(kEepromSize, std::size_t(address) + length);
    return Bytes(m_eeprom.begin() + address, m_eeprom.begin() + static_cast<std::ptrdiff_t>(end));
}

void DeviceModel::restart(TimePoint now) {
    m_messages.clear();
    m_signals.clear();
    m_crcs.clear();
    m_requests.clear();
    m_nextMessage = m_nextSignal = m_nextCrc = 1;
    m_gatewayTarget = 0;
    m_gatewayId = 0;
    m_clockBase = 0;
    m_clockSince = now;
}

void DeviceModel::activate(uint16_t handler, Message& m, TimePoint now, std::vector<BusFrame>& bus) {
    m.enabled = true;
    transmit(handler, m, bus);
    if (m.param1 > 0) m.nextDue = now + std::chrono::milliseconds(m.param1);
}

void DeviceModel::transmit(uint16_t handler, Message& m, std::vector<BusFrame>& bus) {
    for (auto& [h, s] : m_signals) {
        if (s.message != handler || !(s.flags & kCumulative)) continue;
        const unsigned length = s.stop - s.start + 1u;
        const uint32_t v = readField(m.data, s.start, length) + s.increment;
        writeField(m.data, s.start, length, v & fieldMask(length));
    }
    BusFrame f;
    f.channel = static_cast<uint8_t>(m.selector1 % 4);
    f.id = m.idWord & kId29;
    f.flags = static_cast<uint8_t>(m.flags & 0xF0);
    f.data = m.data;
    f.extended = (m.idWord >> 31) != 0;
    bus.push_back(std::move(f));
}

void DeviceModel::applySignal(Signal& s, uint16_t value) {
    s.staged = false;
    const unsigned length = s.stop - s.start + 1u;
    if (s.flags & kCumulative) {
        s.increment = static_cast<uint16_t>(value & fieldMask(length));
        return;
    }
    auto it = m_messages.find(s.message);
    if (it == m_messages.end()) return;
    const uint32_t field = length == 1 ? (value & 1u) : (uint32_t(value) >> (16 - length));
    writeField(it->second.data, s.start, length, field);
}

void DeviceModel::changed(uint16_t handler, std::vector<BusFrame>& bus) {
    auto it = m_messages.find(handler);
    if (it != m_messages.end() && it->second.enabled && it->second.param1 == 0) transmit(handler, it->second, bus);
}

void DeviceModel::transmitDue(TimePoint now, std::vector<BusFrame>& bus) {
    for (auto& [h, m] : m_messages) {
        if (!m.enabled || m.param1 == 0 || m.nextDue > now) continue;
        transmit(h, m, bus);
        const auto period = std::chrono::milliseconds(m.param1);
        m.nextDue += period;
        if (m.nextDue <= now) m.nextDue = now + period; // fell behind: don't burst
    }
}

std::optional<TimePoint> DeviceModel::nextTransmission() const {
    std::optional<TimePoint> next;
    for (const auto& [h, m] : m_messages)
        if (m.enabled && m.param1 > 0 && (!next || m.nextDue < *next)) next = m.nextDue;
    return next;
}

void DeviceModel::reportsFor(const BusFrame& frame, std::vector<DevicePacket>& out) const {
    for (const auto& [h, r] : m_requests) {
        if (!r.enabled || !(r.channelMask >> frame.channel & 1) || (r.idWord & kId29) != (frame.id & kId29)) continue;
        DevicePacket p;
        p.messageId = frame.channel;
        p.responseId = response::ASYNC_MESSAGE;
        const uint8_t dlc = lengthToDlc(frame.data.size());
        p.data = {static_cast<uint8_t>(h >> 8), static_cast<uint8_t>(h),
                  static_cast<uint8_t>((frame.flags & 0xF0) | dlc)};
        p.data.insert(p.data.end(), frame.data.begin(), frame.data.end());
        p.data.resize(3 + dlcToLength(dlc), 0);
        out.push_back(std::move(p));
    }
}

DevicePacket DeviceModel::floodReport(uint32_t n) const {
    uint8_t channel = 0;
    uint16_t handler = 0x0001;
    for (const auto& [h, r] : m_requests) {
        if (!r.enabled || !(r.channelMask & 0x0F)) continue;
        while (!(r.channelMask >> channel & 1))
            ++channel;
        handler = h;
        break;
    }
    DevicePacket p;
    p.messageId = channel;
    p.responseId = response::ASYNC_MESSAGE;
    p.data = {static_cast<uint8_t>(handler >> 8),
              static_cast<uint8_t>(handler),
              8,
              static_cast<uint8_t>(n >> 24),
              static_cast<uint8_t>(n >> 16),
              static_cast<uint8_t>(n >> 8),
              static_cast<uint8_t>(n),
              0,
              0,
              0,
              0};
    return p;
}

} // namespace tarvelsim
