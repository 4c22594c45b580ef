// send, signal, monitor, watch on a device of the test's own.
#include <chrono>
#include <regex>
#include <thread>

#include "ToolHarness.h"

namespace tooltest {
namespace {

using ::testing::HasSubstr;

TEST_F(ToolTest, BusCommands) {
    auto& dev = device();

    // monitor: every report once, in arrival order, with the frame's own
    // identifier and format and microseconds; its requests are taken off the
    // device when it ends.
    const std::string log = file("bus.log");
    Process monitor(tool(onDevice({"monitor", "0:123", "can2:1ABCDEF0", "-n", "6", "--log", log, "-v"})));
    ASSERT_TRUE(eventually([&] { return dev.requestCount() == 2; }));
    for (uint8_t n = 0; n < 3; ++n) {
        dev.injectFrame({0, 0x123, 0, {0x11, n}});
        dev.injectFrame({1, 0x123, 0, {0xEE}}); // another channel: not requested
        dev.injectFrame({2, 0x1ABCDEF0, 0, {0xAA, 0xBB, 0xCC, n, 0, 0, 0, 0, 1, 2, 3, 4}});
    }
    ProcessResult monitored = monitor.finish();
    expectSuccess(monitored);
    auto out = lines(monitored.out);
    ASSERT_EQ(6u, out.size()) << monitored.out;
    for (std::size_t i = 0; i < out.size(); ++i) {
        const std::string n = "0" + std::to_string(i / 2);
        const std::string expected = i % 2 == 0 ? "can0 123#11" + n : "can2 1ABCDEF0##0AABBCC" + n + "0000000001020304";
        EXPECT_TRUE(std::regex_match(out[i], std::regex(R"(\([0-9]+\.[0-9]{6}\) )" + expected))) << out[i];
    }
    EXPECT_EQ(monitored.out, readFile(log));
    EXPECT_EQ(0u, dev.requestCount());
    EXPECT_THAT(monitored.err, HasSubstr("; 6 reports, 0 dropped, 0 on unknown channels;")) << "-v: statistics on exit";

    // Two requests the device could not tell apart: refused before anything is requested.
    ProcessResult alike = runOnDevice({"monitor", "0:123", "0:18DA0123", "-n", "1"});
    EXPECT_EQ(1, alike.exitCode);
    EXPECT_THAT(alike.err, HasSubstr("RequestReport can0 18DA0123 failed: -31: "));
    EXPECT_EQ(0u, dev.requestCount());

    Process endless(tool(onDevice({"monitor", "0:123"})));
    ASSERT_TRUE(eventually([&] { return dev.requestCount() == 1; }));
    endless.signal(SIGINT);
    expectSuccess(endless.finish());
    EXPECT_EQ(0u, dev.requestCount());

    // send: ADD_MESSAGE with channel, identifier, DLC and period, then ENABLE_MESSAGE.
    ProcessResult sent = runOnDevice({"send", "can1", "18FEF100#0102030405060708", "--period", "25"});
    expectSuccess(sent);
    EXPECT_EQ("handler: 1\n", sent.out);
    auto packets = dev.hostPackets();
    ASSERT_GE(packets.size(), 3u);
    const auto& add = packets[packets.size() - 2].payload;
    ASSERT_EQ(25u, add.size());
    EXPECT_EQ((tarvelsim::Bytes{1, 0x00, 0xF1, 0xFE, 0x98, 8, 0, 25}),
              (tarvelsim::Bytes{add[0], add[2], add[3], add[4], add[5], add[9], add[12], add[13]}));
    EXPECT_EQ(0x03, packets.back().command);

    // signal on a message found by CHANNEL:ID, then watched back from the bus.
    ProcessResult second = runOnDevice({"send", "0", "123#0000000000000000", "--period", "10"});
    expectSuccess(second);
    EXPECT_EQ("handler: 2\n", second.out);
    ProcessResult signal = runOnDevice({"signal", "0:123", "8:15", "42", "43", "--interval", "0"});
    expectSuccess(signal);
    EXPECT_EQ("signal: handler 1 in message 2, bits 8:15\nsignal: value 42\nsignal: value 43\n", signal.out);
    ProcessResult watch = runOnDevice({"watch", "0:123", "8:15", "-n", "2"});
    expectSuccess(watch);
    auto values = lines(watch.out);
    ASSERT_EQ(2u, values.size()) << watch.out;
    for (const auto& line : values)
        EXPECT_TRUE(std::regex_match(line, std::regex(R"(\([0-9]+\.[0-9]{6}\) can0 123 8:15 = 43 \(0x2B\))"))) << line;
    EXPECT_EQ(0u, dev.requestCount());

    ProcessResult unknown = runOnDevice({"signal", "0:456", "0:7", "1"});
    EXPECT_EQ(1, unknown.exitCode);
    EXPECT_THAT(unknown.err, HasSubstr("tarvel: GetHandler can0 456 failed: -21: "));
}

} // namespace
} // namespace tooltest
