// Stop signals taken on one thread of the tool's own.
#include "Interrupt.h"

#include <csignal>
#include <cstdlib>
#include <thread>

#include <pthread.h>

namespace tool {

std::atomic<bool> g_interrupted{false};

void installInterruptHandler() {
    // Block the stop signals in every thread (threads started later inherit
    // the mask, the simulator's included) and wait for them on one thread:
    // no async-signal-safety concerns for the code that reacts.
    static sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::thread([] {
        for (;;) {
            int signal = 0;
            if (sigwait(&stopSignals, &signal) != 0) continue;
            if (g_interrupted.exchange(true)) std::_Exit(128 + signal);
        }
    }).detach();
}

} // namespace tool
