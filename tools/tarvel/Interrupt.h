// Ctrl-C and SIGTERM: the first asks the running command to end, the second
// ends the process.
#ifndef TARVEL_TOOL_INTERRUPT_H
#define TARVEL_TOOL_INTERRUPT_H

#include <atomic>

namespace tool {

// Set by the first SIGINT/SIGTERM; long-running commands end when they see it.
extern std::atomic<bool> g_interrupted;

// Call once, before any thread is started.
void installInterruptHandler();

} // namespace tool

#endif
