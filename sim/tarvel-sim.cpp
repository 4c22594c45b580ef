// tarvel-sim: an emulated Tarvel device on a pseudo-terminal or a serial port.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <string>

#include "tarvelsim/Simulator.h"

int main(int argc, char** argv) {
    tarvelsim::Options options;
    tarvelsim::Faults& faults = options.faults;

    CLI::App app{"Emulated Tarvel device. Serves a pseudo-terminal (or, with --port, a serial line) until "
                 "SIGINT or SIGTERM."};
    app.add_option("--port", options.port, "Act as the device on this serial device instead of a pseudo-terminal");
    app.add_option("--link", options.link, "Make a symbolic link with this name to the terminal");
    app.add_option("--eeprom", options.eepromFile, "Keep the 64 KiB EEPROM in this file");
    app.add_option("--version-status", options.versionStatus,
                   "Status answered to the version query (0: feature level 100; e.g. 65535 for an old device)")
        ->capture_default_str();
    app.add_option("--boot-ms", options.bootTimeMs, "Deaf time after a restart, in milliseconds")->capture_default_str();
    app.add_option("--capacity", options.capacity, "Transmit messages the device can hold")->capture_default_str();
    app.add_flag("-v,--verbose", options.verbose, "Log every packet on standard error");

    auto* f = app.add_option_group("Faults");
    f->add_option("--delay-ms", faults.answerDelayMs, "Delay every answer by this many milliseconds");
    f->add_option("--drop-every", faults.dropEvery, "Drop every n-th answer");
    f->add_option("--corrupt-every", faults.corruptEvery, "Spoil the checksum of every n-th answer");
    f->add_flag("--garbage", faults.garbageBeforeFrames, "Send stray bytes before every frame");
    f->add_flag("--cut-frames", faults.cutFrames, "Start every frame with junk cancelled by ESC ESC_BRK");
    f->add_flag("--hw-error", faults.hwErrorBeforeAnswer, "Send TARVEL_HW_ERROR before every answer");
    f->add_option("--fail-command", faults.failCommand, "Answer this command code with --fail-response");
    f->add_option("--fail-response", faults.failResponse,
                  "Response code for --fail-command: 129 COMMAND_FAILED (default) or 130 PACKET_ERROR")
        ->check(CLI::IsMember({0x81, 0x82}));
    f->add_option("--flood-rate", faults.floodPerSecond, "Send this many ASYNC_MESSAGE reports per second");
    f->add_flag("--flood-max", faults.floodMax, "Send ASYNC_MESSAGE reports as fast as the line takes them");
    f->add_flag("--silent", faults.silent, "Read everything, answer nothing");

    CLI11_PARSE(app, argc, argv);

    // The serving thread inherits the blocked set; this thread takes the signals.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    tarvelsim::Simulator sim(options);
    if (!sim.start()) {
        std::fprintf(stderr, "tarvel-sim: %s\n", sim.lastError().c_str());
        return 1;
    }
    std::printf("Simulated device ready on %s\n", sim.portPath().c_str());
    if (!options.link.empty()) std::printf("Linked as %s\n", options.link.c_str());
    std::fflush(stdout);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    sim.stop();
    if (options.verbose) std::fprintf(stderr, "tarvel-sim: stopped by signal %d\n", signal);
    return 0;
}
