// monitor, watch: reception requests, and the reports and signals they bring.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
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

// The checked request: the device reports only the low 16 bits of an
// identifier, so two requests it could not tell apart are refused.
int request(Tarvel& t, const ChannelId& target) {
    std::string what = "RequestReport can" + std::to_string(target.channel) + " " + idText(target.id, target.extended);
    return check(t.RequestReport(static_cast<unsigned char>(1u << target.channel), target.id, target.extended, false, 8,
                                 false, false, nullptr),
                 what, ResultKind::Request);
}

// The requests a command made, taken off the device again when it ends,
// also when it fails half-way; a failure to remove changes nothing for the user.
class Requests {
public:
    explicit Requests(Tarvel& t) : m_tarvel(t) {}
    ~Requests() {
        for (int key : m_keys)
            m_tarvel.RemoveRequest(static_cast<unsigned short>(key & 0xFFFF));
    }
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;
    int add(const ChannelId& target) {
        m_keys.push_back(request(m_tarvel, target));
        return m_keys.back();
    }

private:
    Tarvel& m_tarvel;
    std::vector<int> m_keys;
};

// Reports in arrival order, each once, until `stop` says so; `take` sees
// each report. Waits in short slices so that Ctrl-C and the duration are seen.
template <class Take> void forEachReport(Tarvel& t, const StopCondition& stop, unsigned& taken, Take take) {
    std::vector<TarvelReport> batch(256);
    while (!stop.done(taken)) {
        const int n = t.WaitReports(batch.data(), static_cast<unsigned>(batch.size()), 50);
        check(n, "WaitReports");
        for (int i = 0; i < n && !stop.done(taken); ++i)
            if (take(batch[static_cast<std::size_t>(i)])) ++taken;
    }
}

// Bits start..stop of the report's data, bit 0 = bit 0 of byte 0.
unsigned long long bitsOf(const TarvelReport& r, const BitRange& bits) {
    unsigned long long value = 0;
    for (unsigned b = bits.start; b <= bits.stop; ++b)
        value |= static_cast<unsigned long long>((r.data[b / 8] >> (b % 8)) & 1u) << (b - bits.start);
    return value;
}

void printStatistics(Tarvel& t) {
    const TarvelStatistics s = t.GetStatistics();
    std::fprintf(stderr,
                 "tarvel: statistics: %llu frames received (%llu bytes), %llu sent; %llu reports, %llu dropped, "
                 "%llu on unknown channels; rejected frames: %llu SLIP, %llu length, %llu checksum; error answers: "
                 "%llu; time-outs: %llu\n",
                 static_cast<unsigned long long>(s.framesReceived), static_cast<unsigned long long>(s.bytesReceived),
                 static_cast<unsigned long long>(s.framesSent), static_cast<unsigned long long>(s.reportsReceived),
                 static_cast<unsigned long long>(s.reportsDropped),
                 static_cast<unsigned long long>(s.reportsBadChannel), static_cast<unsigned long long>(s.rejectedSlip),
                 static_cast<unsigned long long>(s.rejectedLength), static_cast<unsigned long long>(s.rejectedChecksum),
                 static_cast<unsigned long long>(s.commandFailed + s.packetError + s.slipProtoError + s.hardwareError),
                 static_cast<unsigned long long>(s.exchangesTimedOut));
}

int runMonitor(const GlobalOptions& options, const MonitorArgs& args) {
    std::vector<ChannelId> targets;
    for (const auto& text : args.targets)
        targets.push_back(parseChannelId(text));
    std::ofstream log;
    if (!args.log.empty()) {
        log.open(args.log, std::ios::trunc);
        if (!log) throw UsageError("--log: cannot write the file '" + args.log + "'");
    }
    Connection conn(options);
    Tarvel& t = conn.tarvel();
    if (conn.simulated()) builtInNote("nothing else sends on the bus");
    conn.startReceiver();
    Requests requests(t);
    for (const auto& target : targets)
        requests.add(target);
    StopCondition stop(args.count, args.duration);
    unsigned lines = 0;
    forEachReport(t, stop, lines, [&](const TarvelReport& report) {
        const std::string line = candumpLine(report);
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
        if (log) log << line << '\n' << std::flush;
        return true;
    });
    if (options.verbose >= 1) printStatistics(t);
    return kExitOk;
}

int runWatch(const GlobalOptions& options, const WatchArgs& args) {
    const ChannelId target = parseChannelId(args.target);
    const BitRange bits = parseBitRange(args.bits, 64);
    Connection conn(options);
    Tarvel& t = conn.tarvel();
    if (conn.simulated()) builtInNote("nothing else sends on the bus");
    conn.startReceiver();
    Requests requests(t);
    requests.add(target);
    StopCondition stop(args.count, args.duration);
    unsigned shown = 0;
    forEachReport(t, stop, shown, [&](const TarvelReport& report) {
        if (bits.stop / 8 >= report.length) throw OperationError("SignalReadValue", -2, ResultKind::SignalRead);
        const unsigned long long value = bitsOf(report, bits);
        std::printf("%s can%u %s %u:%u = %llu (0x%llX)\n", stampText(report.timeUs).c_str(), report.channel,
                    idText(report.id, report.extended != 0).c_str(), bits.start, bits.stop, value, value);
        std::fflush(stdout);
        return true;
    });
    return kExitOk;
}

} // namespace

void addReceiveCommands(CLI::App& app, CommandContext& ctx) {
    auto* monitor = app.add_subcommand(
        "monitor", "Request messages and print every report, in order, as a candump line: (seconds) canN ID#DATA");
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

    auto* watch = app.add_subcommand("watch", "Request a message and print a signal's value from every report");
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
