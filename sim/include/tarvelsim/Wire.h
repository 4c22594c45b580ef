// The device's own view of the serial line: SLIP framing, packet checksum,
// the command and response codes, the packets in both directions and the
// frames of the virtual bus. Kept apart from the host library on purpose, so
// that a fault in one is not mirrored by the other.
#ifndef TARVELSIM_WIRE_H
#define TARVELSIM_WIRE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarvelsim {

using Bytes = std::vector<uint8_t>;

namespace slip {
constexpr uint8_t END = 0xC0;
constexpr uint8_t ESC = 0xDB;
constexpr uint8_t ESC_END = 0xDC;
constexpr uint8_t ESC_ESC = 0xDD;
constexpr uint8_t ESC_BRK = 0xDE;
} // namespace slip

namespace cmd {
constexpr uint8_t ADD_MESSAGE = 0x01;
constexpr uint8_t REMOVE_MESSAGE = 0x02;
constexpr uint8_t ENABLE_MESSAGE = 0x03;
constexpr uint8_t DISABLE_MESSAGE = 0x04;
constexpr uint8_t SET_MESSAGE_DATA = 0x05;
constexpr uint8_t GET_HANDLER = 0x06;
constexpr uint8_t PING = 0x09;
constexpr uint8_t ADD_CRC = 0x0A;
constexpr uint8_t CHANGE_CRC = 0x0B;
constexpr uint8_t DISABLE_CRC = 0x0C;
constexpr uint8_t ADD_SIGNAL = 0x14;
constexpr uint8_t CHANGE_SIGNAL = 0x15;
constexpr uint8_t REMOVE_SIGNAL = 0x16;
constexpr uint8_t EXECUTE_SIGNAL_CHANGE = 0x17;
constexpr uint8_t SET_SIGNAL_CONTROL = 0x18;
constexpr uint8_t GATEWAY_ID = 0x19;
constexpr uint8_t REBOOT = 0x20;
constexpr uint8_t BLOB_REMOVE = 0x21;
constexpr uint8_t REQUEST_MESSAGE = 0x22;
constexpr uint8_t ENABLE_REQUEST = 0x23;
constexpr uint8_t DISABLE_REQUEST = 0x24;
constexpr uint8_t REMOVE_REQUEST = 0x25;
constexpr uint8_t READ_EEPROM = 0x26;
constexpr uint8_t WRITE_EEPROM = 0x27;
constexpr uint8_t GET_TIME = 0x30;
constexpr uint8_t SET_TIME = 0x31;
} // namespace cmd

namespace response {
constexpr uint8_t OK = 0x80;
constexpr uint8_t COMMAND_FAILED = 0x81;
constexpr uint8_t PACKET_ERROR = 0x82;
constexpr uint8_t SLIP_PROTO_ERROR = 0x83;
constexpr uint8_t TARVEL_HW_ERROR = 0x84;
constexpr uint8_t ASYNC_MESSAGE = 0x90;
constexpr uint8_t DATA_RESPONSE_A = 0x91;
constexpr uint8_t DATA_RESPONSE_B = 0x92;
} // namespace response

// A packet the host sent, as the device decoded it.
struct HostPacket {
    uint8_t messageId = 0;
    uint8_t command = 0;
    Bytes payload;
    Bytes raw; // the whole packet: length, id, command, payload, sum16
};

// A packet the device sends (sum16 and length are added when it is sent).
struct DevicePacket {
    uint8_t messageId = 0;
    uint8_t responseId = 0;
    Bytes data;
};

// A frame on the virtual CAN bus.
struct BusFrame {
    uint8_t channel = 0; // 0..3
    uint32_t id = 0;
    uint8_t flags = 0;     // flag bits 7..4 as reported to the host
    Bytes data;            // length must be a CAN FD length
    bool extended = false; // 29-bit identifier (bit 31 of a transmit message's identifier word)
};

// Message id of every command the host sends without waiting for an answer.
constexpr uint8_t kUntrackedId = 4;

// Sum of the bytes, modulo 65536.
uint16_t sum16(const uint8_t* data, std::size_t size);

// [length][id][code][payload][sum16 high][sum16 low]; length counts code and payload.
Bytes buildPacket(uint8_t messageId, uint8_t code, const Bytes& payload);

enum class PacketCheck { Ok, BadLength, BadChecksum };
// Length byte and sum16 of a received packet. A packet without a code byte
// (fewer than 5 bytes) is a length fault.
PacketCheck checkPacket(const Bytes& packet);

// END, the payload with END and ESC escaped, END.
Bytes slipEncode(const Bytes& payload);

// Incremental frame decoder. Hunts for an opening END, gathers up to the
// closing END, skips empty frames, honours ESC ESC_BRK (drop what was
// gathered). After a fault it hunts again, so the closing END of a broken
// frame opens the next one.
class SlipDecoder {
public:
    enum class Event { None, Frame, BadEscape, TooLong };

    explicit SlipDecoder(std::size_t maxSize = 512);

    Event feed(uint8_t byte);
    // The frame just delivered, or what was gathered before a fault.
    const Bytes& frame() const { return m_frame; }
    void reset();

private:
    enum class State { Hunt, Gather, Escape };
    std::size_t m_maxSize;
    State m_state = State::Hunt;
    Bytes m_frame;
    Bytes m_gathered;
};

// CAN FD data length codes.
std::size_t dlcToLength(uint8_t dlc);    // dlc 0..15
uint8_t lengthToDlc(std::size_t length); // smallest code that holds length (max 15)

} // namespace tarvelsim

#endif
