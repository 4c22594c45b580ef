// Running the tarvel executable as a user does, and the fixture of the tool
// tests: a directory of their own and a simulated device behind a link in it.
#ifndef TARVEL_TESTS_TOOL_HARNESS_H
#define TARVEL_TESTS_TOOL_HARNESS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tarvelsim/Simulator.h"

namespace tooltest {

// Polls `condition` until it holds or `timeoutMs` passes; false on time-out.
bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 10000);

std::vector<std::string> lines(const std::string& text);
std::string readFile(const std::string& path);

struct ToolResult {
    int exitCode = -1; // -1: killed by a signal or did not end
    std::string out, err;
};

// A running tarvel, its output gathered in memory files (no terminal, so no
// colours or progress bars); the destructor kills it if it still runs.
// `environment` adds NAME=VALUE entries to the test's own environment;
// `directory` is its working directory (the test's own when empty).
class ToolProcess {
public:
    explicit ToolProcess(std::vector<std::string> args, const std::vector<std::string>& environment = {},
                         const std::string& directory = "");
    ~ToolProcess();
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    std::string out() const;
    bool running();
    void interrupt(); // as Ctrl-C
    // Waits for the end (killing it after timeoutMs) and returns what it said.
    ToolResult finish(int timeoutMs = 30000);

private:
    int m_out, m_err;
    pid_t m_pid = -1;
    int m_exitCode = -1;
};

ToolResult runTool(const std::vector<std::string>& args, const std::vector<std::string>& environment = {},
                   const std::string& directory = "", int timeoutMs = 30000);

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The test's own directory for links, EEPROM images and output files.
    std::string file(const std::string& name) const { return m_dir + "/" + name; }

    // A simulated device of the test's own, reachable as file("tty").
    tarvelsim::Simulator& device(tarvelsim::Options options = {});
    // The arguments with --port file("tty") and a read time-out in front.
    std::vector<std::string> onDevice(std::vector<std::string> args, const char* readTimeout = "1000") const;
    ToolResult runOnDevice(const std::vector<std::string>& args) { return runTool(onDevice(args)); }
    static void expectSuccess(const ToolResult& r);

    std::unique_ptr<tarvelsim::Simulator> sim;

private:
    std::string m_dir;
};

} // namespace tooltest

#endif
