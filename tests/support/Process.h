// A program run as a user runs it: its arguments and environment, its output
// gathered in memory files (no terminal, so no colours or progress bars),
// Ctrl-C, its exit status. The destructor kills it if it still runs.
//
//   Process sim({"/path/to/tarvel-sim", "--link", link});
//   ASSERT_TRUE(eventually([&] { return sim.out().find("Linked") != std::string::npos; }));
//   sim.signal(SIGINT);
//   EXPECT_EQ(0, sim.finish().exitCode);
#ifndef TARVEL_TEST_PROCESS_H
#define TARVEL_TEST_PROCESS_H

#include <sys/types.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

struct ProcessResult {
    int exitCode = -1; // -1: killed by a signal or did not end in time
    std::string out, err;
};

class Process {
public:
    // argv[0] is the program's path; `environment` adds NAME=VALUE entries in
    // front of the test's own; `directory` is its working directory (the
    // test's own when empty).
    explicit Process(std::vector<std::string> argv, const std::vector<std::string>& environment = {},
                     const std::string& directory = "");
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return m_startedPid; }
    std::string out() const;
    std::string err() const;
    bool running();
    void signal(int number);
    // Waits for the end (killing it after timeoutMs) and returns what it said.
    ProcessResult finish(int timeoutMs = 30000);

private:
    int m_out, m_err;
    pid_t m_pid = -1, m_startedPid = -1;
    int m_exitCode = -1;
};

// The terminal a running tarvel-sim serves: PATH of its line "Simulated
// device ready on PATH", waited for up to `timeoutMs`; empty when it does not say.
std::string servedPort(const Process& sim, int timeoutMs = 10000);

inline ProcessResult runProcess(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {},
                                const std::string& directory = "", int timeoutMs = 30000) {
    return Process(argv, environment, directory).finish(timeoutMs);
}

// The lines of a program's output, and a file it wrote.
inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

#endif
