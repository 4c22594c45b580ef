// ping, version, time, reset, reboot, bootloader; connection failures.
#include <regex>

#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

bool matches(const std::string& text, const char* pattern) {
    return std::regex_match(text, std::regex(pattern));
}

TEST_F(ToolTest, DeviceCommands) {
    const std::pair<std::vector<std::string>, const char*> builtIn[] = {
        {{"ping", "-c", "2"}, "ping: seq=1 status=0 time=[0-9.]+ ms\nping: seq=2 status=0 time=[0-9.]+ ms\n"},
        {{"version"}, "version: 100\n"},
        {{"time"}, "time: [0-9]+\n"},
        {{"reset"}, "reset: done\n"},
        {{"reboot", "--wait", "5000"}, "reboot: device answers again after [0-9]+ ms\n"},
        {{"bootloader"}, "bootloader: device restarted into its bootloader\n"},
    };
    for (const auto& [args, pattern] : builtIn) {
        SCOPED_TRACE(args[0]);
        ToolResult r = runTool(args);
        expectSuccess(r);
        EXPECT_TRUE(matches(r.out, pattern)) << r.out;
        EXPECT_THAT(r.err, HasSubstr("using the built-in simulated device (/dev/pts/"));
    }

    // A device of the test's own: the command reaches it, and the trace.
    auto& dev = device();
    const std::string trace = file("trace.txt");
    ToolResult set = runOnDevice({"--trace", trace, "time", "0x12345678"});
    expectSuccess(set);
    EXPECT_EQ("time: set to 305419896\n", set.out);
    EXPECT_GE(dev.clock(), 0x12345678u);
    EXPECT_THAT(set.err, Not(HasSubstr("simulated device"))); // a port was given
    // The version query, sent and answered: 02 05 20 03 ... is REBOOT mode 3 with id 5.
    auto text = lines(readFile(trace));
    ASSERT_GE(text.size(), 4u);
    EXPECT_TRUE(matches(text[0], "[0-9]+:>> 0x02 0x05 0x20 0x03 0x00 0x2A "));
    EXPECT_TRUE(matches(text[1], "[0-9]+:<< 0x03 0x05 0x80 .*"));

    tarvelsim::Options old;
    old.versionStatus = 0xFFFF;
    device(old);
    ToolResult version = runOnDevice({"version"});
    expectSuccess(version);
    EXPECT_EQ("version: 0\n", version.out);

    // Failures name the operation, the code and its meaning; exit status 1.
    ToolResult silentBuiltIn = runTool({"--sim-fault", "silent", "--read-timeout", "200", "ping"});
    EXPECT_EQ(1, silentBuiltIn.exitCode);
    EXPECT_THAT(silentBuiltIn.err, HasSubstr("failed: -314: the device did not answer the version query"));
    tarvelsim::Options silent;
    silent.faults.silent = true;
    device(silent);
    ToolResult silentPort = runTool(onDevice({"version"}, "200"));
    EXPECT_EQ(1, silentPort.exitCode);
    EXPECT_THAT(silentPort.err, HasSubstr("Connect to " + file("tty") + " failed: -314: "));
    EXPECT_EQ("", silentPort.out);
    ToolResult noPort = runTool({"--port", file("absent"), "ping"});
    EXPECT_EQ(1, noPort.exitCode);
    EXPECT_THAT(noPort.err, HasSubstr("failed: -2: cannot open the port"));
}

} // namespace
} // namespace tooltest
