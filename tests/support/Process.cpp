#include "Process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Wait.h"

extern char** environ;

namespace {

std::string contents(int fd) {
    std::string text;
    char buf[4096];
    for (ssize_t n; (n = ::pread(fd, buf, sizeof buf, off_t(text.size()))) > 0;)
        text.append(buf, std::size_t(n));
    return text;
}

} // namespace

Process::Process(std::vector<std::string> args, const std::vector<std::string>& environment,
                 const std::string& directory)
    : m_out(::memfd_create("stdout", MFD_CLOEXEC)), m_err(::memfd_create("stderr", MFD_CLOEXEC)) {
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
    m_startedPid = m_pid;
}

Process::~Process() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    ::close(m_out);
    ::close(m_err);
}

std::string Process::out() const {
    return contents(m_out);
}

std::string Process::err() const {
    return contents(m_err);
}

bool Process::running() {
    int status = 0;
    if (m_pid > 0 && ::waitpid(m_pid, &status, WNOHANG) == 0) return true;
    if (m_pid > 0) m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    m_pid = -1;
    return false;
}

void Process::signal(int number) {
    if (m_pid > 0) ::kill(m_pid, number);
}

ProcessResult Process::finish(int timeoutMs) {
    if (!eventually([this] { return !running(); }, timeoutMs)) ::kill(m_pid, SIGKILL); // reaped when destroyed
    return {m_pid > 0 ? -1 : m_exitCode, out(), err()};
}

std::string servedPort(const Process& sim, int timeoutMs) {
    const std::string ready = "Simulated device ready on ";
    std::string out;
    std::size_t at = std::string::npos;
    eventually(
        [&] {
            out = sim.out();
            at = out.find(ready);
            return at != std::string::npos && out.find('\n', at) != std::string::npos;
        },
        timeoutMs);
    if (at == std::string::npos || out.find('\n', at) == std::string::npos) return "";
    at += ready.size();
    return out.substr(at, out.find('\n', at) - at);
}
