// A program run as a user runs it: its arguments, its output gathered in
// memory files, Ctrl-C, its exit code. The destructor kills it if it still runs.
#ifndef TARVEL_TEST_SIM_PROGRAM_H
#define TARVEL_TEST_SIM_PROGRAM_H

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SimFixture.h"

extern char** environ;

namespace simtest {

class Program {
public:
    explicit Program(std::vector<std::string> argv) {
        std::vector<char*> args;
        for (auto& a : argv)
            args.push_back(a.data());
        args.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, m_out, 1);
        posix_spawn_file_actions_adddup2(&actions, m_err, 2);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        // Default signal handling in the child, whatever the test runner set.
        posix_spawnattr_t attr;
        posix_spawnattr_init(&attr);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attr, &none);
        posix_spawnattr_setsigdefault(&attr, &all);
        posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        if (::posix_spawn(&m_pid, args[0], &actions, &attr, args.data(), environ) != 0) m_pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attr);
        EXPECT_GT(m_pid, 0) << "cannot start " << argv[0];
        m_startedPid = m_pid;
    }
    ~Program() {
        signal(SIGKILL);
        if (m_pid > 0) ::waitpid(m_pid, nullptr, 0);
        ::close(m_out);
        ::close(m_err);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return m_startedPid; }
    std::string out() const { return contents(m_out); }
    std::string err() const { return contents(m_err); }
    bool waitForOutput(const std::string& text) const {
        return eventually([&] { return out().find(text) != std::string::npos; });
    }
    void signal(int number) {
        if (m_pid > 0) ::kill(m_pid, number);
    }
    // Waits for the end (up to 20 s: a Python reader starts slowly on a busy
    // machine); the exit code, -1 when killed or still running.
    int finish() {
        const auto deadline = Clock::now() + std::chrono::seconds(20);
        while (m_pid > 0 && Clock::now() < deadline) {
            int status = 0;
            const pid_t ended = ::waitpid(m_pid, &status, WNOHANG);
            if (ended == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                continue;
            }
            m_exitCode = ended == m_pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            m_pid = -1;
        }
        return m_pid > 0 ? -1 : m_exitCode;
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
    pid_t m_pid = -1, m_startedPid = -1;
    int m_exitCode = -1;
};

} // namespace simtest

#endif
