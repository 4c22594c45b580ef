#include "SimProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace soak {

namespace {

const std::string kReady = "Simulated device ready on ";

} // namespace

bool SimProcess::start(const std::string& program, const std::vector<std::string>& arguments,
                       const std::string& errorFile, std::string& error) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        error = "cannot make a pipe";
        return false;
    }
    std::vector<std::string> argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> args;
    for (std::string& a : argv)
        args.push_back(a.data());
    args.push_back(nullptr);

    // A child of its own (no thread runs yet) that ends with the soak, even
    // when the soak is killed.
    const int errorFd = ::open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (errorFd < 0 || input < 0) {
        for (int fd : {errorFd, input, out[0], out[1]})
            if (fd >= 0) ::close(fd);
        error = "cannot open " + errorFile;
        return false;
    }
    const pid_t parent = ::getpid();
    m_pid = ::fork();
    if (m_pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) ::_exit(127);
        ::dup2(input, 0);
        ::dup2(out[1], 1);
        ::dup2(errorFd, 2);
        ::execv(args[0], args.data());
        ::_exit(127);
    }
    ::close(errorFd);
    ::close(input);
    ::close(out[1]);
    m_output = out[0];
    if (m_pid < 0) {
        error = "cannot start " + program;
        return false;
    }

    // Its first line names the terminal.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string said;
    auto complete = [&] {
        return said.find(kReady) != std::string::npos && said.find('\n', said.find(kReady)) != std::string::npos;
    };
    while (!complete()) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        pollfd p{m_output, POLLIN, 0};
        char chunk[256];
        ssize_t n = 0;
        if (left <= 0 || ::poll(&p, 1, static_cast<int>(left)) <= 0 ||
            (n = ::read(m_output, chunk, sizeof chunk)) <= 0) {
            error = program + " did not say which terminal it serves (it said: \"" + said + "\")";
            return false;
        }
        said.append(chunk, static_cast<std::size_t>(n));
    }
    const std::size_t at = said.find(kReady) + kReady.size();
    m_portPath = said.substr(at, said.find('\n', at) - at);
    return true;
}

bool SimProcess::running() {
    if (m_pid <= 0) return false;
    if (::waitpid(m_pid, &m_status, WNOHANG) == 0) return true;
    m_pid = -1; // died on its own; m_status says how
    return false;
}

int SimProcess::stop() {
    int status = m_status;
    if (m_pid > 0) {
        ::kill(m_pid, SIGTERM);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        pid_t ended = 0;
        while ((ended = ::waitpid(m_pid, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (ended == 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, &status, 0);
        }
        m_pid = -1;
        m_status = status;
    }
    if (m_output >= 0) ::close(m_output);
    m_output = -1;
    return status;
}

} // namespace soak
