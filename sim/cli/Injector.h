// Puts the injected frames on the bus on their periods until stopped. A late
// wake-up skips the missed periods instead of bursting them.
#ifndef TARVELSIM_INJECTOR_H
#define TARVELSIM_INJECTOR_H

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "SimulatorCli.h"

namespace tarvelsim::cli {

class Injector {
public:
    Injector(Simulator& sim, std::vector<Injection> injections);
    ~Injector() { stop(); }
    Injector(const Injector&) = delete;
    Injector& operator=(const Injector&) = delete;

    void stop();

private:
    void run();

    Simulator& m_sim;
    std::vector<Injection> m_injections;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace tarvelsim::cli

#endif
