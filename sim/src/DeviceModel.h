// The emulated device's tables, clock, EEPROM and virtual CAN bus. Pure
// logic: no I/O except the optional EEPROM file; the caller locks.
#ifndef TARVELSIM_DEVICE_MODEL_H
#define TARVELSIM_DEVICE_MODEL_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tarvelsim/Wire.h"

namespace tarvelsim {

using SteadyClock = std::chrono::steady_clock;
using TimePoint = SteadyClock::time_point;

class DeviceModel {
public:
    static constexpr std::size_t kEepromSize = 65536;
    static constexpr std::size_t kMaxSignals = 1024;
    static constexpr std::size_t kMaxCrcs = 256;
    static constexpr std::size_t kMaxRequests = 256;
    static constexpr std::size_t kMaxEepromRead = 64;

    struct Outcome {
        std::vector<DevicePacket> answers;
        bool restart = false; // the device restarts once the answers are out
    };

    DeviceModel(uint16_t versionStatus, unsigned capacity, TimePoint now);
    ~DeviceModel();
    DeviceModel(const DeviceModel&) = delete;
    DeviceModel& operator=(const DeviceModel&) = delete;

    // Keeps the EEPROM in a file (created erased when missing). False and a
    // reason on failure.
    bool openEepromFile(const std::string& path, std::string& error);

    // Carries out one command; frames the device puts on the bus as a
    // consequence are appended to bus.
    Outcome execute(const HostPacket& packet, TimePoint now, std::vector<BusFrame>& bus);
    // Clears the volatile tables and the clock (the EEPROM stays).
    void restart(TimePoint now);

    // Periodic transmissions that are due; the earliest next one.
    void transmitDue(TimePoint now, std::vector<BusFrame>& bus);
    std::optional<TimePoint> nextTransmission() const;

    // ASYNC_MESSAGE reports of the enabled requests that a bus frame matches.
    void reportsFor(const BusFrame& frame, std::vector<DevicePacket>& out) const;
    // One report of the flood fault, numbered n.
    DevicePacket floodReport(uint32_t n) const;

    uint32_t clock(TimePoint now) const;
    Bytes eeprom(uint16_t address, std::size_t length) const;
    std::size_t messageCount() const { return m_messages.size(); }
    std::size_t requestCount() const { return m_requests.size(); }

private:
    struct Message {
        uint8_t selector1 = 0, selector2 = 0;
        uint32_t idWord = 0; // as received: 29-bit id, flag in bit 31
        uint8_t flags = 0;
        uint8_t extraFlag = 0;
        uint8_t dlc = 0;
        uint16_t param1 = 0, param2 = 0, param3 = 0;
        bool enabled = false;
        Bytes data;
        TimePoint nextDue;
    };
    struct Signal {
        uint16_t message = 0;
        uint8_t group = 0;
        uint16_t start = 0, stop = 0;
        uint8_t flags = 0;
        bool staged = false;
        uint16_t stagedValue = 0;
        uint16_t increment = 0; // cumulative signals
        uint8_t controlMode = 0;
        uint32_t controlArgs[3] = {0, 0, 0};
    };
    struct Crc {
        Bytes block;
        bool enabled = true;
    };
    struct Request {
        uint8_t channelMask = 0;
        uint32_t idWord = 0;
        uint8_t dlc = 0;
        uint8_t flags = 0;
        uint8_t tailFlag = 0;
        Bytes data;
        bool enabled = true;
    };

    void activate(uint16_t handler, Message& m, TimePoint now, std::vector<BusFrame>& bus);
    void transmit(uint16_t handler, Message& m, std::vector<BusFrame>& bus);
    void applySignal(Signal& s, uint16_t value);
    void changed(uint16_t handler, std::vector<BusFrame>& bus); // data changed: resend on-change messages
    void writeEeprom(uint16_t address, const uint8_t* data, std::size_t length);

    template <class Map> static uint16_t allocate(const Map& map, uint16_t& next);

    uint16_t m_versionStatus;
    unsigned m_capacity;
    uint32_t m_clockBase = 0;
    TimePoint m_clockSince;
    Bytes m_eeprom;
    int m_eepromFd = -1;

    std::map<uint16_t, Message> m_messages;
    std::map<uint16_t, Signal> m_signals;
    std::map<uint16_t, Crc> m_crcs;
    std::map<uint16_t, Request> m_requests; // by the low 16 bits of the identifier
    uint16_t m_nextMessage = 1, m_nextSignal = 1, m_nextCrc = 1;
    uint8_t m_gatewayTarget = 0;
    uint32_t m_gatewayId = 0;
};

} // namespace tarvelsim

#endif
