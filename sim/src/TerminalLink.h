// A symbolic link with a name of the user's choice to the terminal the
// device serves, so that hosts find it under a stable path.
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

    // Links name to target. An existing symbolic link is replaced, any other
    // file is an error. False and a reason on failure.
    bool make(const std::string& name, const std::string& target, std::string& error);
    // Removes the link made, if any.
    void remove();

private:
    std::string m_name;
};

} // namespace tarvelsim

#endif
