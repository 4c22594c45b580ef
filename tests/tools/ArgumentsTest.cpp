// Help and argument errors: refused with a message and the usage line before
// any device is started or port opened.
#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(ToolTest, HelpAndBadArguments) {
    ToolResult help = runTool({"--help"});
    expectSuccess(help);
    for (const char* usage : {"tarvel ping",
                              "tarvel version",
                              "tarvel time [OPTIONS] [VALUE]",
                              "tarvel reset",
                              "tarvel reboot",
                              "tarvel bootloader",
                              "tarvel eeprom read [OPTIONS] ADDR LEN",
                              "tarvel eeprom write [OPTIONS] ADDR HEX...",
                              "tarvel eeprom dump [OPTIONS] FILE",
                              "tarvel eeprom load [OPTIONS] FILE",
                              "tarvel send [OPTIONS] CHANNEL FRAME",
                              "tarvel monitor [OPTIONS] TARGET...",
                              "tarvel signal [OPTIONS] MESSAGE BITS VALUE...",
                              "tarvel watch [OPTIONS] TARGET BITS",
                              "tarvel demo",
                              "tarvel sim",
                              "--port",
                              "--read-timeout",
                              "--write-timeout",
                              "--trace",
                              "--verbose"})
        EXPECT_THAT(help.out, HasSubstr(usage));
    EXPECT_THAT(help.out, Not(HasSubstr("--sim-fault"))); // for tests only
    ToolResult sub = runTool({"eeprom", "dump", "--help"});
    expectSuccess(sub);
    EXPECT_THAT(sub.out, HasSubstr("Usage: tarvel eeprom dump"));
    EXPECT_THAT(sub.out, HasSubstr("--length"));

    struct Case {
        std::vector<std::string> args;
        const char* message;
        const char* usage;
    };
    const Case cases[] = {
        {{}, "A subcommand is required", "Usage: tarvel [OPTIONS] SUBCOMMAND"},
        {{"eeprom"}, "A subcommand is required", "Usage: tarvel eeprom"},
        {{"blink"}, "unknown command 'blink'", "Usage: tarvel [OPTIONS] SUBCOMMAND"},
        {{"eeprom", "erase", "0"}, "unknown command 'erase'", "Usage: tarvel eeprom"},
        {{"ping", "--bogus"}, "not expected: --bogus", "Usage: tarvel ping"},
        {{"eeprom", "read", "0x20"}, "LEN is required", "Usage: tarvel eeprom read"},
        {{"eeprom", "read", "0x1x", "4"}, "ADDR: not a hexadecimal number", "Usage: tarvel eeprom read"},
        {{"eeprom", "read", "0xFFFF", "2"}, "beyond the 16-bit address space", "Usage: tarvel eeprom read"},
        {{"eeprom", "write", "29", "01"}, "protected", "Usage: tarvel eeprom write"},
        {{"eeprom", "write", "40", "0G"}, "HEX: not hex data", "Usage: tarvel eeprom write"},
        {{"eeprom", "load", file("missing.bin")}, "cannot read the file", "Usage: tarvel eeprom load"},
        {{"send", "4", "123#00"}, "expected 0..3 or can0..can3", "Usage: tarvel send"},
        {{"send", "0", "123"}, "expected ID#DATA", "Usage: tarvel send"},
        {{"send", "0", "123#001"}, "odd number of hex digits", "Usage: tarvel send"},
        {{"send", "0", "123#000102030405060708"}, "9 bytes is no CAN FD length", "Usage: tarvel send"},
        {{"send", "0", "20000000#00"}, "out of range", "Usage: tarvel send"},
        {{"send", "0", "123#00", "--period", "70000"}, "--period", "Usage: tarvel send"},
        {{"monitor", "0-123"}, "expected CHANNEL:ID", "Usage: tarvel monitor"},
        {{"signal", "1", "7:3", "1"}, "start bit comes after the stop bit", "Usage: tarvel signal"},
        {{"signal", "1", "0:16", "1"}, "longer than 16 bits", "Usage: tarvel signal"},
        {{"watch", "0:123", "0:64"}, "longer than 64 bits", "Usage: tarvel watch"},
        {{"time", "0x100000000"}, "out of range", "Usage: tarvel time"},
        {{"--trace", file("no/such/dir/trace.txt"), "ping"}, "--trace: cannot write", "Usage: tarvel ping"},
        {{"demo", "--port", "/dev/null"}, "built-in simulated device only", "Usage: tarvel demo"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        ToolResult r = runTool(c.args);
        EXPECT_EQ(2, r.exitCode) << r.err;
        EXPECT_THAT(r.err, HasSubstr("tarvel: error: "));
        EXPECT_THAT(r.err, HasSubstr(c.message));
        EXPECT_THAT(r.err, HasSubstr(c.usage));
        // Refused before a device was started or a port opened.
        EXPECT_THAT(r.err, Not(HasSubstr("simulated device (")));
        EXPECT_EQ("", r.out);
    }
}

} // namespace
} // namespace tooltest
