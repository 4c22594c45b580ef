// sim (a device that outlives the command) and demo (the narrated tour).
#include <unistd.h>

#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;

TEST_F(ToolTest, SimServesOtherToolsUntilCtrlC) {
    const std::string link = file("sim-tty");
    ToolProcess standalone({"sim", "--link", link});
    ASSERT_TRUE(waitUntil([&] { return standalone.out().find("Linked as " + link + "\n") != std::string::npos; }));
    ToolResult version = runTool({"--port", link, "version"});
    expectSuccess(version);
    EXPECT_EQ("version: 100\n", version.out);

    standalone.interrupt();
    ToolResult r = standalone.finish();
    expectSuccess(r);
    EXPECT_EQ(0u, r.out.find("Simulated device ready on /dev/pts/")) << r.out;
    EXPECT_NE(0, ::access(link.c_str(), F_OK)) << "the link outlived the device";
}

TEST_F(ToolTest, DemoSucceedsWithReadableOutput) {
    ToolResult r = runTool({"demo"}, {}, "", 60000);
    expectSuccess(r);
    for (const char* text : {"1. Connect", "GetVersion() -> 100", "Device clock", "The same 16 bytes came back.",
                             "alive counter", "A request for the same identifier", "can0 123#", "read back live",
                             "The communication trace", ":>> 0x02 0x05 0x20 0x03", "Done"})
        EXPECT_THAT(r.out, HasSubstr(text));
    EXPECT_EQ(std::string::npos, r.out.find('\033')) << "colour only on a terminal";
}

} // namespace
} // namespace tooltest
