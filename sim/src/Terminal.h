// The terminal the device serves: the master side of a new pseudo-terminal,
// or a given serial device, and whether a host holds it. Used on the serving
// thread only, except where noted.
#ifndef TARVELSIM_TERMINAL_H
#define TARVELSIM_TERMINAL_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace tarvelsim {

class Terminal {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    // Runs an action on the serving thread (a scan of /proc ends on its own thread).
    using Post = std::function<void(std::function<void()>)>;
    // What was received or queued for the line is void: a host left, the line
    // was lost or closed.
    using Reset = std::function<void()>;

    // port empty: a new pseudo-terminal; else this serial device.
    Terminal(std::string port, Post post, Reset reset);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Opens the terminal. False and a reason on failure.
    bool open(std::string& error);
    // Closes it; a port is not reopened until open() is called again.
    void close();
    // Ends a running scan (after the serving thread has ended).
    void abandonScan();

    int fd() const { return m_io; }         // -1 while closed
    int watchFd() const { return m_watch; } // open/close events of the slave path, or -1
    const std::string& path() const { return m_path; }
    bool isPort() const { return !m_port.empty(); }

    bool hostConnected() const { return m_connected; }
    bool hostConnectedAnyThread() const { return m_connectedMirror; }
    void hostSeen(); // a host wrote, whatever the events said

    // Reads the open/close events of the slave path.
    void drainWatch();
    // A port went away (unplugged, or its other side closed): reopened later.
    void lineLost(TimePoint now);
    // Reopens a lost port when it is time; when that time is.
    void reopenIfDue(TimePoint now);
    std::optional<TimePoint> reopenDue() const;

private:
    bool openPty(std::string& error);
    bool openPort(bool quiet, std::string& error);
    void startScan();
    void scanDone(uint64_t generation, bool held);
    void hostGone();
    void setConnected(bool connected);

    std::string m_port;
    Post m_post;
    Reset m_reset;

    int m_io = -1;    // master side of the pseudo-terminal, or the port
    int m_slave = -1; // our own slave descriptor: the master never sees EIO between hosts
    int m_watch = -1;
    std::string m_path;
    bool m_closed = true; // closed on purpose: a port is not reopened
    TimePoint m_reopenAt{};

    bool m_connected = false;
    std::atomic<bool> m_connectedMirror{false};
    uint64_t m_eventGeneration = 0;
    std::thread m_scanner;
    bool m_rescan = false;
    std::atomic<bool> m_abandonScan{false};
};

} // namespace tarvelsim

#endif
