// What a library result code means, in words, for the operation family that
// returned it (the words are the library's, Tarvel::ResultText).
#ifndef TARVEL_TOOL_RESULT_TEXT_H
#define TARVEL_TOOL_RESULT_TEXT_H

#include <string>

namespace tool {

// The same code means different things to different operations (-1 is a
// closed port for a command, a bad block for the EEPROM, "no report yet"
// for a signal read), so the caller says which family it called.
enum class ResultKind {
    Connect,       // Tarvel::Connect
    Command,       // any device command exchange
    Eeprom,        // ReadEeprom, WriteEeprom
    AddMessage,    // AddMessage
    Message,       // RemoveMessage, EnableMessage, DisableMessage, SetMessageData
    Signal,        // AddSignal, SignalChangeValue, RemoveSignal
    Request,       // RequestMessage and the request handler commands
    SignalRequest, // RequestSignal
    SignalRead,    // SignalReadValue
    Receiver,      // StartReceiver
};

// "no valid answer from the device" for -14, and so on; never empty.
std::string resultText(int code, ResultKind kind);

// "-14: no valid answer from the device".
std::string describeResult(int code, ResultKind kind);

} // namespace tool

#endif
