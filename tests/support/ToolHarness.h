// The fixture of the tool tests: the tarvel executable run as a user runs
// it, a directory of the test's own, and a simulated device behind a link in it.
#ifndef TARVEL_TESTS_TOOL_HARNESS_H
#define TARVEL_TESTS_TOOL_HARNESS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Process.h"
#include "Wait.h"
#include "tarvelsim/Simulator.h"

// Set by the build to the tool that is tested; empty when it is not built.
#ifndef TARVEL_TOOL_PATH
#define TARVEL_TOOL_PATH ""
#endif

namespace tooltest {

// The tool's command line: the executable in front of the arguments.
inline std::vector<std::string> tool(std::vector<std::string> args) {
    args.insert(args.begin(), TARVEL_TOOL_PATH);
    return args;
}

inline ProcessResult runTool(const std::vector<std::string>& args, const std::vector<std::string>& environment = {},
                             const std::string& directory = "", int timeoutMs = 30000) {
    return runProcess(tool(args), environment, directory, timeoutMs);
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

    // A simulated device of the test's own, reachable as file("tty").
    tarvelsim::Simulator& device(tarvelsim::Options options = {}) {
        options.link = file("tty");
        sim.reset();
        sim = std::make_unique<tarvelsim::Simulator>(options);
        EXPECT_TRUE(sim->start()) << sim->lastError();
        return *sim;
    }
    // The arguments with --port file("tty") and a read time-out in front.
    std::vector<std::string> onDevice(std::vector<std::string> args, const char* readTimeout = "1000") const {
        args.insert(args.begin(), {"--port", file("tty"), "--read-timeout", readTimeout});
        return args;
    }
    ProcessResult runOnDevice(const std::vector<std::string>& args) { return runTool(onDevice(args)); }
    static void expectSuccess(const ProcessResult& r) {
        EXPECT_EQ(0, r.exitCode) << "stdout:\n" << r.out << "stderr:\n" << r.err;
    }

    std::unique_ptr<tarvelsim::Simulator> sim;

private:
    std::string m_dir;
};

} // namespace tooltest

#endif
