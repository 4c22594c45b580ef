// A symbolic link with a name of the user's choice to the terminal the
// device serves, so that hosts find it under a stable path. A link belongs to
// one running simulator: while it runs, no other one takes the name over.
#ifndef TARVELSIM_TERMINAL_LINK_H
#define TARVELSIM_TERMINAL_LINK_H

#include <string>

namespace tarvelsim {

class TerminalLink {
public:
    TerminalLink() = default;
    ~TerminalLink() { remove(); }
    TerminalLink(const TerminalLink&) = delete;
    TerminalLink& operator=(const TerminalLink&) = delete;

    // Links name to target. Refused while another running simulator holds
    // the name; a link left by one that has ended is replaced, any other
    // file is an error. False and a reason on failure.
    bool make(const std::string& name, const std::string& target, std::string& error);
    // Removes the link if it still points at our target, and gives up the name.
    void remove();

private:
    bool claim(const std::string& name, std::string& error);
    void release();

    std::string m_name, m_target;
    int m_claim = -1;
};

} // namespace tarvelsim

#endif
