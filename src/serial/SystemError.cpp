#include "serial/SystemError.h"

#include <cstdio>
#include <string>

void PrintSystemError(unsigned long code, const char* prefix, bool /*flag*/) {
    const std::string text = tarvel::port::errorText(code);
    std::fprintf(stderr, "%s%s\n", prefix != nullptr ? prefix : "", text.c_str());
}

namespace tarvel {

void PrintIoError(IoDirection direction, const IoResult& result, bool flag) {
    const bool read = direction == IoDirection::Read;
    const char* call = "";
    switch (result.stage) {
    case IoStage::CreateEvent: call = "CreateEvent"; break;
    case IoStage::Transfer: call = read ? "ReadFile" : "WriteFile"; break;
    case IoStage::Wait: call = "WaitForSingleObject"; break;
    case IoStage::Result: call = "GetOverlappedResult"; break;
    case IoStage::CloseEvent: call = "CloseHandle"; break;
    }
    const std::string prefix =
        std::string(read ? "SerialPort::ReadByte " : "SerialPort::WriteByte ") + call + " failed with error: ";
    PrintSystemError(result.error, prefix.c_str(), flag);
}

unsigned long notOpenError() {
    // Purging a device that is not there fails with exactly this error on
    // every platform.
    unsigned long error = 0;
    port::purge(nullptr, error);
    return error;
}

} // namespace tarvel
