// Work handed to the serving thread from other threads: actions run in the
// order they were posted, and a wake-up pipe that interrupts its poll.
#ifndef TARVELSIM_MAILBOX_H
#define TARVELSIM_MAILBOX_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace tarvelsim {

class Mailbox {
public:
    Mailbox() = default;
    ~Mailbox() { close(); }
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    // Makes the pipe and forgets old actions and stop requests. False and a reason on failure.
    bool open(std::string& error);
    void close();
    int fd() const { return m_read; } // readable when woken

    void post(std::function<void()> action);
    void wake() const;
    // Asks the serving thread to end; posted actions are dropped.
    void requestStop();
    // Drops what is posted (actions of a thread that has ended).
    void clear();
    // Runs the posted actions; false when the thread is to end.
    bool runPosted();

private:
    int m_read = -1, m_write = -1;
    std::mutex m_mutex;
    std::vector<std::function<void()>> m_actions;
    bool m_stop = false;
};

} // namespace tarvelsim

#endif
