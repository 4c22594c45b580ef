// Runs the programs built against the shared library (the end-to-end C test and
// the examples) with a simulated device on the other end of the line.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include "Process.h"
#include "tarvelsim/Simulator.h"

namespace {

// Runs `program <port> extra...` to its end against a fresh simulated device,
// the bus carrying the frame capi_end_to_end.c waits for (keep the two in
// step) every 20 ms, and expects exit status 0. Returns the number of
// messages the program left on the device.
std::size_t runWithDevice(const std::string& program, const std::vector<std::string>& extra = {}) {
    tarvelsim::Simulator sim;
    if (!sim.start()) {
        ADD_FAILURE() << sim.lastError();
        return 0;
    }
    std::vector<std::string> args = {program, sim.portPath()};
    args.insert(args.end(), extra.begin(), extra.end());
    Process run(args);
    const tarvelsim::BusFrame frame{
        0, 0x123, 0x80, {0x10, 0x21, 0x32, 0x43, 0x54, 0x65, 0x76, 0x87, 0x98, 0xA9, 0xBA, 0xCB}};
    for (int waited = 0; run.running() && waited < 90000; waited += 20) {
        sim.injectFrame(frame);
        usleep(20000);
    }
    const ProcessResult r = run.finish(0);
    EXPECT_EQ(0, r.exitCode) << program << " failed:\n" << r.err;
    return sim.messageCount();
}

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

} // namespace
