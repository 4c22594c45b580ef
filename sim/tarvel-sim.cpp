// tarvel-sim: an emulated Tarvel device on a pseudo-terminal or a serial port.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <string>

#include "SimulatorCli.h"

int main(int argc, char** argv) {
    tarvelsim::cli::Settings settings;
    CLI::App app{"Emulated Tarvel device. Serves a pseudo-terminal (or, with --serve, a serial line) until "
                 "SIGINT or SIGTERM."};
    tarvelsim::cli::addSimulatorOptions(app, settings);
    // -v as in `tarvel -v sim`; --port is the host's option in tarvel, here it gets a pointer.
    app.add_flag("-v,--verbose", settings.options.verbose, "Same as --log-traffic")->group("");
    std::string hostPort;
    app.add_option("--port", hostPort)->group("");
    CLI11_PARSE(app, argc, argv);
    if (!hostPort.empty()) {
        std::fprintf(stderr, "tarvel-sim: --port is the host's option; to act as the device on a serial device, "
                             "use --serve DEVICE\n");
        return 2;
    }

    // The serving threads inherit the blocked set; this thread takes the signals.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    const bool verbose = settings.options.verbose;
    tarvelsim::cli::Standalone sim(std::move(settings));
    std::string error;
    if (!sim.start(error)) {
        std::fprintf(stderr, "tarvel-sim: %s\n", error.c_str());
        return 1;
    }
    int signal = 0;
    sigwait(&stopSignals, &signal);
    sim.stop();
    if (verbose) std::fprintf(stderr, "tarvel-sim: stopped by signal %d\n", signal);
    return 0;
}
