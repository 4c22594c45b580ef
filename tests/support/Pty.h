// A pseudo-terminal pair for tests: the test holds the master side and plays
// the far end of the line; the code under test opens slavePath().
//
//   Pty pty;                                 // throws std::runtime_error on failure
//   port.Connect(pty.slavePath(), ...);
//   pty.write({0xC0, 0x01, 0xC0});           // bytes arrive at the slave
//   ByteVector got = pty.read(4);            // up to 4 bytes written by the slave,
//                                            // waiting at most 5 s for all of them
//   pty.closeMaster();                       // the far end goes away (hang-up)
//
// The slave is set to raw mode at creation, so bytes pass unchanged in both
// directions even before the code under test configures the line. The pair
// also keeps one slave descriptor of its own open for its whole life, so
// that the master does not see a hang-up between a disconnect and the next
// connect; it never reads from it.
#ifndef TARVEL_TEST_PTY_H
#define TARVEL_TEST_PTY_H

#include <cstddef>
#include <string>

#include "TarvelTypes.h"

class Pty {
public:
    Pty();
    ~Pty();
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    // e.g. "/dev/pts/7"
    const std::string& slavePath() const { return m_slavePath; }
    // Non-blocking; -1 after closeMaster().
    int masterFd() const { return m_master; }

    // Writes every byte to the master; false if that took longer than
    // timeoutMs or failed.
    bool write(const ByteVector& bytes, int timeoutMs = 5000);
    bool write(const void* data, std::size_t n, int timeoutMs = 5000);
    // Reads until n bytes have come or timeoutMs has passed; returns what came.
    ByteVector read(std::size_t n, int timeoutMs = 5000);
    // Discards what is waiting at the master now; returns the count.
    std::size_t drain();
    // Closes the master: the slave side sees a hang-up.
    void closeMaster();

private:
    int m_master = -1;
    int m_slave = -1;
    std::string m_slavePath;
};

#endif
