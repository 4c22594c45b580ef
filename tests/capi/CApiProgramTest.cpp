// Runs C programs built against the shared library (the end-to-end C test and
// the C example) with a simulated device on the other end of the line.
#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "tarvelsim/Simulator.h"

extern char** environ;

namespace {

// The frame capi_end_to_end.c waits for (keep the two in step).
tarvelsim::BusFrame reportedFrame() {
    tarvelsim::BusFrame frame;
    frame.channel = 0;
    frame.id = 0x123;
    frame.flags = 0x80;
    frame.data = {0x10, 0x21, 0x32, 0x43, 0x54, 0x65, 0x76, 0x87, 0x98, 0xA9, 0xBA, 0xCB};
    return frame;
}

// Runs the program to its end while the bus carries the frame every 20 ms;
// returns its wait status, or -1 when it could not be started.
int runWithDevice(tarvelsim::Simulator& sim, std::vector<std::string> args) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(90);
    int status = 0;
    for (;;) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return status;
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            ADD_FAILURE() << args[0] << " did not finish within 90 s";
            return status;
        }
        sim.injectFrame(reportedFrame());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::string tempPath(const char* name) {
    return ::testing::TempDir() + name + std::to_string(getpid()) + ".txt";
}

} // namespace

TEST(CApiProgram, CCallerDrivesASessionEndToEnd) {
    tarvelsim::Simulator sim;
    ASSERT_TRUE(sim.start()) << sim.lastError();
    const std::string trace = tempPath("capi_trace_");
    const int status = runWithDevice(sim, {TARVEL_CAPI_PROGRAM, sim.portPath(), trace});
    ASSERT_NE(-1, status) << "cannot start " << TARVEL_CAPI_PROGRAM;
    ASSERT_TRUE(WIFEXITED(status)) << "terminated by signal " << WTERMSIG(status);
    EXPECT_EQ(0, WEXITSTATUS(status)) << "see the program's messages above";
    unlink(trace.c_str());
}

#ifdef TARVEL_EXAMPLE_BASIC_C
TEST(CApiProgram, CExampleRuns) {
    tarvelsim::Simulator sim;
    ASSERT_TRUE(sim.start()) << sim.lastError();
    const int status = runWithDevice(sim, {TARVEL_EXAMPLE_BASIC_C, sim.portPath()});
    ASSERT_TRUE(status != -1 && WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_GE(sim.messageCount(), 1u); // the example left its message on the device
}
#endif

#ifdef TARVEL_EXAMPLE_BASIC_CPP
TEST(CApiProgram, CppExampleRuns) {
    tarvelsim::Simulator sim;
    ASSERT_TRUE(sim.start()) << sim.lastError();
    const int status = runWithDevice(sim, {TARVEL_EXAMPLE_BASIC_CPP, sim.portPath()});
    ASSERT_TRUE(status != -1 && WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_GE(sim.messageCount(), 1u);
}
#endif

#ifdef TARVEL_EXAMPLE_RECEIVE_CPP
TEST(CApiProgram, ReceiveExampleReadsItsSignalBack) {
    tarvelsim::Simulator sim;
    ASSERT_TRUE(sim.start()) << sim.lastError();
    const int status = runWithDevice(sim, {TARVEL_EXAMPLE_RECEIVE_CPP, sim.portPath()});
    ASSERT_TRUE(status != -1 && WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status)); // exits 0 only when it read 1234 back
}
#endif
