// Types shared by the session, the serial port and their callers.
#ifndef TARVEL_TYPES_H
#define TARVEL_TYPES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "TarvelBase.h"

// Every payload, packet, frame, message data block and answer.
using ByteVector = std::vector<unsigned char>;

// One device packet taken apart by Tarvel::ParseMessage.
struct RecvMessage {
    unsigned char messageId = 0;  // id answered; 0 untraced; channel of a report
    unsigned char responseId = 0; // a Tarvel::RESPONSE value
    ByteVector data;              // bytes between the response id and the checksum
};

// One received CAN report (response ASYNC_MESSAGE). key 0 means no report.
struct RecvAsyncMessage {
    uint32_t key = 0; // channel << 16 | handler
    uint8_t channel = 0;
    uint16_t handler = 0;
    uint8_t dlc = 0;
    uint8_t flag7 = 0;
    uint8_t flag6 = 0;
    uint8_t flag5 = 0;
    uint8_t flag4 = 0;
    ByteVector data;
    uint32_t timestamp = 0; // host milliseconds at reception
};

// Host-side record of a signal the device accepted.
struct SignalEntry {
    uint16_t startSymbol = 0;
    uint16_t stopSymbol = 0;
    uint8_t flags = 0;
    uint8_t group = 0;
};

// A registered signal inside a requested message: {request key, start bit, stop bit}.
using SignalRequest = std::vector<uint32_t>;

#endif
