// Words for a result code come from the library; the tool only says which
// operation family returned it.
#include "ResultText.h"

#include <string>

#include "TarvelAPI.h"

namespace tool {
namespace {

// An operation of the family, by whose name the library picks the meaning.
const char* operationOf(ResultKind kind) {
    switch (kind) {
    case ResultKind::Connect: return "Connect";
    case ResultKind::Eeprom: return "ReadEeprom";
    case ResultKind::AddMessage: return "AddMessage";
    case ResultKind::Message: return "SetMessageData";
    case ResultKind::Signal: return "AddSignal";
    case ResultKind::Request: return "RequestReport";
    case ResultKind::SignalRequest: return "RequestSignal";
    case ResultKind::SignalRead: return "SignalReadValue";
    case ResultKind::Receiver: return "StartReceiver";
    case ResultKind::Command: break;
    }
    return nullptr;
}

} // namespace

std::string resultText(int code, ResultKind kind) {
    return Tarvel::ResultText(code, operationOf(kind));
}

std::string describeResult(int code, ResultKind kind) {
    return std::to_string(code) + ": " + resultText(code, kind);
}

} // namespace tool
