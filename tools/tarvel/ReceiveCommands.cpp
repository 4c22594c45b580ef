// monitor, watch: reception requests, and the reports and signals they bring.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Commands.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

struct MonitorArgs {
    std::vector<std::string> targets;
    unsigned count = 0;
    double duration = 0;
    std::string log;
};

struct WatchArgs {
    std::string target;
    std::string bits;
    unsigned count = 0;
    double duration = 0;
};

// Runs until Ctrl-C, the count or the duration (0: no limit).
class StopCondition {
public:
    StopCondition(unsigned count, double seconds) : m_count(count), m_seconds(seconds), m_start(Clock::now()) {}
    bool done(unsigned seen) const {
        if (g_interrupted) return true;
        if (m_count != 0 && seen >= m_count) return true;
        return m_seconds > 0 && std::chrono::duration<double>(Clock::now() - m_start).count() >= m_seconds;
    }

private:
    unsigned m_count;
    double m_seconds;
    Clock::time_point m_start;
};

// A reception request with the identifier the user asked for (the report
// itself carries only its low 16 bits).
struct Watched {
    explicit Watched(const ChannelId& t) : target(t) {}
    ChannelId target;
    int key = 0;
    uint32_t lastStamp = 0;
    std::vector<unsigned char> lastData;
    bool seen = false;
};

int request(Tarvel& t, const ChannelId& target) {
    std::string what = "RequestMessage can" + std::to_string(target.channel) + " " + idText(target.id, target.extended);
    return check(t.RequestMessage(static_cast<unsigned char>(1u << target.channel), target.id, false, target.extended,
                                  8, false, false, nullptr),
                 what, ResultKind::Request);
}

// Takes the request off the device again; a failure here changes nothing for the user.
void unrequest(Tarvel& t, int key) {
    t.RemoveRequest(static_cast<unsigned short>(key & 0xFFFF));
}

// A new report is one whose stamp or data differs from the last one shown.
bool takeNew(Tarvel& t, Watched& w, RecvAsyncMessage& out) {
    out = t.ReadAsyncMessage(w.key);
    if (out.key == 0) return false;
    if (w.seen && out.timestamp == w.lastStamp && out.data == w.lastData) return false;
    w.seen = true;
    w.lastStamp = out.timestamp;
    w.lastData = out.data;
    return true;
}

int runMonitor(const GlobalOptions& options, const MonitorArgs& args) {
    std::vector<Watched> watched;
    for (const auto& text : args.targets)
        watched.emplace_back(parseChannelId(text));
    std::ofstream log;
    if (!args.log.empty()) {
        log.open(args.log, std::ios::trunc);
        if (!log) throw UsageError("--log: cannot write the file '" + args.log + "'");
    }
    Connection conn(options);
    Tarvel& t = conn.tarvel();
    if (conn.simulated()) builtInNote("nothing else sends on the bus");
    conn.startReceiver();
    for (auto& w : watched)
        w.key = request(t, w.target);
    StopCondition stop(args.count, args.duration);
    unsigned lines = 0;
    RecvAsyncMessage report;
    while (!stop.done(lines)) {
        bool any = false;
        for (auto& w : watched) {
            if (stop.done(lines) || !takeNew(t, w, report)) continue;
            any = true;
            std::string line = candumpLine(reportEpochSeconds(report.timestamp), report.channel, w.target.id,
                                           w.target.extended, report.data);
            std::printf("%s\n", line.c_str());
            std::fflush(stdout);
            if (log) log << line << '\n' << std::flush;
            ++lines;
        }
        if (!any) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (auto& w : watched)
        unrequest(t, w.key);
    return kExitOk;
}

int runWatch(const GlobalOptions& options, const WatchArgs& args) {
    Watched w(parseChannelId(args.target));
    BitRange bits = parseBitRange(args.bits, 64);
    Connection conn(options);
    Tarvel& t = conn.tarvel();
    if (conn.simulated()) builtInNote("nothing else sends on the bus");
    conn.startReceiver();
    w.key = request(t, w.target);
    int signal =
        check(t.RequestSignal(w.key, static_cast<unsigned short>(bits.start), static_cast<unsigned short>(bits.stop)),
              "RequestSignal", ResultKind::SignalRequest);
    StopCondition stop(args.count, args.duration);
    unsigned shown = 0;
    RecvAsyncMessage report;
    while (!stop.done(shown)) {
        if (!takeNew(t, w, report)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        unsigned long long value = 0;
        unsigned age = 0;
        check(t.SignalReadValue(static_cast<unsigned short>(signal), value, &age, true), "SignalReadValue",
              ResultKind::SignalRead);
        std::printf("(%.6f) can%u %s %u:%u = %llu (0x%llX) age %u ms\n", reportEpochSeconds(report.timestamp),
                    report.channel, idText(w.target.id, w.target.extended).c_str(), bits.start, bits.stop, value, value,
                    age);
        std::fflush(stdout);
        ++shown;
    }
    unrequest(t, w.key);
    return kExitOk;
}

} // namespace

void addReceiveCommands(CLI::App& app, CommandContext& ctx) {
    auto* monitor = app.add_subcommand(
        "monitor", "Request messages and print each new report as a candump line: (seconds) canN ID#DATA");
    auto mo = std::make_shared<MonitorArgs>();
    monitor->add_option("TARGET", mo->targets, "CHANNEL:ID to request, e.g. 0:123 can1:18FEF100")->required();
    monitor->add_option("-n,--count", mo->count, "Stop after this many lines (0: no limit)")
        ->capture_default_str()
        ->check(numberCheck(wholeNumber(0, 4294967295u)))
        ->type_name("N");
    monitor->add_option("-d,--duration", mo->duration, "Stop after this many seconds (0: no limit)")
        ->capture_default_str()
        ->check(numberCheck(seconds()))
        ->type_name("SECONDS");
    monitor->add_option("--log", mo->log, "Also write the lines to FILE (candump log format)")->type_name("FILE");
    onRun(monitor, ctx, [&ctx, mo] { return runMonitor(ctx.options, *mo); });

    auto* watch = app.add_subcommand("watch", "Request a message and print a signal's value from each new report");
    auto wa = std::make_shared<WatchArgs>();
    watch->add_option("TARGET", wa->target, "CHANNEL:ID to request, e.g. 0:123")->required();
    watch->add_option("BITS", wa->bits, "START:STOP, at most 64 bits, bit 0 = bit 0 of byte 0 (up to bit 511)")
        ->required();
    watch->add_option("-n,--count", wa->count, "Stop after this many values (0: no limit)")
        ->capture_default_str()
        ->check(numberCheck(wholeNumber(0, 4294967295u)))
        ->type_name("N");
    watch->add_option("-d,--duration", wa->duration, "Stop after this many seconds (0: no limit)")
        ->capture_default_str()
        ->check(numberCheck(seconds()))
        ->type_name("SECONDS");
    onRun(watch, ctx, [&ctx, wa] { return runWatch(ctx.options, *wa); });
}

} // namespace tool
