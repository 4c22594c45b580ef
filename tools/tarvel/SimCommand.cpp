// sim: the simulated device on its own, for other programs (or another
// tarvel with --port) to use; the same device and output as tarvel-sim.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "Commands.h"
#include "tarvelsim/Simulator.h"

namespace tool {

void addSimCommand(CLI::App& app, CommandContext& ctx) {
    auto* sim = app.add_subcommand("sim", "Run the simulated device on its own until Ctrl-C (as tarvel-sim does)");
    auto options = std::make_shared<tarvelsim::Options>();
    sim->add_option("--link", options->link, "Also make PATH a symbolic link to the device's terminal")
        ->type_name("PATH");
    sim->add_option("--serve", options->port,
                    "Act as the device on this serial device instead of a new pseudo-terminal")
        ->type_name("DEVICE");
    sim->add_option("--eeprom", options->eepromFile, "Keep the 64 KiB EEPROM in FILE across runs")->type_name("FILE");
    sim->add_option("--version-status", options->versionStatus,
                    "Status answered to the version query (0: feature level 100; 65535: an older device)")
        ->capture_default_str();
    sim->add_option("--boot-ms", options->bootTimeMs, "Deaf time after a restart, in ms")->capture_default_str();
    sim->add_option("--capacity", options->capacity, "Transmit messages the device can hold")->capture_default_str();
    sim->add_flag("--log-traffic", options->verbose, "Log every packet on stderr");
    sim->add_option("--delay-ms", options->faults.answerDelayMs, "Fault: delay every answer by MS")->type_name("MS");
    sim->add_option("--drop-every", options->faults.dropEvery, "Fault: drop every n-th answer")->type_name("N");
    sim->add_option("--corrupt-every", options->faults.corruptEvery, "Fault: spoil the checksum of every n-th answer")
        ->type_name("N");
    sim->add_flag("--silent", options->faults.silent, "Fault: read every command, answer none");
    onRun(sim, ctx, [&ctx, options] {
        if (!ctx.options.port.empty()) throw UsageError("sim is the device: use --serve DEVICE, not --port");
        if (ctx.options.verbose > 0) options->verbose = true;
        tarvelsim::Simulator device(*options);
        if (!device.start()) throw std::runtime_error("cannot start the simulated device: " + device.lastError());
        std::printf("Simulated device ready on %s\n", device.portPath().c_str());
        if (!options->link.empty()) std::printf("Linked as %s\n", options->link.c_str());
        std::fflush(stdout);
        while (!g_interrupted)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        device.stop();
        return kExitOk;
    });
}

} // namespace tool
