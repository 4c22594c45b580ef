#include "ToolHarness.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

// Set by the build to the tool that is tested; empty when it is not built.
#ifndef TARVEL_TOOL_PATH
#define TARVEL_TOOL_PATH ""
#endif

extern char** environ;

namespace tooltest {

bool waitUntil(const std::function<bool()>& condition, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
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

namespace {

std::string contents(int fd) {
    std::string text;
    char buf[4096];
    for (ssize_t n; (n = ::pread(fd, buf, sizeof buf, off_t(text.size()))) > 0;)
        text.append(buf, std::size_t(n));
    return text;
}

} // namespace

ToolProcess::ToolProcess(std::vector<std::string> args, const std::vector<std::string>& environment,
                         const std::string& directory)
    : m_out(::memfd_create("stdout", MFD_CLOEXEC)), m_err(::memfd_create("stderr", MFD_CLOEXEC)) {
    args.insert(args.begin(), TARVEL_TOOL_PATH);
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    std::vector<std::string> envStrings(environment);
    std::vector<char*> envp;
    for (auto& e : envStrings)
        envp.push_back(e.data());
    for (char** e = environ; *e != nullptr; ++e)
        envp.push_back(*e); // the first of two equal names wins
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, m_out, 1);
    posix_spawn_file_actions_adddup2(&actions, m_err, 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (!directory.empty()) posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    // The child starts with default signal handling, whatever the test runner set.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &all);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    if (::posix_spawn(&m_pid, argv[0], &actions, &attr, argv.data(), envp.data()) != 0) m_pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    EXPECT_GT(m_pid, 0) << "cannot start " << args[0];
}

ToolProcess::~ToolProcess() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    ::close(m_out);
    ::close(m_err);
}

std::string ToolProcess::out() const {
    return contents(m_out);
}

bool ToolProcess::running() {
    int status = 0;
    if (m_pid > 0 && ::waitpid(m_pid, &status, WNOHANG) == 0) return true;
    if (m_pid > 0) m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    m_pid = -1;
    return false;
}

void ToolProcess::interrupt() {
    if (m_pid > 0) ::kill(m_pid, SIGINT);
}

ToolResult ToolProcess::finish(int timeoutMs) {
    if (!waitUntil([this] { return !running(); }, timeoutMs)) ::kill(m_pid, SIGKILL); // reaped when destroyed
    return {m_exitCode, contents(m_out), contents(m_err)};
}

ToolResult runTool(const std::vector<std::string>& args, const std::vector<std::string>& environment,
                   const std::string& directory, int timeoutMs) {
    return ToolProcess(args, environment, directory).finish(timeoutMs);
}

void ToolTest::SetUp() {
    if (std::string(TARVEL_TOOL_PATH).empty()) GTEST_SKIP() << "the tarvel tool is not built";
    char pattern[] = "/tmp/tarvel-tool-test-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(pattern));
    m_dir = pattern;
}

void ToolTest::TearDown() {
    sim.reset();
    if (!m_dir.empty()) std::filesystem::remove_all(m_dir);
}

tarvelsim::Simulator& ToolTest::device(tarvelsim::Options options) {
    options.link = file("tty");
    sim.reset();
    sim = std::make_unique<tarvelsim::Simulator>(options);
    EXPECT_TRUE(sim->start()) << sim->lastError();
    return *sim;
}

std::vector<std::string> ToolTest::onDevice(std::vector<std::string> args, const char* readTimeout) const {
    args.insert(args.begin(), {"--port", file("tty"), "--read-timeout", readTimeout});
    return args;
}

void ToolTest::expectSuccess(const ToolResult& r) {
    EXPECT_EQ(0, r.exitCode) << "stdout:\n" << r.out << "stderr:\n" << r.err;
}

} // namespace tooltest
