// send, monitor, signal, watch: transmit messages, reception requests and
// the signals inside them.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "Commands.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

struct SendArgs {
    std::string channel;
    std::string frame;
    unsigned period = 0;
};

struct MonitorArgs {
    std::vector<std::string> targets;
    unsigned count = 0;
    double duration = 0;
    std::string log;
};

struct SignalArgs {
    std::string message;
    std::string bits;
    std::vector<std::string> values;
    unsigned group = 0;
    bool cumulative = false;
    unsigned interval = 500;
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

// A message handler given as a number, or CHANNEL:ID of a message the device already sends.
unsigned short messageHandler(Tarvel& t, const std::string& text) {
    if (text.find(':') == std::string::npos) return static_cast<unsigned short>(parseNumber(text, 0xFFFC, "MESSAGE"));
    ChannelId target = parseChannelId(text);
    int h = check(t.GetHandler(static_cast<unsigned char>(target.channel), 0, target.id, target.extended, false, false),
                  "GetHandler can" + std::to_string(target.channel) + " " + idText(target.id, target.extended),
                  ResultKind::Message);
    return static_cast<unsigned short>(h);
}

// The built-in device lives for one command: say how to get a lasting bus.
void builtInNote(const char* what) {
    std::fprintf(stderr,
                 "tarvel: note: on the built-in device %s; run 'tarvel sim --link PATH' and use --port PATH "
                 "for a bus that lasts\n",
                 what);
}

} // namespace

void addBusCommands(CLI::App& app, CommandContext& ctx) {
    auto* send = app.add_subcommand("send", "Add a transmit message and switch it on; prints its handler");
    auto s = std::make_shared<SendArgs>();
    send->add_option("CHANNEL", s->channel, "CAN channel: 0..3 or can0..can3")->required();
    send->add_option("FRAME", s->frame,
                     "ID#DATA in hex, as cansend writes it (123#DEADBEEF; 8 hex digits: extended identifier)")
        ->required();
    send->add_option("--period", s->period, "Send every MS milliseconds (0: once, and again on every change)")
        ->capture_default_str()
        ->check(CLI::Range(0u, 65535u))
        ->type_name("MS");
    onRun(send, ctx, [&ctx, s] {
        unsigned channel = parseChannel(s->channel);
        CanFrameText frame = parseFrame(s->frame);
        Connection conn(ctx.options);
        Tarvel& t = conn.tarvel();
        tagCanMessage m{};
        m.dlc = frame.dlc;
        m.selector1 = static_cast<unsigned char>(channel);
        m.id = frame.id;
        m.idFlag = frame.extended;
        m.param1 = static_cast<unsigned short>(s->period);
        m.enabled = false;
        std::string what = "can" + std::to_string(channel) + " " + idText(frame.id, frame.extended);
        int handler = check(t.AddMessage(m, ByteVector(frame.data.begin(), frame.data.end())), "AddMessage " + what,
                            ResultKind::AddMessage);
        check(t.EnableMessage(static_cast<unsigned short>(handler)), "EnableMessage " + std::to_string(handler),
              ResultKind::Message);
        std::printf("handler: %d\n", handler);
        if (conn.simulated()) builtInNote("the message stops with this command");
        return kExitOk;
    });

    auto* monitor = app.add_subcommand(
        "monitor", "Request messages and print each new report as a candump line: (seconds) canN ID#DATA");
    auto mo = std::make_shared<MonitorArgs>();
    monitor->add_option("TARGET", mo->targets, "CHANNEL:ID to request, e.g. 0:123 can1:18FEF100")->required();
    monitor->add_option("-n,--count", mo->count, "Stop after this many lines (0: no limit)")->capture_default_str();
    monitor->add_option("-d,--duration", mo->duration, "Stop after this many seconds (0: no limit)")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber)
        ->type_name("S");
    monitor->add_option("--log", mo->log, "Also write the lines to FILE (candump log format)")->type_name("FILE");
    onRun(monitor, ctx, [&ctx, mo] {
        std::vector<Watched> watched;
        for (const auto& text : mo->targets)
            watched.emplace_back(parseChannelId(text));
        std::ofstream log;
        if (!mo->log.empty()) {
            log.open(mo->log, std::ios::trunc);
            if (!log) throw UsageError("--log: cannot write the file '" + mo->log + "'");
        }
        Connection conn(ctx.options);
        Tarvel& t = conn.tarvel();
        if (conn.simulated()) builtInNote("nothing else sends on the bus");
        conn.startReceiver();
        for (auto& w : watched)
            w.key = request(t, w.target);
        StopCondition stop(mo->count, mo->duration);
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
    });

    auto* signal = app.add_subcommand("signal", "Add a signal to a transmit message and give it values");
    auto sg = std::make_shared<SignalArgs>();
    signal->add_option("MESSAGE", sg->message, "Message handler, or CHANNEL:ID of a message the device sends")
        ->required();
    signal->add_option("BITS", sg->bits, "START:STOP, at most 16 bits, bit 0 = bit 0 of byte 0")->required();
    signal->add_option("VALUE", sg->values, "Values to set in turn (--interval apart)")->required();
    signal->add_option("--group", sg->group, "Signal group")->capture_default_str()->check(CLI::Range(0u, 255u));
    signal->add_flag("--cumulative", sg->cumulative,
                     "Cumulative signal: VALUE is added on every transmission (an alive counter)");
    signal->add_option("--interval", sg->interval, "Pause between two values in ms")
        ->capture_default_str()
        ->type_name("MS");
    onRun(signal, ctx, [&ctx, sg] {
        BitRange bits = parseBitRange(sg->bits, 16);
        std::vector<unsigned short> values;
        for (const auto& v : sg->values)
            values.push_back(static_cast<unsigned short>(parseNumber(v, 0xFFFF, "VALUE")));
        if (sg->message.find(':') == std::string::npos) parseNumber(sg->message, 0xFFFC, "MESSAGE");
        Connection conn(ctx.options);
        Tarvel& t = conn.tarvel();
        if (conn.simulated()) builtInNote("no message exists yet");
        unsigned short message = messageHandler(t, sg->message);
        unsigned char flags = sg->cumulative ? Tarvel::kSignalCumulative : 0;
        int handler =
            check(t.AddSignal(message, static_cast<unsigned char>(sg->group), static_cast<unsigned short>(bits.start),
                              static_cast<unsigned short>(bits.stop), flags),
                  "AddSignal to message " + std::to_string(message), ResultKind::Signal);
        std::printf("signal: handler %d in message %u, bits %u:%u\n", handler, message, bits.start, bits.stop);
        for (std::size_t i = 0; i < values.size() && !g_interrupted; ++i) {
            if (i != 0) std::this_thread::sleep_for(std::chrono::milliseconds(sg->interval));
            check(t.SignalChangeValue(static_cast<unsigned short>(handler), values[i], true, true),
                  "SignalChangeValue " + std::to_string(values[i]), ResultKind::Signal);
            std::printf("signal: value %u\n", values[i]);
            std::fflush(stdout);
        }
        return kExitOk;
    });

    auto* watch = app.add_subcommand("watch", "Request a message and print a signal's value from each new report");
    auto wa = std::make_shared<WatchArgs>();
    watch->add_option("TARGET", wa->target, "CHANNEL:ID to request, e.g. 0:123")->required();
    watch->add_option("BITS", wa->bits, "START:STOP, at most 64 bits, bit 0 = bit 0 of byte 0")->required();
    watch->add_option("-n,--count", wa->count, "Stop after this many values (0: no limit)")->capture_default_str();
    watch->add_option("-d,--duration", wa->duration, "Stop after this many seconds (0: no limit)")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber)
        ->type_name("S");
    onRun(watch, ctx, [&ctx, wa] {
        Watched w(parseChannelId(wa->target));
        BitRange bits = parseBitRange(wa->bits, 64);
        Connection conn(ctx.options);
        Tarvel& t = conn.tarvel();
        if (conn.simulated()) builtInNote("nothing else sends on the bus");
        conn.startReceiver();
        w.key = request(t, w.target);
        int signal = check(
            t.RequestSignal(w.key, static_cast<unsigned short>(bits.start), static_cast<unsigned short>(bits.stop)),
            "RequestSignal", ResultKind::SignalRequest);
        StopCondition stop(wa->count, wa->duration);
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
                        report.channel, idText(w.target.id, w.target.extended).c_str(), bits.start, bits.stop, value,
                        value, age);
            std::fflush(stdout);
            ++shown;
        }
        unrequest(t, w.key);
        return kExitOk;
    });
}

} // namespace tool
