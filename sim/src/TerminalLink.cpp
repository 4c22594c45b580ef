// Who holds a link name is kept by the kernel, not in a file: the simulator
// binds a socket in Linux's abstract namespace, named after the link's
// absolute path. The name is released when the simulator ends, however it
// ends (a crash or SIGKILL included), so a link it leaves behind is stale and
// the next simulator replaces it.
#include "TerminalLink.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tarvelsim {

namespace {

#ifdef __linux__
// The link's path with its folder made absolute (the link itself is not followed).
std::string absoluteName(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : name.substr(0, slash);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    char resolved[PATH_MAX];
    if (!::realpath(folder.c_str(), resolved)) return name;
    const std::string dir = resolved;
    return (dir == "/" ? "" : dir) + "/" + base;
}

// "\0tarvelsim-link/<FNV-1a hash of the absolute name>": fits any path length.
socklen_t claimAddress(const std::string& name, sockaddr_un& addr) {
    uint64_t hash = 0xcbf29ce484222325u;
    for (unsigned char c : absoluteName(name))
        hash = (hash ^ c) * 0x100000001b3u;
    char text[48];
    const int n = std::snprintf(text, sizeof text, "tarvelsim-link/%016llx", static_cast<unsigned long long>(hash));
    addr = {};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path + 1, text, static_cast<std::size_t>(n));
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(n));
}

// " (process N)" of the simulator that holds the name, when it can be asked.
std::string holder(const sockaddr_un& addr, socklen_t length) {
    std::string text;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return text;
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), length) == 0 &&
        ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid > 0)
        text = " (process " + std::to_string(peer.pid) + ")";
    ::close(fd);
    return text;
}
#endif

} // namespace

bool TerminalLink::claim(const std::string& name, std::string& error) {
#ifdef __linux__
    sockaddr_un addr;
    const socklen_t length = claimAddress(name, addr);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = "cannot claim " + name + ": " + std::strerror(errno);
        return false;
    }
    // Listening only so that a refused simulator can name the holder.
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&addr), length) == 0 && ::listen(fd, 1) == 0) {
        m_claim = fd;
        return true;
    }
    const int err = errno;
    ::close(fd);
    if (err == EADDRINUSE)
        error = name + " is the link of a running simulator" + holder(addr, length) +
                "; stop that one or choose another link";
    else
        error = "cannot claim " + name + ": " + std::strerror(err);
    return false;
#else
    (void)name;
    (void)error;
    return true; // no abstract sockets: an existing link is always taken as stale
#endif
}

void TerminalLink::release() {
    if (m_claim >= 0) ::close(m_claim);
    m_claim = -1;
}

bool TerminalLink::make(const std::string& name, const std::string& target, std::string& error) {
    remove();
    if (!claim(name, error)) return false;
    struct stat st {};
    if (::lstat(name.c_str(), &st) == 0) {
        if (!S_ISLNK(st.st_mode)) {
            error = name + " exists and is not a symbolic link";
            release();
            return false;
        }
        ::unlink(name.c_str()); // left by a simulator that has ended
    }
    if (::symlink(target.c_str(), name.c_str()) != 0) {
        error = "cannot link " + name + ": " + std::strerror(errno);
        release();
        return false;
    }
    m_name = name;
    m_target = target;
    return true;
}

void TerminalLink::remove() {
    if (!m_name.empty()) {
        char points[PATH_MAX];
        const ssize_t n = ::readlink(m_name.c_str(), points, sizeof points);
        if (n > 0 && m_target.compare(0, std::string::npos, points, static_cast<std::size_t>(n)) == 0)
            ::unlink(m_name.c_str());
    }
    m_name.clear();
    m_target.clear();
    release();
}

} // namespace tarvelsim
