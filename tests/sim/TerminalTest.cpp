// The terminal the device serves: a fresh one for each host, or a given serial device.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <sys/ioctl.h>
#include <termios.h>

#include <cstring>

#include "Pty.h"
#include "SimFixture.h"

using namespace simtest;

using SimTerminal = SimFixture;

TEST_F(SimTerminal, NextHostGetsAFreshTerminal) {
    ASSERT_TRUE(eventually([&] { return sim->hostConnected(); }));
    // The host leaves the terminal exclusive and canonical, in mid-frame.
    ASSERT_EQ(0, ::ioctl(line->fd(), TIOCEXCL));
    termios t{};
    ASSERT_EQ(0, ::tcgetattr(line->fd(), &t));
    t.c_lflag |= ICANON | ECHO;
    ASSERT_EQ(0, ::tcsetattr(line->fd(), TCSANOW, &t));
    ASSERT_TRUE(line->write({0xC0, 0x01, 0x05}));
    line->close();
    ASSERT_TRUE(eventually([&] { return !sim->hostConnected(); }));

    // Refused (EBUSY) if the terminal were still exclusive, unless we are root.
    HostLine next(sim->portPath());
    ASSERT_GE(next.fd(), 0) << std::strerror(errno);
    int exclusive = 1;
    ASSERT_EQ(0, ::ioctl(next.fd(), TIOCGEXCL, &exclusive));
    EXPECT_EQ(0, exclusive);
    ASSERT_EQ(0, ::tcgetattr(next.fd(), &t));
    EXPECT_EQ(0u, t.c_lflag & (ICANON | ECHO));
    // The old half frame is gone: a whole ping is answered.
    const Answer a = next.exchange(5, cmd::PING);
    EXPECT_EQ(5, a.id);
    EXPECT_EQ(0, okValue(a));
    EXPECT_TRUE(sim->hostConnected());
}

TEST(SimPort, ServesAGivenSerialDevice) {
    Pty pty; // the host on its master side
    HostLine host(::dup(pty.masterFd()));
    Options o;
    o.port = pty.slavePath();
    Simulator sim(o);
    ASSERT_TRUE(sim.start()) << sim.lastError();
    EXPECT_EQ(o.port, sim.portPath());
    EXPECT_EQ(0, okValue(host.exchange(7, cmd::PING)));
    EXPECT_TRUE(sim.hostConnected());
}

#endif
