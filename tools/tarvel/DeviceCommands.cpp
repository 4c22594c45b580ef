// ping, version, time, reset, reboot, bootloader.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "Commands.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kTimeUnset = UINT64_MAX;

struct PingArgs {
    unsigned count = 1;
};

struct TimeArgs {
    uint64_t value = kTimeUnset;
};

struct RestartArgs {
    unsigned mode = 0;      // reboot only
    unsigned waitMs = 5000; // 0: do not wait
    bool noWait = false;
};

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// What a lost answer means, and which option changes how long the tool waits.
std::string pingFailure(int code, const GlobalOptions& options) {
    if (code == -14 || code == -15)
        return "no answer within " + std::to_string(options.readTimeout) +
               " ms (the read time-out; --read-timeout MS changes it)";
    return describeResult(code, ResultKind::Command);
}

int runPing(const GlobalOptions& options, const PingArgs& args) {
    Connection conn(options);
    unsigned sent = 0, answered = 0;
    double min = 0, max = 0, sum = 0;
    for (; sent < args.count && !g_interrupted; ++sent) {
        auto start = Clock::now();
        int status = conn.tarvel().Ping();
        double ms = msSince(start);
        if (status < 0) {
            std::printf("ping: seq=%u %s\n", sent + 1, pingFailure(status, options).c_str());
        } else {
            std::printf("ping: seq=%u status=%d time=%.2f ms\n", sent + 1, status, ms);
            min = answered == 0 ? ms : std::min(min, ms);
            max = std::max(max, ms);
            sum += ms;
            ++answered;
        }
        std::fflush(stdout);
    }
    std::printf("ping: %u sent, %u answered, %u lost", sent, answered, sent - answered);
    if (answered != 0) std::printf("; time min/avg/max %.2f/%.2f/%.2f ms", min, sum / answered, max);
    std::printf("\n");
    return answered == sent ? kExitOk : kExitFailed;
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

// A restarted device does not hear commands for a moment. Probes it until it
// answers, with a short read time-out so that its return is seen at once;
// throws when it stays silent for waitMs.
void waitUntilAnswering(Tarvel& t, const GlobalOptions& options, const char* command, unsigned waitMs) {
    const unsigned probeMs = std::min(options.readTimeout, 100u);
    t.SetTimeout(probeMs, options.writeTimeout);
    const auto deadline = Clock::now() + std::chrono::milliseconds(waitMs);
    bool back = false;
    while (!back && Clock::now() < deadline && !g_interrupted) {
        back = t.Ping() == 0; // an unanswered probe takes probeMs
        if (!back) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    t.SetTimeout(options.readTimeout, options.writeTimeout);
    if (!back)
        throw std::runtime_error(std::string(command) + ": the device did not answer within " + std::to_string(waitMs) +
                                 " ms of the restart (--wait MS waits longer, --no-wait not at all)");
}

// Restarts with `restart`, then waits for the device unless told not to.
// Prints "COMMAND: DONE, answers again after N ms", or that it did not wait.
int runRestart(const GlobalOptions& options, const RestartArgs& args, const char* command,
               const std::function<int(Tarvel&)>& restart, const char* done) {
    Connection conn(options);
    auto start = Clock::now();
    check(restart(conn.tarvel()), command);
    if (args.noWait || args.waitMs == 0) {
        std::printf("%s: %s; not waiting for it to answer again\n", command, done);
        return kExitOk;
    }
    waitUntilAnswering(conn.tarvel(), options, command, args.waitMs);
    std::printf("%s: %s, answers again after %.0f ms\n", command, done, msSince(start));
    return kExitOk;
}

int runReset(const GlobalOptions& options, const RestartArgs& args) {
    return runRestart(
        options, args, "reset", [](Tarvel& t) { return t.Reset(); }, "device reset");
}

int runReboot(const GlobalOptions& options, const RestartArgs& args) {
    // The tool waits itself, as for the other restarts: Reboot's own wait keeps no result.
    return runRestart(
        options, args, "reboot", [&args](Tarvel& t) { return t.Reboot(args.mode != 0, 0); }, "device restarted");
}

int runBootloader(const GlobalOptions& options, const RestartArgs& args) {
    return runRestart(
        options, args, "bootloader", [](Tarvel& t) { return t.Bootloader(); }, "device restarted into its bootloader");
}

// --wait MS and --no-wait of the three restarts.
void addWaitOptions(CLI::App* cmd, RestartArgs& args) {
    cmd->add_option("--wait", args.waitMs, "How long to wait for the device to answer again, in ms")
        ->capture_default_str()
        ->check(numberCheck(milliseconds(0, 600000)))
        ->type_name("MS");
    cmd->add_flag("--no-wait", args.noWait, "Return at once; the device is deaf for a moment after a restart");
}

} // namespace

void addDeviceCommands(CLI::App& app, CommandContext& ctx) {
    auto* ping = app.add_subcommand("ping", "Check that the device answers, and how fast; ends with a summary");
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

    auto* reset = app.add_subcommand("reset", "Reset the device (its tables are emptied); waits until it answers");
    auto resetArgs = std::make_shared<RestartArgs>();
    addWaitOptions(reset, *resetArgs);
    onRun(reset, ctx, [&ctx, resetArgs] { return runReset(ctx.options, *resetArgs); });

    auto* reboot = app.add_subcommand("reboot", "Restart the device and wait until it answers again");
    auto rebootArgs = std::make_shared<RestartArgs>();
    reboot->add_option("--mode", rebootArgs->mode, "Reboot mode byte (0 or 1)")
        ->capture_default_str()
        ->check(numberCheck(wholeNumber(0, 1)));
    addWaitOptions(reboot, *rebootArgs);
    onRun(reboot, ctx, [&ctx, rebootArgs] { return runReboot(ctx.options, *rebootArgs); });

    auto* boot = app.add_subcommand("bootloader", "Restart the device into its bootloader; waits until it answers");
    auto bootArgs = std::make_shared<RestartArgs>();
    addWaitOptions(boot, *bootArgs);
    onRun(boot, ctx, [&ctx, bootArgs] { return runBootloader(ctx.options, *bootArgs); });
}

} // namespace tool
