// tarvel-sim and `tarvel sim` as a user runs them: one set of options, the
// bus log in candump's format, links that are not taken over.
// The simulator needs pseudo-terminals: not built on Windows.
#ifndef _WIN32
#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>
#include <set>

#include "SimFixture.h"
#include "ToolHarness.h"

// Set by the build to tarvel-sim; empty when it is not built (tarvel itself:
// see ToolHarness.h).
#ifndef TARVEL_SIM_PATH
#define TARVEL_SIM_PATH ""
#endif

using namespace simtest;
using ::testing::HasSubstr;
using tooltest::tool;

namespace {

// Where a symbolic link points; empty when there is none.
std::string readLink(const std::string& path) {
    std::error_code e;
    return std::filesystem::read_symlink(path, e).string();
}

bool says(const Process& p, const std::string& text) {
    return eventually([&] { return p.out().find(text) != std::string::npos; });
}

// Three other nodes on the bus: a standard, an extended and a CAN FD frame
// (9 bytes, padded to 12), every 20 ms.
const std::vector<std::string> kInjections = {"--inject", "0:123#DEADBEEF@20",
                                              "--inject", "1:18FEF100#0102030405060708@20",
                                              "--inject", "3:7FF#000102030405060708@20"};
// The lines they make in candump's log format: the time, then the frame.
const std::regex kBusLine(
    R"(\((\d+\.\d{6})\) (can0 123#DEADBEEF|can1 18FEF100#0102030405060708|can3 7FF##0000102030405060708000000))");

// The tool's fixture: its own directory, and both programs built.
class SimProgram : public tooltest::ToolTest {
protected:
    void SetUp() override {
        if (!*TARVEL_SIM_PATH) GTEST_SKIP() << "tarvel-sim is not built";
        ToolTest::SetUp();
    }
};

TEST_F(SimProgram, BothProgramsTakeTheSameOptionsAndLogTheBus) {
    struct Case {
        std::vector<std::string> program;
        bool logOnStdout; // then the ready lines go to stderr
    };
    const Case cases[] = {{{TARVEL_SIM_PATH}, false}, {tool({"sim"}), true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.program.back());
        const std::string link = file("tty"), log = c.logOnStdout ? "-" : file("bus.log");
        std::vector<std::string> args = c.program;
        args.insert(args.end(), {"--link", link, "--bus-log", log, "--capacity", "8", "--hw-error"});
        args.insert(args.end(), kInjections.begin(), kInjections.end());
        Process program(args);
        const auto said = [&] { return c.logOnStdout ? program.err() : program.out(); };
        const auto logged = [&] { return c.logOnStdout ? program.out() : readFile(log); };
        ASSERT_TRUE(eventually([&] { return said().find("Linked as " + link + "\n") != std::string::npos; }))
            << program.err();
        ASSERT_TRUE(eventually([&] { return lines(logged()).size() >= 6; })) << logged();

        std::set<std::string> frames;
        for (const std::string& line : lines(logged())) {
            std::smatch m;
            ASSERT_TRUE(std::regex_match(line, m, kBusLine)) << line;
            EXPECT_LT(std::fabs(std::stod(m[1]) - double(std::time(nullptr))), 60.0) << "wall-clock time: " << line;
            frames.insert(m[2]);
        }
        EXPECT_EQ(3u, frames.size());
        program.signal(SIGINT);
        EXPECT_EQ(0, program.finish().exitCode) << program.err();
        EXPECT_EQ("", readLink(link));
    }
}

TEST_F(SimProgram, ALiveSimulatorKeepsItsLink) {
    const std::string link = file("tty");
    Process first({TARVEL_SIM_PATH, "--link", link});
    ASSERT_TRUE(says(first, "Linked as " + link + "\n")) << first.err();
    const std::string firstPath = servedPort(first);

    for (std::vector<std::string> args : {std::vector<std::string>{TARVEL_SIM_PATH}, tool({"sim"})}) {
        args.insert(args.end(), {"--link", link});
        const ProcessResult second = runProcess(args);
        EXPECT_EQ(1, second.exitCode) << args[0];
        EXPECT_THAT(second.err, HasSubstr(link + " is the link of a running simulator (process " +
                                          std::to_string(first.pid()) + ")"));
        EXPECT_EQ(firstPath, readLink(link));
    }
    EXPECT_EQ(0, okValue(HostLine(link).exchange(5, cmd::PING))) << "the first one is still reachable";

    // Killed, it leaves its link behind; the next simulator takes it over.
    first.signal(SIGKILL);
    first.finish();
    EXPECT_EQ(firstPath, readLink(link));
    Process next(tool({"sim", "--link", link}));
    ASSERT_TRUE(says(next, "Linked as " + link + "\n")) << next.err();
    EXPECT_EQ(servedPort(next), readLink(link));
    next.signal(SIGINT);
    EXPECT_EQ(0, next.finish().exitCode);
    EXPECT_EQ("", readLink(link));
}

} // namespace

#endif
