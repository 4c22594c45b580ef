// demo, the narrated tour on the built-in device (`tarvel sim` is tested
// with tarvel-sim in tests/sim/ProgramTest.cpp).
#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;

TEST_F(ToolTest, DemoSucceedsWithReadableOutput) {
    ProcessResult r = runTool({"demo"}, {}, "", 60000);
    expectSuccess(r);
    for (const char* text : {"1. Connect", "GetVersion() -> 100", "Device clock", "The same 16 bytes came back.",
                             "alive counter", "A request for the same identifier", "can0 123#", "read back live",
                             "The communication trace", ":>> 0x02 0x05 0x20 0x03", "Done"})
        EXPECT_THAT(r.out, HasSubstr(text));
    EXPECT_EQ(std::string::npos, r.out.find('\033')) << "colour only on a terminal";
}

} // namespace
} // namespace tooltest
