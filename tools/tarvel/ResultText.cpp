// The one table from library result codes to words.
#include "ResultText.h"

#include <string>

namespace tool {
namespace {

// Codes of the command exchange that every device operation passes on.
const char* commonText(int code) {
    switch (code) {
    case 0: return "success";
    case -1: return "the serial port is not open (or its sender thread failed)";
    case -2: return "the sender thread is still starting";
    case -3: return "the sender thread is stopping";
    case -4: return "the sender thread has stopped";
    case -5: return "the sender thread is not serving";
    case -14: return "no valid answer from the device";
    case -15: return "no answer from the device in time";
    case -21: return "the device refused the command";
    case -22: return "the device refused the command (unknown or invalid handler)";
    case -23: return "the device refused the command";
    default: return nullptr;
    }
}

const char* specificText(int code, ResultKind kind) {
    switch (kind) {
    case ResultKind::Connect:
        switch (code) {
        case -1: return "another port is already open";
        case -2: return "cannot open the port";
        case -3: return "cannot read the line settings of the port";
        case -4: return "cannot apply the line settings (2000000 baud, 8E1)";
        default: return nullptr;
        }
    case ResultKind::Eeprom:
        switch (code) {
        case -1: return "invalid block (length 1..16, writes from address 30 on)";
        case -2: return "no data buffer";
        case -666: return "the device returned a block of the wrong length";
        default: return nullptr;
        }
    case ResultKind::AddMessage:
        switch (code) {
        case -21: return "invalid message (data length code or contents refused)";
        case -22: return "the device refused the message length";
        case -23: return "the device is out of memory for transmit messages";
        case -31: return "invalid data length code";
        default: return nullptr;
        }
    case ResultKind::Message:
        switch (code) {
        case -21: return "the device refused the command (answer 0xFFFF)";
        case -22: return "the device does not know this message handler";
        case -31: return "this session did not add a message with that handler";
        default: return nullptr;
        }
    case ResultKind::Signal:
        switch (code) {
        case -21: return "the device refused the signal (answer 0xFFFF)";
        case -31: return "invalid bit range (start after stop, or longer than 16 bits)";
        case -32: return "a cumulative signal is not allowed in a fast/slow-send message";
        default: return nullptr;
        }
    case ResultKind::Request:
        switch (code) {
        case -21: return "the device refused the request";
        default: return nullptr;
        }
    case ResultKind::SignalRequest:
        switch (code) {
        case -1: return "invalid bit range (start after stop, or longer than 64 bits)";
        default: return nullptr;
        }
    case ResultKind::SignalRead:
        switch (code) {
        case -1: return "no report of the message received yet";
        case -2: return "the signal reaches beyond the data of the report";
        case -3: return "the receiver thread is not running";
        case -4: return "the signal is not registered";
        case -1000: return "reading was not asked for";
        default: return nullptr;
        }
    case ResultKind::Receiver:
        switch (code) {
        case 1: return "the receiver thread is already running";
        case -1: return "the receiver thread did not start in time";
        default: return nullptr;
        }
    case ResultKind::Command: return nullptr;
    }
    return nullptr;
}

} // namespace

std::string resultText(int code, ResultKind kind) {
    if (const char* text = specificText(code, kind)) return text;
    if (kind == ResultKind::Connect) {
        // Connect stacks the failing step's offset on the step's own code.
        if (code <= -300 && code > -400) {
            if (code == -314) return "the device did not answer the version query";
            return "the version query failed: " + resultText(code + 300, ResultKind::Command);
        }
        if (code <= -200 && code > -300) return "purging the port buffers failed";
        if (code <= -100 && code > -200) return "setting the time-outs failed";
    }
    if (const char* text = commonText(code)) return text;
    if (code > 0xFFFF) return "answer " + std::to_string(code & 0xFFFF) + " with a device hardware error seen";
    if (code > 0) return "the device answered with status " + std::to_string(code);
    if (code <= -11 && code >= -20) return "the answer failed (code " + std::to_string(code + 10) + ")";
    return "unknown result code";
}

std::string describeResult(int code, ResultKind kind) {
    return std::to_string(code) + ": " + resultText(code, kind);
}

} // namespace tool
