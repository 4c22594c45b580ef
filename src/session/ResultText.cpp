// The one table from result codes to words. The same code can mean
// different things to different operations (-1 is a closed port for a
// command, a bad block for the EEPROM, "no report yet" for a signal read), so
// the caller may say which operation returned it.
#include <cstring>
#include <string>

#include "Tarvel.h"

namespace {

enum class Kind {
    Command,
    Connect,
    Eeprom,
    Time,
    AddMessage,
    Message,
    Signal,
    Crc,
    Request,
    SignalRequest,
    SignalRead,
    Receiver,
    Report
};

struct OperationKind {
    const char* name;
    Kind kind;
};

const OperationKind kOperations[] = {
    {"Connect", Kind::Connect},
    {"ReadEeprom", Kind::Eeprom},
    {"WriteEeprom", Kind::Eeprom},
    {"GetTime", Kind::Time},
    {"AddMessage", Kind::AddMessage},
    {"RemoveMessage", Kind::Message},
    {"EnableMessage", Kind::Message},
    {"DisableMessage", Kind::Message},
    {"SetMessageData", Kind::Message},
    {"GetHandler", Kind::Message},
    {"AddSignal", Kind::Signal},
    {"RemoveSignal", Kind::Signal},
    {"SignalChangeValue", Kind::Signal},
    {"ChangeSignalSgroup", Kind::Signal},
    {"ExecuteSignalChange", Kind::Signal},
    {"SetSignalControl", Kind::Signal},
    {"AddCrc", Kind::Crc},
    {"ChangeCrc", Kind::Crc},
    {"DisableCrc", Kind::Crc},
    {"RequestMessage", Kind::Request},
    {"RequestReport", Kind::Request},
    {"EnableRequest", Kind::Request},
    {"DisableRequest", Kind::Request},
    {"RemoveRequest", Kind::Request},
    {"RequestSignal", Kind::SignalRequest},
    {"SignalReadValue", Kind::SignalRead},
    {"StartReceiver", Kind::Receiver},
    {"WaitReport", Kind::Report},
    {"WaitReports", Kind::Report},
    {"ReadReport", Kind::Report},
};

Kind kindOf(const char* operation) {
    if (operation == nullptr) return Kind::Command;
    // C entry points carry the suffix; the text is the member's.
    std::string name(operation);
    const std::string suffix = "Tarvel";
    if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
        name.resize(name.size() - suffix.size());
    if (name == "SignalReadValue32" || name == "SignalReadValue64") name = "SignalReadValue";
    if (name == "ReadAsyncMsg") return Kind::Report;
    for (const OperationKind& op : kOperations)
        if (name == op.name) return op.kind;
    return Kind::Command;
}

// Codes of the command exchange that every device operation passes on.
const char* commonText(int code) {
    switch (code) {
    case 0: return "success";
    case -1: return "the serial port is not open (or its sender thread failed)";
    case -2: return "the sender thread is still starting";
    case -3: return "the sender thread is stopping";
    case -4: return "the sender thread has stopped";
    case -5: return "the sender thread is not serving";
    case -6: return "the payload is too long for one packet (at most 254 bytes)";
    case -14: return "no valid answer from the device";
    case -15: return "no answer from the device in time";
    case -21: return "the device refused the command";
    case -22: return "the device refused the command (unknown or invalid handler)";
    case -23: return "the device refused the command";
    case TARVEL_ERROR_NULL_POINTER: return "a null session handle or a null pointer where one is needed";
    case TARVEL_ERROR_EXCEPTION: return "the operation failed with an exception (out of memory, no thread)";
    default: return nullptr;
    }
}

const char* specificText(int code, Kind kind) {
    switch (kind) {
    case Kind::Connect:
        switch (code) {
        case -1: return "another port is already open";
        case -2: return "cannot open the port";
        case -3: return "cannot read the line settings of the port";
        case -4: return "cannot apply the line settings (2000000 baud, 8E1)";
        default: return nullptr;
        }
    case Kind::Eeprom:
        switch (code) {
        case -1: return "invalid block (length 1..16, writes from address 30 on)";
        case -2: return "no data buffer";
        case -666: return "the device returned a block of the wrong length";
        default: return nullptr;
        }
    case Kind::Time: return code == -2 ? "no buffer for the time" : nullptr;
    case Kind::AddMessage:
        switch (code) {
        case -21: return "invalid message (data length code or contents refused)";
        case -22: return "the device refused the message length";
        case -23: return "the device is out of memory for transmit messages";
        case -31: return "invalid data length code";
        default: return nullptr;
        }
    case Kind::Message:
        switch (code) {
        case -21: return "the device refused the command (answer 0xFFFF)";
        case -22: return "the device does not know this message handler";
        case -31: return "this session did not add a message with that handler";
        default: return nullptr;
        }
    case Kind::Signal:
        switch (code) {
        case -21: return "the device refused the signal (answer 0xFFFF)";
        case -31: return "invalid bit range (start after stop, or longer than 16 bits)";
        case -32: return "a cumulative signal is not allowed in a fast/slow-send message";
        default: return nullptr;
        }
    case Kind::Crc:
        switch (code) {
        case -2: return "no checksum block";
        case -21: return "the device refused the checksum command (answer 1 or 0xFFFF)";
        case -22: return "the device refused the checksum command (answer 2)";
        case -23: return "the device refused the checksum command (answer 3)";
        default: return nullptr;
        }
    case Kind::Request:
        switch (code) {
        case -21: return "the device refused the request (or the data length code is invalid)";
        case -31:
            return "refused before sending: the identifier does not fit its format, or the device could not tell "
                   "the request apart from a live one";
        default: return nullptr;
        }
    case Kind::SignalRequest:
        return code == -1 ? "invalid bit range (start after stop, or longer than 64 bits)" : nullptr;
    case Kind::SignalRead:
        switch (code) {
        case -1: return "no report of the message received yet";
        case -2: return "the signal reaches beyond the data of the report";
        case -3: return "the receiver thread is not running";
        case -4: return "the signal is not registered";
        case -5: return "no value buffer";
        case -1000: return "reading was not asked for";
        default: return nullptr;
        }
    case Kind::Receiver:
        switch (code) {
        case 1: return "the receiver thread is already running";
        case -1: return "the receiver thread did not start (is the port open?)";
        default: return nullptr;
        }
    case Kind::Report:
        switch (code) {
        case 1: return "a report";
        case 0: return "no report came in time";
        case -1: return "no report of that request yet";
        case -2: return "the report queue is switched off";
        case -3: return "the receiver thread is not running and no report is queued";
        default: return nullptr;
        }
    case Kind::Command: return nullptr;
    }
    return nullptr;
}

std::string text(int code, Kind kind) {
    if (const char* t = specificText(code, kind)) return t;
    if (kind == Kind::Connect) {
        // Connect stacks the failing step's offset on the step's own code.
        if (code <= -300 && code > -400) {
            if (code == -314) return "the device did not answer the version query";
            return "the version query failed: " + text(code + 300, Kind::Command);
        }
        if (code <= -200 && code > -300) return "purging the port buffers failed";
        if (code <= -100 && code > -200) return "setting the time-outs failed";
    }
    if (const char* t = commonText(code)) return t;
    if (code > 0xFFFF) return "answer " + std::to_string(code & 0xFFFF) + " with a device hardware error seen";
    if (code > 0) return "the device answered with status " + std::to_string(code);
    if (code <= -11 && code >= -20) return "the answer failed (code " + std::to_string(code + 10) + ")";
    return "unknown result code";
}

} // namespace

const char* Tarvel::ResultText(int code, const char* operation) {
    thread_local std::string words;
    words = text(code, kindOf(operation));
    return words.c_str();
}
