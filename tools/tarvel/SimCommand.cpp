// sim: the simulated device on its own, for other programs (or another
// tarvel with --port) to use; the same device, options and output as tarvel-sim.
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "Commands.h"
#include "SimulatorCli.h"

namespace tool {

void addSimCommand(CLI::App& app, CommandContext& ctx) {
    auto* sim = app.add_subcommand("sim", "Run the simulated device on its own until Ctrl-C (as tarvel-sim does)");
    auto settings = std::make_shared<tarvelsim::cli::Settings>();
    tarvelsim::cli::addSimulatorOptions(*sim, *settings);
    onRun(sim, ctx, [&ctx, settings] {
        if (!ctx.options.port.empty()) throw UsageError("sim is the device: use --serve DEVICE, not --port");
        if (ctx.options.verbose > 0) settings->options.verbose = true;
        tarvelsim::cli::Standalone device(*settings);
        std::string error;
        if (!device.start(error)) throw std::runtime_error("cannot start the simulated device: " + error);
        while (!g_interrupted)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        device.stop();
        return kExitOk;
    });
}

} // namespace tool
