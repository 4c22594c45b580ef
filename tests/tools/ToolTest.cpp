// The tarvel tool as a user runs it: the executable, its output and exit codes.
#ifndef _WIN32 // runs the tool and the simulator, both POSIX only

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tarvelsim/Simulator.h"

// Set by the build to the tool that is tested; empty when it is not built.
#ifndef TARVEL_TOOL_PATH
#define TARVEL_TOOL_PATH ""
#endif

extern char** environ;

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using Clock = std::chrono::steady_clock;

bool waitFor(const std::function<bool()>& condition, int timeoutMs = 5000) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

struct ToolResult {
    int exitCode = -1; // -1: killed by a signal or did not end
    std::string out, err;
};

// A running tarvel, its output gathered in memory files (no terminal, so no
// colours or progress bars); the destructor kills it if it still runs.
class ToolProcess {
public:
    explicit ToolProcess(std::vector<std::string> args) {
        args.insert(args.begin(), TARVEL_TOOL_PATH);
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, m_out, 1);
        posix_spawn_file_actions_adddup2(&actions, m_err, 2);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        // The child starts with default signal handling, whatever the test runner set.
        posix_spawnattr_t attr;
        posix_spawnattr_init(&attr);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attr, &none);
        posix_spawnattr_setsigdefault(&attr, &all);
        posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        if (::posix_spawn(&m_pid, argv[0], &actions, &attr, argv.data(), environ) != 0) m_pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attr);
        EXPECT_GT(m_pid, 0) << "cannot start " << args[0];
    }
    ~ToolProcess() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        ::close(m_out);
        ::close(m_err);
    }
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    bool waitForOutput(const std::string& text) {
        return waitFor([&] { return contents(m_out).find(text) != std::string::npos; });
    }
    bool running() {
        int status = 0;
        if (m_pid > 0 && ::waitpid(m_pid, &status, WNOHANG) == 0) return true;
        if (m_pid > 0) m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        m_pid = -1;
        return false;
    }
    void interrupt() { // as Ctrl-C
        if (m_pid > 0) ::kill(m_pid, SIGINT);
    }
    // Waits for the end (killing it after timeoutMs) and returns what it said.
    ToolResult finish(int timeoutMs = 20000) {
        if (!waitFor([this] { return !running(); }, timeoutMs)) ::kill(m_pid, SIGKILL); // reaped when destroyed
        return {m_exitCode, contents(m_out), contents(m_err)};
    }

private:
    static std::string contents(int fd) {
        std::string text;
        char buf[4096];
        for (ssize_t n; (n = ::pread(fd, buf, sizeof buf, off_t(text.size()))) > 0;)
            text.append(buf, std::size_t(n));
        return text;
    }
    int m_out = ::memfd_create("stdout", MFD_CLOEXEC), m_err = ::memfd_create("stderr", MFD_CLOEXEC);
    pid_t m_pid = -1;
    int m_exitCode = -1;
};

ToolResult runTool(const std::vector<std::string>& args, int timeoutMs = 20000) {
    return ToolProcess(args).finish(timeoutMs);
}

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::string(TARVEL_TOOL_PATH).empty()) GTEST_SKIP() << "the tarvel tool is not built";
        char pattern[] = "/tmp/tarvel-tool-test-XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(pattern));
        m_dir = pattern;
    }
    void TearDown() override {
        sim.reset();
        if (!m_dir.empty()) std::filesystem::remove_all(m_dir);
    }
    // The test's own directory for links, EEPROM images and output files.
    std::string file(const std::string& name) const { return m_dir + "/" + name; }

    // A simulated device of the test's own, reachable through a link.
    tarvelsim::Simulator& device(tarvelsim::Options options = {}) {
        options.link = file("tty");
        sim.reset();
        sim = std::make_unique<tarvelsim::Simulator>(options);
        EXPECT_TRUE(sim->start()) << sim->lastError();
        return *sim;
    }
    std::vector<std::string> onDevice(std::vector<std::string> args, const char* readTimeout = "1000") {
        args.insert(args.begin(), {"--port", file("tty"), "--read-timeout", readTimeout});
        return args;
    }
    ToolResult runOnDevice(const std::vector<std::string>& args) { return runTool(onDevice(args)); }
    static void expectSuccess(const ToolResult& r) {
        EXPECT_EQ(0, r.exitCode) << "stdout:\n" << r.out << "stderr:\n" << r.err;
    }

    std::unique_ptr<tarvelsim::Simulator> sim;

private:
    std::string m_dir;
};

// --- help and arguments -------------------------------------------------------------

TEST_F(ToolTest, HelpDescribesEveryCommand) {
    ToolResult r = runTool({"--help"});
    expectSuccess(r);
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
        EXPECT_THAT(r.out, HasSubstr(usage));
    EXPECT_THAT(r.out, Not(HasSubstr("--sim-fault"))); // for tests only

    ToolResult sub = runTool({"eeprom", "dump", "--help"});
    expectSuccess(sub);
    EXPECT_THAT(sub.out, HasSubstr("Usage: tarvel eeprom dump"));
    EXPECT_THAT(sub.out, HasSubstr("--length"));
}

TEST_F(ToolTest, BadArgumentsGetMessageAndUsageLine) {
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

// --- device commands ----------------------------------------------------------------

TEST_F(ToolTest, DeviceCommandsOnTheBuiltInDevice) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"ping", "-c", "2"}, "ping: seq=1 status=0 time=[0-9.]+ ms\nping: seq=2 status=0 time=[0-9.]+ ms\n"},
        {{"version"}, "version: 100\n"},
        {{"time"}, "time: [0-9]+\n"},
        {{"time", "4096"}, "time: set to 4096\n"},
        {{"reset"}, "reset: done\n"},
        {{"reboot", "--wait", "5000"}, "reboot: device answers again after [0-9]+ ms\n"},
        {{"bootloader"}, "bootloader: device restarted into its bootloader\n"},
    };
    for (const auto& [args, pattern] : cases) {
        SCOPED_TRACE(args[0]);
        ToolResult r = runTool(args);
        expectSuccess(r);
        EXPECT_TRUE(std::regex_match(r.out, std::regex(pattern))) << r.out;
        EXPECT_THAT(r.err, HasSubstr("using the built-in simulated device (/dev/pts/"));
    }
}

TEST_F(ToolTest, DeviceCommandsReachTheDeviceAndTheTrace) {
    auto& dev = device();
    const std::string trace = file("trace.txt");
    ToolResult set = runOnDevice({"--trace", trace, "time", "0x12345678"});
    expectSuccess(set);
    EXPECT_GE(dev.clock(), 0x12345678u);
    EXPECT_THAT(set.err, Not(HasSubstr("simulated device"))); // a port was given
    // The version query, sent and answered: 02 05 20 03 ... is REBOOT mode 3 with id 5.
    auto text = lines(readFile(trace));
    ASSERT_GE(text.size(), 4u);
    EXPECT_TRUE(std::regex_match(text[0], std::regex("[0-9]+:>> 0x02 0x05 0x20 0x03 0x00 0x2A ")));
    EXPECT_TRUE(std::regex_match(text[1], std::regex("[0-9]+:<< 0x03 0x05 0x80 .*")));

    tarvelsim::Options old;
    old.versionStatus = 0xFFFF;
    device(old);
    ToolResult version = runOnDevice({"version"});
    expectSuccess(version);
    EXPECT_EQ("version: 0\n", version.out);
}

TEST_F(ToolTest, DeviceThatDoesNotAnswer) {
    ToolResult builtIn = runTool({"--sim-fault", "silent", "--read-timeout", "200", "ping"});
    EXPECT_EQ(1, builtIn.exitCode);
    EXPECT_THAT(builtIn.err, HasSubstr("failed: -314: the device did not answer the version query"));

    tarvelsim::Options silent;
    silent.faults.silent = true;
    device(silent);
    ToolResult port = runTool(onDevice({"version"}, "200"));
    EXPECT_EQ(1, port.exitCode);
    EXPECT_THAT(port.err, HasSubstr("Connect to " + file("tty") + " failed: -314: "));
    EXPECT_EQ("", port.out);
}

TEST_F(ToolTest, FailuresNameOperationAndCode) {
    ToolResult noPort = runTool({"--port", file("absent"), "ping"});
    EXPECT_EQ(1, noPort.exitCode);
    EXPECT_THAT(noPort.err, HasSubstr("failed: -2: cannot open the port"));

    device();
    ToolResult unknown = runOnDevice({"signal", "0:456", "0:7", "1"});
    EXPECT_EQ(1, unknown.exitCode);
    EXPECT_THAT(unknown.err, HasSubstr("tarvel: GetHandler can0 456 failed: -21: "));

    tarvelsim::Options failing;
    failing.faults.failCommand = 0x26; // READ_EEPROM answered COMMAND_FAILED
    device(failing);
    ToolResult r = runOnDevice({"eeprom", "read", "0x40", "4"});
    EXPECT_EQ(1, r.exitCode);
    EXPECT_THAT(r.err, HasSubstr("tarvel: ReadEeprom at 0x0040 (4 bytes) failed: -14: no valid answer from the device\n"
                                 "tarvel: the library reported: TarvelAPI::GetResponse: COMMAND_FAILED!"));
}

TEST_F(ToolTest, EepromCommands) {
    std::string image(65536, '\0'); // a known pattern in the device's EEPROM
    for (std::size_t i = 0; i < image.size(); ++i)
        image[i] = static_cast<char>(i * 7 + (i >> 8));
    std::ofstream(file("eeprom.bin"), std::ios::binary) << image;
    tarvelsim::Options o;
    o.eepromFile = file("eeprom.bin");
    auto& dev = device(o);

    ToolResult read = runOnDevice({"eeprom", "read", "0x20", "20"}); // sixteen bytes a line
    expectSuccess(read);
    auto out = lines(read.out);
    ASSERT_EQ(2u, out.size()) << read.out;
    EXPECT_EQ("0020: E0 E7 EE F5 FC 03 0A 11 18 1F 26 2D 34 3B 42 49", out[0]);
    EXPECT_EQ("0030: 50 57 5E 65", out[1]);

    ToolResult dump = runOnDevice({"eeprom", "dump", file("dump.bin"), "--from", "0xFFC0", "--length", "64"});
    expectSuccess(dump);
    EXPECT_EQ(image.substr(0xFFC0, 64), readFile(file("dump.bin"))); // the last byte of the address space included
    EXPECT_THAT(dump.err, Not(HasSubstr("[")));                      // no progress bar when stderr is no terminal

    std::string data;
    for (int i = 0; i < 40; ++i)
        data.push_back(static_cast<char>(0xA0 + i)); // 16 + 16 + 8
    std::ofstream(file("in.bin"), std::ios::binary) << data;
    expectSuccess(runOnDevice({"eeprom", "load", file("in.bin"), "--at", "0x200"}));
    EXPECT_EQ(std::vector<uint8_t>(data.begin(), data.end()), dev.eeprom(0x200, 40));
    EXPECT_EQ(static_cast<uint8_t>(image[0x228]), dev.eeprom(0x228, 1)[0]); // nothing beyond

    ToolResult write = runOnDevice({"eeprom", "write", "30", "01", "02:03", "0405"});
    expectSuccess(write);
    EXPECT_EQ("eeprom: wrote 5 bytes at 0x001E\n", write.out);
    EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5}), dev.eeprom(30, 5));
}

// --- bus ----------------------------------------------------------------------------

TEST_F(ToolTest, SendAddsAndEnablesTheMessage) {
    auto& dev = device();
    ToolResult r = runOnDevice({"send", "can1", "18FEF100#0102030405060708", "--period", "25"});
    expectSuccess(r);
    EXPECT_EQ("handler: 1\n", r.out);
    EXPECT_EQ(1u, dev.messageCount());
    auto packets = dev.hostPackets(); // ..., ADD_MESSAGE, ENABLE_MESSAGE
    ASSERT_GE(packets.size(), 3u);
    const auto& add = packets[packets.size() - 2].payload;
    ASSERT_EQ(25u, add.size());
    // Channel, extended identifier, DLC, period.
    EXPECT_EQ((tarvelsim::Bytes{1, 0x00, 0xF1, 0xFE, 0x98, 8, 0, 25}),
              (tarvelsim::Bytes{add[0], add[2], add[3], add[4], add[5], add[9], add[12], add[13]}));
    EXPECT_EQ(0x03, packets.back().command);
}

TEST_F(ToolTest, MonitorPrintsEachReportAsCandumpLineAndEndsOnCountOrCtrlC) {
    auto& dev = device();
    const std::string log = file("bus.log");
    ToolProcess monitor(onDevice({"monitor", "0:123", "can2:1ABCDEF0", "-n", "4", "--log", log}));
    ASSERT_TRUE(waitFor([&] { return dev.requestCount() == 2; }));
    // Frames keep coming until the tool has its four lines (the device keeps
    // only the latest report per message, so not every frame is one line).
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    for (uint8_t n = 0; monitor.running() && Clock::now() < deadline; ++n) {
        dev.injectFrame({0, 0x123, 0, {0x11, n}});
        dev.injectFrame({2, 0x1ABCDEF0, 0, {0xAA, 0xBB, 0xCC, n, 0, 0, 0, 0, 1, 2, 3, 4}});
        dev.injectFrame({1, 0x123, 0, {0xEE}}); // another channel: not requested
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ToolResult r = monitor.finish();
    expectSuccess(r);
    auto out = lines(r.out);
    ASSERT_EQ(4u, out.size()) << r.out;
    std::regex classic(R"(\([0-9]+\.[0-9]{6}\) can0 123#11[0-9A-F]{2})");
    std::regex fd(R"(\([0-9]+\.[0-9]{6}\) can2 1ABCDEF0##0AABBCC[0-9A-F]{2}0000000001020304)");
    for (const auto& line : out)
        EXPECT_TRUE(std::regex_match(line, classic) || std::regex_match(line, fd)) << line;
    EXPECT_EQ(r.out, readFile(log));
    EXPECT_EQ(0u, dev.requestCount()); // the tool took its requests off the device

    ToolProcess endless(onDevice({"monitor", "0:123"}));
    ASSERT_TRUE(waitFor([&] { return dev.requestCount() == 1; }));
    endless.interrupt();
    expectSuccess(endless.finish());
    EXPECT_EQ(0u, dev.requestCount());
}

TEST_F(ToolTest, SignalOnSentMessageIsWatchedBack) {
    auto& dev = device();
    expectSuccess(runOnDevice({"send", "0", "123#0000000000000000", "--period", "10"}));
    ToolResult signal = runOnDevice({"signal", "0:123", "8:15", "42", "43", "--interval", "0"});
    expectSuccess(signal);
    EXPECT_EQ("signal: handler 1 in message 1, bits 8:15\nsignal: value 42\nsignal: value 43\n", signal.out);

    ToolResult watch = runOnDevice({"watch", "0:123", "8:15", "-n", "2"});
    expectSuccess(watch);
    auto out = lines(watch.out);
    ASSERT_EQ(2u, out.size()) << watch.out;
    for (const auto& line : out)
        EXPECT_TRUE(std::regex_match(line, std::regex(R"(\([0-9.]+\) can0 123 8:15 = 43 \(0x2B\) age [0-9]+ ms)")))
            << line;
    EXPECT_EQ(0u, dev.requestCount());
}

// --- standalone device and demo -----------------------------------------------------

TEST_F(ToolTest, SimServesOtherToolsUntilCtrlC) {
    const std::string link = file("sim-tty");
    ToolProcess standalone({"sim", "--link", link});
    ASSERT_TRUE(standalone.waitForOutput("Linked as " + link + "\n"));
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
    ToolResult r = runTool({"demo"}, 60000);
    expectSuccess(r);
    for (const char* text : {"1. Connect", "GetVersion() -> 100", "Device clock", "The same 16 bytes came back.",
                             "alive counter", "A request for the same identifier", "can0 123#", "read back live",
                             "The communication trace", ":>> 0x02 0x05 0x20 0x03", "Done"})
        EXPECT_THAT(r.out, HasSubstr(text));
    EXPECT_EQ(std::string::npos, r.out.find('\033')) << "colour only on a terminal";
}

} // namespace

#endif
