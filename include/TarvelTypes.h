/// @file TarvelTypes.h
/// @brief Types shared by the session, the serial port and their callers
/// (C++ only; included by Tarvel.h and SerialPort.h).
#ifndef TARVEL_TYPES_H
#define TARVEL_TYPES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "TarvelBase.h"

/// Every payload, packet, frame, message data block and answer.
using ByteVector = std::vector<unsigned char>;

/// One device packet taken apart by Tarvel::ParseMessage.
struct RecvMessage {
    unsigned char messageId = 0;  ///< id answered; 0 untraced; channel of a report
    unsigned char responseId = 0; ///< a Tarvel::RESPONSE value
    ByteVector data;              ///< bytes between the response id and the checksum
};

/// One received CAN report (response ASYNC_MESSAGE). key 0 means no report.
struct RecvAsyncMessage {
    uint32_t key = 0;       ///< channel << 16 | handler
    uint8_t channel = 0;    ///< CAN channel 0..3
    uint16_t handler = 0;   ///< low 16 bits of the CAN identifier
    uint8_t dlc = 0;        ///< data length code 0..15
    uint8_t flag7 = 0;      ///< flag bit 7 of the report, 0 or 1
    uint8_t flag6 = 0;      ///< flag bit 6, 0 or 1
    uint8_t flag5 = 0;      ///< flag bit 5, 0 or 1
    uint8_t flag4 = 0;      ///< flag bit 4, 0 or 1
    ByteVector data;        ///< the data bytes (CAN FD length of dlc)
    uint32_t timestamp = 0; ///< host milliseconds at reception (Tarvel::GetTickMs, low 32 bits)
};

/// Host-side record of a signal the device accepted.
struct SignalEntry {
    uint16_t startSymbol = 0; ///< first bit
    uint16_t stopSymbol = 0;  ///< last bit
    uint8_t flags = 0;        ///< as given to Tarvel::AddSignal
    uint8_t group = 0;        ///< signal group
};

/// A registered signal inside a requested message: {request key, start bit, stop bit}.
using SignalRequest = std::vector<uint32_t>;

#endif
