// The terminal the device serves: host connections, hang-up, the port mode.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <thread>

#include "SimFixture.h"

using namespace simtest;

class SimTerminal : public SimFixture {};

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
    auto a = next.exchange(5, cmd::PING);
    ASSERT_TRUE(a);
    EXPECT_EQ(5, a->id);
    EXPECT_EQ(0, okValue(a));
    EXPECT_TRUE(sim->hostConnected());
}

TEST_F(SimTerminal, HangUpIsSeenByTheHost) {
    EXPECT_EQ(0, status(cmd::PING));
    sim->hangUp();
    pollfd p{line->fd(), POLLIN, 0};
    ASSERT_EQ(1, ::poll(&p, 1, 5000));
    EXPECT_TRUE(p.revents & (POLLHUP | POLLERR)) << p.revents;
    uint8_t b;
    EXPECT_LE(::read(line->fd(), &b, 1), 0);
    sim->stop();
}

TEST(SimLifecycle, StartStopAndLink) {
    const auto link = std::filesystem::temp_directory_path() / ("tarvelsim-link-" + std::to_string(::getpid()));
    Options o;
    o.link = link.string();
    Simulator sim(o);
    ASSERT_TRUE(sim.start()) << sim.lastError();
    EXPECT_FALSE(sim.start());
    EXPECT_FALSE(sim.lastError().empty());
    EXPECT_EQ(sim.portPath(), std::filesystem::read_symlink(link).string());
    {
        HostLine line(link.string());
        EXPECT_EQ(0, okValue(line.exchange(5, cmd::PING)));
    }
    sim.stop();
    sim.stop();
    EXPECT_FALSE(std::filesystem::is_symlink(link));

    ASSERT_TRUE(sim.start()) << sim.lastError(); // a stopped device starts again
    HostLine line(sim.portPath());
    EXPECT_EQ(0, okValue(line.exchange(6, cmd::PING)));
}

TEST(SimPort, ServesAGivenSerialDevice) {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(0, ::grantpt(master));
    ASSERT_EQ(0, ::unlockpt(master));
    Options o;
    o.port = ::ptsname(master);
    Simulator sim(o);
    ASSERT_TRUE(sim.start()) << sim.lastError();
    EXPECT_EQ(o.port, sim.portPath());
    HostLine host(master);
    EXPECT_EQ(0, okValue(host.exchange(7, cmd::PING)));
    EXPECT_TRUE(sim.hostConnected());
    sim.stop();

    Options missing;
    missing.port = "/nonexistent/tty";
    Simulator absent(missing);
    EXPECT_FALSE(absent.start());
    EXPECT_NE(std::string::npos, absent.lastError().find("/nonexistent/tty"));
}

#endif
