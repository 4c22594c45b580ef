// Runs the programs built against the shared library (the end-to-end C test and
// the examples) with a simulated device on the other end of the line.
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

// Runs `program <port> extra...` to its end against a fresh simulated device,
// the bus carrying the frame every 20 ms, and expects exit status 0.
// Returns the number of messages the program left on the device.
std::size_t runWithDevice(const std::string& program, const std::vector<std::string>& extra = {}) {
    tarvelsim::Simulator sim;
    if (!sim.start()) {
        ADD_FAILURE() << sim.lastError();
        return 0;
    }
    std::vector<std::string> args = {program, sim.portPath()};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        ADD_FAILURE() << "cannot start " << program;
        return 0;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(90);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) != pid) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            ADD_FAILURE() << program << " did not finish within 90 s";
            return 0;
        }
        sim.injectFrame(reportedFrame());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << program << " failed (wait status " << status << "): see its messages above";
    return sim.messageCount();
}

} // namespace

TEST(CApiProgram, CCallerDrivesASessionEndToEnd) {
    const std::string trace = ::testing::TempDir() + "capi_trace_" + std::to_string(getpid()) + ".txt";
    runWithDevice(TARVEL_CAPI_PROGRAM, {trace});
    unlink(trace.c_str());
}

TEST(CApiProgram, ExamplesRun) {
    // Program, and whether it leaves a message on the device. Each exits 0 only
    // when its own checks held (the receive example reads its signal back).
    const std::vector<std::pair<const char*, bool>> examples = {
#ifdef TARVEL_EXAMPLE_BASIC_C
        {TARVEL_EXAMPLE_BASIC_C, true},
#endif
#ifdef TARVEL_EXAMPLE_BASIC_CPP
        {TARVEL_EXAMPLE_BASIC_CPP, true},
#endif
#ifdef TARVEL_EXAMPLE_RECEIVE_CPP
        {TARVEL_EXAMPLE_RECEIVE_CPP, false},
#endif
    };
    if (examples.empty()) GTEST_SKIP() << "no examples built";
    for (const auto& [program, leavesMessage] : examples) {
        const std::size_t messages = runWithDevice(program);
        EXPECT_TRUE(!leavesMessage || messages >= 1) << program << " left no message on the device";
    }
}
