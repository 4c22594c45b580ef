// The terminal the device serves: host connections, hang-up, the port mode.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <sys/ioctl.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

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
    const int fd = ::open(sim->portPath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(fd, 0) << std::strerror(errno);
    HostLine next(fd);
    int exclusive = 1;
    ASSERT_EQ(0, ::ioctl(fd, TIOCGEXCL, &exclusive));
    EXPECT_EQ(0, exclusive);
    ASSERT_EQ(0, ::tcgetattr(fd, &t));
    EXPECT_EQ(0u, t.c_lflag & (ICANON | ECHO));
    // The old half frame is gone: a whole ping is answered.
    const Answer a = next.exchange(5, cmd::PING);
    EXPECT_EQ(5, a.id);
    EXPECT_EQ(0, okValue(a));
    EXPECT_TRUE(sim->hostConnected());
}

TEST_F(SimTerminal, HangUpIsSeenByTheHostAndAStoppedDeviceStartsAgain) {
    EXPECT_EQ(0, status(cmd::PING));
    sim->hangUp();
    pollfd p{line->fd(), POLLIN, 0};
    ASSERT_EQ(1, ::poll(&p, 1, 5000));
    EXPECT_TRUE(p.revents & (POLLHUP | POLLERR)) << p.revents;
    uint8_t b;
    EXPECT_LE(::read(line->fd(), &b, 1), 0);

    sim->stop();
    sim->stop();
    ASSERT_TRUE(sim->start()) << sim->lastError();
    EXPECT_FALSE(sim->start());
    EXPECT_FALSE(sim->lastError().empty());
    EXPECT_EQ(0, okValue(HostLine(sim->portPath()).exchange(6, cmd::PING)));
}

TEST(SimPort, ServesAGivenSerialDevice) {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(0, ::grantpt(master));
    ASSERT_EQ(0, ::unlockpt(master));
    HostLine host(master);
    Options o;
    o.port = ::ptsname(master);
    Simulator sim(o);
    ASSERT_TRUE(sim.start()) << sim.lastError();
    EXPECT_EQ(o.port, sim.portPath());
    EXPECT_EQ(0, okValue(host.exchange(7, cmd::PING)));
    EXPECT_TRUE(sim.hostConnected());

    o.port = "/nonexistent/tty";
    Simulator absent(o);
    EXPECT_FALSE(absent.start());
    EXPECT_NE(std::string::npos, absent.lastError().find(o.port));
}

TEST(SimLink, BelongsToOneRunningSimulator) {
    char pattern[] = "/tmp/tarvel-sim-link-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(pattern));
    const std::string dir = pattern;
    Options o;
    o.link = dir + "/tty";
    const auto pointsAt = [&] { return std::filesystem::read_symlink(o.link).string(); };

    Simulator first(o), second(o);
    ASSERT_TRUE(first.start()) << first.lastError();
    EXPECT_FALSE(second.start());
    EXPECT_NE(std::string::npos, second.lastError().find(o.link + " is the link of a running simulator"))
        << second.lastError();
    EXPECT_EQ(first.portPath(), pointsAt());

    // Pointed elsewhere meanwhile, the link is no longer the simulator's to remove.
    ASSERT_EQ(0, ::unlink(o.link.c_str()));
    ASSERT_EQ(0, ::symlink("/dev/null", o.link.c_str()));
    first.stop();
    EXPECT_EQ("/dev/null", pointsAt());
    // A link nobody runs behind is replaced.
    ASSERT_TRUE(second.start()) << second.lastError();
    EXPECT_EQ(second.portPath(), pointsAt());
    second.stop();
    EXPECT_FALSE(std::filesystem::is_symlink(o.link));
    std::filesystem::remove_all(dir);
}

#endif
