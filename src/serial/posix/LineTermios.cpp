#include "serial/posix/LineTermios.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <cerrno>

// <sys/ioctl.h> would drag in the C library's termios types.
extern "C" int ioctl(int fd, unsigned long request, ...);

namespace tarvel {
namespace posix {

namespace {

int getTermios(int fd, struct termios2& t) {
    return ioctl(fd, TCGETS2, &t) == 0 ? 0 : errno;
}

} // namespace

int readLineSettings(int fd, LineSettings& settings) {
    struct termios2 t {};
    if (int e = getTermios(fd, t)) return e;
    settings.BaudRate = t.c_ospeed;
    switch (t.c_cflag & CSIZE) {
    case CS5: settings.ByteSize = 5; break;
    case CS6: settings.ByteSize = 6; break;
    case CS7: settings.ByteSize = 7; break;
    default: settings.ByteSize = 8; break;
    }
    settings.StopBits = (t.c_cflag & CSTOPB) ? 2 : 0;
    if (!(t.c_cflag & PARENB))
        settings.Parity = 0;
    else if (t.c_cflag & CMSPAR)
        settings.Parity = (t.c_cflag & PARODD) ? 3 : 4;
    else
        settings.Parity = (t.c_cflag & PARODD) ? 1 : 2;
    return 0;
}

int applyLineSettings(int fd, const LineSettings& s) {
    // One and a half stop bits exist only for 5-bit characters on some
    // UARTs; termios has no way to ask for them.
    if (s.BaudRate == 0 || s.ByteSize < 5 || s.ByteSize > 8 || (s.StopBits != 0 && s.StopBits != 2) || s.Parity > 4)
        return EINVAL;

    struct termios2 t {};
    if (int e = getTermios(fd, t)) return e;

    t.c_iflag &= ~static_cast<tcflag_t>(IGNBRK | BRKINT | IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL |
                                        IUCLC | IXON | IXANY | IXOFF | IMAXBEL | IUTF8);
    t.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    t.c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHONL | ECHOCTL | ECHOPRT | ECHOKE |
                                        IEXTEN | NOFLSH | TOSTOP);
    t.c_cflag &= ~static_cast<tcflag_t>(CBAUD | CIBAUD | CSIZE | CSTOPB | PARENB | PARODD | CMSPAR | CRTSCTS);
    t.c_cflag |= CREAD | CLOCAL | BOTHER;
    static const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
    t.c_cflag |= sizes[s.ByteSize - 5];
    if (s.StopBits == 2) t.c_cflag |= CSTOPB;
    switch (s.Parity) {
    case 1: t.c_cflag |= PARENB | PARODD; break;
    case 2: t.c_cflag |= PARENB; break;
    case 3: t.c_cflag |= PARENB | PARODD | CMSPAR; break;
    case 4: t.c_cflag |= PARENB | CMSPAR; break;
    default: break;
    }
    t.c_ospeed = s.BaudRate;
    t.c_ispeed = s.BaudRate; // CIBAUD is 0: input runs at the output rate
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    if (ioctl(fd, TCSETS2, &t) != 0) return errno;

    // Some drivers adjust what they cannot do (a pseudo-terminal drops
    // parity and forces 8 bits); what must hold is the raw byte path.
    struct termios2 check {};
    if (int e = getTermios(fd, check)) return e;
    const tcflag_t cooked = ICANON | ECHO | ISIG | IEXTEN;
    const tcflag_t translate = ICRNL | INLCR | IGNCR | ISTRIP | IXON | IXOFF | PARMRK;
    if ((check.c_lflag & cooked) != 0 || (check.c_iflag & translate) != 0 || (check.c_oflag & OPOST) != 0)
        return EINVAL;
    return 0;
}

int purgeLine(int fd) {
    return ioctl(fd, TCFLSH, TCIOFLUSH) == 0 ? 0 : errno;
}

} // namespace posix
} // namespace tarvel
