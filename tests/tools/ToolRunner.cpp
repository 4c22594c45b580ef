#ifndef _WIN32 // runs the tool and the simulator, both POSIX only

#include "ToolRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

extern char** environ;

ToolProcess::ToolProcess(const std::vector<std::string>& args) {
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    std::vector<std::string> all{TARVEL_TOOL_PATH};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : all)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    // The child starts with default signal handling, whatever the test runner set.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, all_signals;
    sigemptyset(&none);
    sigfillset(&all_signals);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &all_signals);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    int rc = ::posix_spawn(&m_pid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    ::close(out[1]);
    ::close(err[1]);
    m_out = out[0];
    m_err = err[0];
    if (rc != 0)
        throw std::runtime_error("cannot start " + all[0]);
}

ToolProcess::~ToolProcess() {
    if (!m_reaped && m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    if (m_out >= 0)
        ::close(m_out);
    if (m_err >= 0)
        ::close(m_err);
}

void ToolProcess::pump(int timeoutMs) {
    pollfd fds[2] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}};
    if (m_out < 0 && m_err < 0)
        return;
    if (::poll(fds, 2, timeoutMs) <= 0)
        return;
    char buf[4096];
    int* fdp[2] = {&m_out, &m_err};
    std::string* dst[2] = {&m_result.out, &m_result.err};
    for (int i = 0; i < 2; ++i) {
        if (*fdp[i] < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
            continue;
        ssize_t n = ::read(*fdp[i], buf, sizeof buf);
        if (n > 0) {
            dst[i]->append(buf, static_cast<std::size_t>(n));
        } else {
            ::close(*fdp[i]);
            *fdp[i] = -1;
        }
    }
}

bool ToolProcess::waitForOutput(const std::string& text, int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_result.out.find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline || (m_out < 0 && m_err < 0))
            return false;
        pump(20);
    }
    return true;
}

bool ToolProcess::running() {
    if (m_reaped)
        return false;
    int status = 0;
    pid_t r = ::waitpid(m_pid, &status, WNOHANG);
    if (r == 0)
        return true;
    m_reaped = true;
    if (WIFEXITED(status))
        m_result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        m_result.signal = WTERMSIG(status);
    return false;
}

void ToolProcess::interrupt() {
    if (!m_reaped)
        ::kill(m_pid, SIGINT);
}

ToolResult ToolProcess::finish(int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_out >= 0 || m_err >= 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(m_pid, SIGKILL);
            break;
        }
        pump(50);
    }
    if (!m_reaped) {
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_reaped = true;
        if (WIFEXITED(status))
            m_result.exitCode = WEXITSTATUS(status);
        if (WIFSIGNALED(status))
            m_result.signal = WTERMSIG(status);
    }
    return m_result;
}

ToolResult runTool(const std::vector<std::string>& args, int timeoutMs) {
    ToolProcess p(args);
    return p.finish(timeoutMs);
}

#endif
