// Reports of system errors met by the serial port, on the standard error
// stream. Internal to the library.
#ifndef TARVEL_SERIAL_SYSTEM_ERROR_H
#define TARVEL_SERIAL_SYSTEM_ERROR_H

#include "serial/PortDevice.h"

// Prints prefix + the system's text for code + line end. The flag changes
// nothing (callers pass their own).
void PrintSystemError(unsigned long code, const char* prefix, bool flag);

namespace tarvel {

enum class IoDirection { Read, Write };

// Reports a failed transfer under the name of the step that failed, e.g.
// "SerialPort::ReadByte ReadFile failed with error: ".
void PrintIoError(IoDirection direction, const IoResult& result, bool flag);

// The platform's error for an operation on a port that is not open.
unsigned long notOpenError();

} // namespace tarvel

#endif
