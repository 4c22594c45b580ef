// Line settings through the kernel's termios2 interface, which takes any baud
// rate (BOTHER). Kept apart because the kernel's termios headers cannot be
// mixed with the C library's <termios.h>.
#ifndef TARVEL_SERIAL_POSIX_LINE_TERMIOS_H
#define TARVEL_SERIAL_POSIX_LINE_TERMIOS_H

#include "SerialPort.h"

namespace tarvel {
namespace posix {

// Each returns 0 on success or an errno value.
int readLineSettings(int fd, LineSettings& settings);
// Raw mode (no echo, no line editing, no translation, no flow control) with
// the given rate, data bits, stop bits and parity.
int applyLineSettings(int fd, const LineSettings& settings);
// Drops both directions' queued bytes.
int purgeLine(int fd);

} // namespace posix
} // namespace tarvel

#endif
