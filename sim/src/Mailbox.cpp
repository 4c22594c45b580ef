#include "Mailbox.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace tarvelsim {

bool Mailbox::open(std::string& error) {
    close();
    int fds[2];
    if (::pipe(fds) != 0) {
        error = std::string("pipe: ") + std::strerror(errno);
        return false;
    }
    for (int fd : fds) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    m_read = fds[0];
    m_write = fds[1];
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stop = false;
    m_actions.clear();
    return true;
}

void Mailbox::close() {
    if (m_read >= 0) ::close(m_read);
    if (m_write >= 0) ::close(m_write);
    m_read = m_write = -1;
}

void Mailbox::post(std::function<void()> action) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_actions.push_back(std::move(action));
    }
    wake();
}

void Mailbox::wake() const {
    const uint8_t one = 1;
    [[maybe_unused]] const ssize_t n = ::write(m_write, &one, 1);
}

void Mailbox::requestStop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        m_actions.clear();
    }
    wake();
}

void Mailbox::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_actions.clear();
}

bool Mailbox::runPosted() {
    uint8_t buf[64];
    while (::read(m_read, buf, sizeof buf) > 0) {
    }
    std::vector<std::function<void()>> todo;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stop) return false;
        todo.swap(m_actions);
    }
    for (auto& action : todo)
        action();
    return true;
}

} // namespace tarvelsim
