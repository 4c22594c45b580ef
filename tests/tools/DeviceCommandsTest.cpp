// ping, version, time, reset, reboot, bootloader; connection failures.
#include <regex>

#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

bool matches(const std::string& text, const std::string& pattern) {
    return std::regex_match(text, std::regex(pattern));
}

TEST_F(ToolTest, DeviceCommands) {
    const std::pair<std::vector<std::string>, std::string> builtIn[] = {
        {{"version"}, "version: 100\n"},
        {{"time"}, "time: [0-9]+\n"},
    };
    for (const auto& [args, pattern] : builtIn) {
        SCOPED_TRACE(args[0]);
        ProcessResult r = runTool(args);
        expectSuccess(r);
        EXPECT_TRUE(matches(r.out, pattern)) << r.out;
        EXPECT_THAT(r.err, HasSubstr("using the built-in simulated device (/dev/pts/"));
    }

    // A device of the test's own: the command reaches it, and the trace.
    auto& dev = device();
    const std::string trace = file("trace.txt");
    ProcessResult set = runOnDevice({"--trace", trace, "time", "0x12345678"});
    expectSuccess(set);
    EXPECT_EQ("time: set to 305419896\n", set.out);
    EXPECT_GE(dev.clock(), 0x12345678u);
    EXPECT_THAT(set.err, Not(HasSubstr("simulated device"))); // a port was given
    // The version query, sent and answered: 02 05 20 03 ... is REBOOT mode 3 with id 5.
    auto text = lines(readFile(trace));
    ASSERT_GE(text.size(), 4u);
    EXPECT_TRUE(matches(text[0], "[0-9]+:>> 0x02 0x05 0x20 0x03 0x00 0x2A "));
    EXPECT_TRUE(matches(text[1], "[0-9]+:<< 0x03 0x05 0x80 .*"));

    // Failures name the operation, the port, the code and its meaning; exit status 1.
    ProcessResult silent = runTool({"--sim-fault", "silent", "--read-timeout", "200", "version"});
    EXPECT_EQ(1, silent.exitCode);
    EXPECT_THAT(silent.err, HasSubstr("Connect to /dev/pts/"));
    EXPECT_THAT(silent.err, HasSubstr(" failed: -314: the device did not answer the version query\n"));
    EXPECT_THAT(silent.err, HasSubstr("tarvel: the read time-out is 200 ms; --read-timeout MS changes it\n"));
    EXPECT_EQ("", silent.out);
}

// A restart returns when the device answers again, so that the next command
// finds it listening; the device is deaf for half a second after a restart.
TEST_F(ToolTest, RestartsWaitUntilTheDeviceAnswers) {
    tarvelsim::Options slow;
    slow.bootTimeMs = 500;
    device(slow);
    const std::pair<std::vector<std::string>, std::string> restarts[] = {
        {{"reset"}, "reset: device reset, answers again after ([0-9]+) ms\n"},
        {{"reboot", "--mode", "1"}, "reboot: device restarted, answers again after ([0-9]+) ms\n"},
        {{"bootloader"}, "bootloader: device restarted into its bootloader, answers again after ([0-9]+) ms\n"},
    };
    for (const auto& [args, pattern] : restarts) {
        SCOPED_TRACE(args[0]);
        ProcessResult restart = runOnDevice(args);
        expectSuccess(restart);
        std::smatch waited;
        ASSERT_TRUE(std::regex_match(restart.out, waited, std::regex(pattern))) << restart.out;
        EXPECT_GE(std::stoi(waited[1]), 500); // not before the device could answer
        expectSuccess(runOnDevice({"ping"}));
    }

    // --no-wait says that it did not wait; a device that stays deaf is a failure that says how to wait longer.
    tarvelsim::Options deaf;
    deaf.bootTimeMs = 60000;
    auto& dev = device(deaf);
    ProcessResult noWait = runOnDevice({"reset", "--no-wait"});
    expectSuccess(noWait);
    EXPECT_EQ("reset: device reset; not waiting for it to answer again\n", noWait.out);
    EXPECT_TRUE(dev.booting());
    device(deaf);
    ProcessResult tooShort = runOnDevice({"bootloader", "--wait", "300"});
    EXPECT_EQ(1, tooShort.exitCode);
    EXPECT_EQ("tarvel: bootloader: the device did not answer within 300 ms of the restart (--wait MS waits longer, "
              "--no-wait not at all)\n",
              tooShort.err);
}

// Ping goes on after a lost answer, says which time-out it waited for, and
// ends with a summary; lost answers make the exit status 1.
TEST_F(ToolTest, PingCountsLostAnswers) {
    tarvelsim::Options dropping;
    dropping.faults.dropEvery = 2;
    device(dropping);
    ProcessResult r = runTool(onDevice({"ping", "-c", "5"}, "200"));
    EXPECT_EQ(1, r.exitCode) << r.err;
    auto out = lines(r.out);
    ASSERT_EQ(6u, out.size()) << r.out;
    int lost = 0;
    for (int i = 0; i < 5; ++i) {
        const std::string seq = "ping: seq=" + std::to_string(i + 1) + " ";
        if (out[i] == seq + "no answer within 200 ms (the read time-out; --read-timeout MS changes it)")
            ++lost;
        else
            EXPECT_TRUE(matches(out[i], seq + "status=0 time=[0-9.]+ ms")) << out[i];
    }
    EXPECT_TRUE(lost == 2 || lost == 3) << r.out;
    EXPECT_TRUE(matches(out[5], "ping: 5 sent, " + std::to_string(5 - lost) + " answered, " + std::to_string(lost) +
                                    " lost; time min/avg/max [0-9.]+/[0-9.]+/[0-9.]+ ms"))
        << out[5];
}

} // namespace
} // namespace tooltest
