// ping, version, time, reset, reboot, bootloader.
#include <chrono>
#include <cstdio>
#include <string>

#include "Commands.h"

namespace tool {
namespace {

struct PingArgs {
    unsigned count = 1;
};

constexpr uint64_t kTimeUnset = UINT64_MAX;

struct TimeArgs {
    uint64_t value = kTimeUnset;
};

struct RebootArgs {
    unsigned mode = 0;
    unsigned waitMs = 5000;
};

double msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

int runPing(const GlobalOptions& options, const PingArgs& args) {
    Connection conn(options);
    for (unsigned i = 0; i < args.count && !g_interrupted; ++i) {
        auto start = std::chrono::steady_clock::now();
        int status = check(conn.tarvel().Ping(), "Ping");
        std::printf("ping: seq=%u status=%d time=%.2f ms\n", i + 1, status, msSince(start));
        std::fflush(stdout);
    }
    return kExitOk;
}

int runVersion(const GlobalOptions& options) {
    Connection conn(options);
    int v = check(conn.tarvel().GetVersion(), "GetVersion");
    std::printf("version: %d\n", v);
    return kExitOk;
}

int runTime(const GlobalOptions& options, const TimeArgs& args) {
    Connection conn(options);
    if (args.value != kTimeUnset) {
        check(conn.tarvel().SetTime(static_cast<long long>(args.value)), "SetTime");
        std::printf("time: set to %llu\n", static_cast<unsigned long long>(args.value));
    } else {
        long long now = 0;
        check(conn.tarvel().GetTime(&now), "GetTime");
        std::printf("time: %lld\n", now);
    }
    return kExitOk;
}

int runReset(const GlobalOptions& options) {
    Connection conn(options);
    check(conn.tarvel().Reset(), "Reset");
    std::printf("reset: done\n");
    return kExitOk;
}

int runReboot(const GlobalOptions& options, const RebootArgs& args) {
    Connection conn(options);
    auto start = std::chrono::steady_clock::now();
    check(conn.tarvel().Reboot(args.mode != 0, args.waitMs), "Reboot");
    if (args.waitMs == 0) {
        std::printf("reboot: sent\n");
        return kExitOk;
    }
    // Reboot keeps its own result whether or not the device came back: ask.
    check(conn.tarvel().Ping(), "Ping after Reboot");
    std::printf("reboot: device answers again after %.0f ms\n", msSince(start));
    return kExitOk;
}

int runBootloader(const GlobalOptions& options) {
    Connection conn(options);
    check(conn.tarvel().Bootloader(), "Bootloader");
    std::printf("bootloader: device restarted into its bootloader\n");
    return kExitOk;
}

} // namespace

void addDeviceCommands(CLI::App& app, CommandContext& ctx) {
    auto* ping = app.add_subcommand("ping", "Check that the device answers, and how fast");
    auto pingArgs = std::make_shared<PingArgs>();
    ping->add_option("-c,--count", pingArgs->count, "Number of pings")
        ->capture_default_str()
        ->check(numberCheck(wholeNumber(1, 1000000)))
        ->type_name("N");
    onRun(ping, ctx, [&ctx, pingArgs] { return runPing(ctx.options, *pingArgs); });

    auto* version = app.add_subcommand("version", "Show the device's version code (100: current, 0: older)");
    onRun(version, ctx, [&ctx] { return runVersion(ctx.options); });

    auto* time = app.add_subcommand("time", "Show the device clock, or set it to VALUE");
    auto timeArgs = std::make_shared<TimeArgs>();
    time->add_option("VALUE", timeArgs->value, "New device time (unsigned 32-bit, in the device's unit)")
        ->check(numberCheck(wholeNumber(0, 0xFFFFFFFF, true)));
    onRun(time, ctx, [&ctx, timeArgs] { return runTime(ctx.options, *timeArgs); });

    auto* reset = app.add_subcommand("reset", "Reset the device (its tables are emptied)");
    onRun(reset, ctx, [&ctx] { return runReset(ctx.options); });

    auto* reboot = app.add_subcommand("reboot", "Restart the device and wait until it answers again");
    auto rebootArgs = std::make_shared<RebootArgs>();
    reboot->add_option("--mode", rebootArgs->mode, "Reboot mode byte (0 or 1)")
        ->capture_default_str()
        ->check(numberCheck(wholeNumber(0, 1)));
    reboot->add_option("--wait", rebootArgs->waitMs, "How long to wait for the device to come back, in ms")
        ->capture_default_str()
        ->check(numberCheck(milliseconds(0, 600000)))
        ->type_name("MS");
    onRun(reboot, ctx, [&ctx, rebootArgs] { return runReboot(ctx.options, *rebootArgs); });

    auto* boot = app.add_subcommand("bootloader", "Restart the device into its bootloader");
    onRun(boot, ctx, [&ctx] { return runBootloader(ctx.options); });
}

} // namespace tool
