#include <cstdio>

#include "Injector.h"
#include "SimulatorCli.h"

namespace tarvelsim::cli {

Standalone::Standalone(Settings settings) : m_settings(std::move(settings)), m_sim(m_settings.options) {}

Standalone::~Standalone() {
    stop();
}

bool Standalone::start(std::string& error) {
    if (!m_sim.start()) {
        error = m_sim.lastError();
        return false;
    }
    // Standard output may carry the bus log: then it carries nothing else.
    std::FILE* say = m_settings.options.busLog == "-" ? stderr : stdout;
    std::fprintf(say, "Simulated device ready on %s\n", m_sim.portPath().c_str());
    if (!m_settings.options.link.empty()) std::fprintf(say, "Linked as %s\n", m_settings.options.link.c_str());
    std::fflush(say);
    m_injector = std::make_unique<Injector>(m_sim, m_settings.injections);
    return true;
}

void Standalone::stop() {
    m_injector.reset();
    m_sim.stop();
}

} // namespace tarvelsim::cli
