// What the port asks the kernel for when it configures the line. A
// pseudo-terminal keeps only part of a request (it drops parity and forces
// 8 data bits), so the request is read on its way to the kernel: this
// program's ioctl passes every call on unchanged and keeps the last line
// setting for the test.
#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>

#include "SerialTestSupport.h"
#include "TarvelAPI.h"

namespace {

std::mutex g_askedMutex;
termios2 g_asked{};

termios2 asked() {
    std::lock_guard<std::mutex> lock(g_askedMutex);
    return g_asked;
}

void forget() {
    std::lock_guard<std::mutex> lock(g_askedMutex);
    g_asked = termios2{};
}

const tcflag_t kFraming = CSIZE | CSTOPB | PARENB | PARODD | CMSPAR;

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) {
    va_list args;
    va_start(args, request);
    void* arg = va_arg(args, void*);
    va_end(args);
    if (request == TCSETS2) {
        std::lock_guard<std::mutex> lock(g_askedMutex);
        g_asked = *static_cast<const termios2*>(arg);
    }
    return static_cast<int>(::syscall(SYS_ioctl, fd, request, arg));
}

namespace {

TEST(LineSettings, TheSessionAsksForTwoMegabaudEightDataBitsEvenParityOneStopBit) {
    Pty pty; // no device behind it: the version query goes unanswered
    Tarvel tarvel;
    tarvel.ClearPrintStream();
    forget();
    EXPECT_EQ(-314, tarvel.Connect(pty.slavePath(), 10, 1000));
    const termios2 t = asked();
    EXPECT_EQ(tcflag_t(CS8 | PARENB), t.c_cflag & kFraming);
    EXPECT_EQ(2000000u, t.c_ospeed);
    EXPECT_EQ(2000000u, t.c_ispeed);
}

// That every byte value passes the line unchanged: SlipTest's AllByteValuesPassBothWays.
TEST(LineSettings, EachSettingIsAskedFor) {
    struct Line {
        unsigned baud;
        unsigned char bits, stop, parity;
        tcflag_t framing;
    };
    // Rates without a constant of their own, every size, both stop bits and
    // every parity but even (the session's, above); all on the same terminal,
    // connected again and again.
    const Line lines[] = {{115200, 7, 2, 1, CS7 | CSTOPB | PARENB | PARODD},
                          {250000, 5, 0, 3, CS5 | PARENB | PARODD | CMSPAR},
                          {1234567, 6, 2, 4, CS6 | CSTOPB | PARENB | CMSPAR},
                          {9600, 8, 0, 0, CS8}};
    Pty pty;
    SerialPort port;
    for (const Line& l : lines) {
        SCOPED_TRACE(l.baud);
        forget();
        ASSERT_EQ(port.Connect(pty.slavePath(), l.baud, l.bits, l.stop, l.parity), 0);
        const termios2 t = asked();
        EXPECT_EQ(l.framing, t.c_cflag & kFraming);
        EXPECT_EQ(tcflag_t(CREAD | CLOCAL), t.c_cflag & (CREAD | CLOCAL | CRTSCTS));
        EXPECT_EQ(l.baud, t.c_ospeed);
        EXPECT_EQ(l.baud, t.c_ispeed);
        EXPECT_EQ(1, t.c_cc[VMIN]);
        EXPECT_EQ(0, t.c_cc[VTIME]);
        EXPECT_EQ(port.Disconnect(), 0);
    }
}

} // namespace
