#include "TerminalLink.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tarvelsim {

bool TerminalLink::make(const std::string& name, const std::string& target, std::string& error) {
    remove();
    struct stat st {};
    if (::lstat(name.c_str(), &st) == 0) {
        if (!S_ISLNK(st.st_mode)) {
            error = name + " exists and is not a symbolic link";
            return false;
        }
        ::unlink(name.c_str());
    }
    if (::symlink(target.c_str(), name.c_str()) != 0) {
        error = "cannot link " + name + ": " + std::strerror(errno);
        return false;
    }
    m_name = name;
    return true;
}

void TerminalLink::remove() {
    if (!m_name.empty()) ::unlink(m_name.c_str());
    m_name.clear();
}

} // namespace tarvelsim
