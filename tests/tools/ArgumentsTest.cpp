// Help and argument errors: refused with a message naming the limit and the
// usage line, exit status 2, before the device hears anything.
#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(ToolTest, HelpAndBadArguments) {
    ProcessResult help = runTool({"--help"});
    expectSuccess(help);
    for (const char* usage : {"tarvel ping", "tarvel eeprom dump [OPTIONS] FILE", "tarvel send [OPTIONS] CHANNEL FRAME",
                              "tarvel watch [OPTIONS] TARGET BITS", "tarvel ports", "--read-timeout", "--trace"})
        EXPECT_THAT(help.out, HasSubstr(usage));
    EXPECT_THAT(help.out, Not(HasSubstr("--sim-fault"))); // for tests only
    EXPECT_THAT(help.out, Not(HasSubstr("COM3")));        // no Windows names on Linux
    ProcessResult sub = runTool({"eeprom", "dump", "--help"});
    expectSuccess(sub);
    EXPECT_THAT(sub.out, HasSubstr("Usage: tarvel eeprom dump"));
    EXPECT_THAT(sub.out, HasSubstr("--length"));

    struct Case {
        std::vector<std::string> args;
        std::string message; // the whole message, or (partial) a part of CLI11's own
        const char* usage;
        bool partial = false;
    };
    const Case cases[] = {
        // The command line itself.
        {{}, "A subcommand is required", "Usage: tarvel [OPTIONS] SUBCOMMAND", true},
        {{"blink"}, "unknown command 'blink'", "Usage: tarvel [OPTIONS] SUBCOMMAND"},
        {{"ping", "--bogus"}, "not expected: --bogus", "Usage: tarvel ping", true},
        // Numbers: one form of message for options and arguments alike.
        {{"ping", "-c", "abc"}, "--count: abc is not a whole number from 1 to 1000000", "Usage: tarvel ping"},
        {{"monitor", "0:123", "-d", "-1"},
         "--duration: -1 is not a number of seconds \u2265 0",
         "Usage: tarvel monitor"},
        {{"--read-timeout", "0", "ping"},
         "--read-timeout: 0 is not a whole number of milliseconds from 1 to 600000",
         "Usage: tarvel ping"},
        // Values against what they go into.
        {{"eeprom", "read", "0xFFFF", "2"},
         "the range 0xFFFF + 2 goes beyond the 16-bit address space",
         "Usage: tarvel eeprom read"},
        {{"eeprom", "write", "29", "01"},
         "addresses below 30 (0x1E) are protected; write from 30 on",
         "Usage: tarvel eeprom write"},
        {{"send", "4", "123#00"}, "channel: expected 0..3 or can0..can3, got '4'", "Usage: tarvel send"},
        {{"send", "0", "123#000102030405060708"},
         "frame data: 9 bytes is no CAN FD length (0..8, 12, 16, 20, 24, 32, 48, 64)",
         "Usage: tarvel send"},
        {{"send", "0", "800#00"},
         "identifier 800: a standard identifier is at most 7FF; write 00000800 for an extended one",
         "Usage: tarvel send"},
        {{"signal", "1", "7:3", "1"}, "BITS 7:3: the start bit comes after the stop bit", "Usage: tarvel signal"},
        {{"signal", "1", "0:16", "1"}, "BITS 0:16: 17 bits wide, longer than 16 bits", "Usage: tarvel signal"},
        {{"signal", "0:123", "0:7", "300"},
         "VALUE: 300 is not a value of 8 bits from 0 to 255",
         "Usage: tarvel signal"},
        {{"--trace", file("no/such/dir/trace.txt"), "ping"},
         "--trace: cannot write the file '" + file("no/such/dir/trace.txt") + "'",
         "Usage: tarvel ping"},
        {{"demo"},
         "demo runs on the built-in simulated device only (it writes the EEPROM); drop --port",
         "Usage: tarvel demo"},
    };
    auto& dev = device();
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        std::vector<std::string> args = c.args;
        args.insert(args.begin(), {"--port", file("tty")});
        ProcessResult r = runTool(args);
        EXPECT_EQ(2, r.exitCode) << r.err;
        auto err = lines(r.err);
        ASSERT_GE(err.size(), 3u) << r.err;
        if (c.partial)
            EXPECT_THAT(err[0], HasSubstr(c.message));
        else
            EXPECT_EQ("tarvel: error: " + c.message, err[0]);
        EXPECT_THAT(err[1], HasSubstr(c.usage));
        EXPECT_EQ("", r.out);
        EXPECT_EQ(0u, dev.hostPacketCount()) << "the device heard a command";
    }
}

} // namespace
} // namespace tooltest
