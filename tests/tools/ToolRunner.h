// Runs the tarvel executable as a user does and captures what it says.
#ifndef TARVEL_TEST_TOOL_RUNNER_H
#define TARVEL_TEST_TOOL_RUNNER_H

#include <sys/types.h>

#include <string>
#include <vector>

// Set by the build to the tool that is tested; empty when it is not built.
#ifndef TARVEL_TOOL_PATH
#define TARVEL_TOOL_PATH ""
#endif

struct ToolResult {
    int exitCode = -1; // -1: killed or did not end
    int signal = 0;    // the signal that ended it, if any
    std::string out, err;
};

// A running tarvel; the destructor kills it if it still runs.
class ToolProcess {
public:
    explicit ToolProcess(const std::vector<std::string>& args);
    ~ToolProcess();
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    // Reads output until `text` appears on stdout or the deadline passes.
    bool waitForOutput(const std::string& text, int timeoutMs);
    bool running();
    void interrupt(); // SIGINT, as Ctrl-C
    // Reads everything until the process ends (killed after timeoutMs).
    ToolResult finish(int timeoutMs = 20000);

private:
    void pump(int timeoutMs);
    pid_t m_pid = -1;
    int m_out = -1, m_err = -1;
    ToolResult m_result;
    bool m_reaped = false;
};

// Runs tarvel with the arguments to the end.
ToolResult runTool(const std::vector<std::string>& args, int timeoutMs = 20000);

#endif
