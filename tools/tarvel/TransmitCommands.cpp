// send, signal: transmit messages and the signals inside them.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "Commands.h"

namespace tool {
namespace {

struct SendArgs {
    std::string channel;
    std::string frame;
    unsigned period = 0;
};

struct SignalArgs {
    std::string message;
    std::string bits;
    std::vector<std::string> values;
    unsigned group = 0;
    bool cumulative = false;
    unsigned interval = 500;
};

// A message handler given as a number, or CHANNEL:ID of a message the device already sends.
bool byHandler(const std::string& text) {
    return text.find(':') == std::string::npos;
}

unsigned short handlerNumber(const std::string& text) {
    NumberRule rule = wholeNumber(0, 0xFFFC, true);
    rule.noun = "a message handler";
    return static_cast<unsigned short>(parseNumber(text, rule, "MESSAGE"));
}

unsigned short messageHandler(Tarvel& t, const std::string& text) {
    if (byHandler(text)) return handlerNumber(text);
    ChannelId target = parseChannelId(text);
    int h = check(t.GetHandler(static_cast<unsigned char>(target.channel), 0, target.id, target.extended, false, false),
                  "GetHandler can" + std::to_string(target.channel) + " " + idText(target.id, target.extended),
                  ResultKind::Message);
    return static_cast<unsigned short>(h);
}

int runSend(const GlobalOptions& options, const SendArgs& args) {
    unsigned channel = parseChannel(args.channel);
    CanFrameText frame = parseFrame(args.frame);
    Connection conn(options);
    Tarvel& t = conn.tarvel();
    tagCanMessage m{};
    m.dlc = frame.dlc;
    m.selector1 = static_cast<unsigned char>(channel);
    m.id = frame.id;
    m.idFlag = frame.extended;
    m.param1 = static_cast<unsigned short>(args.period);
    m.enabled = false;
    std::string what = "can" + std::to_string(channel) + " " + idText(frame.id, frame.extended);
    int handler = check(t.AddMessage(m, ByteVector(frame.data.begin(), frame.data.end())), "AddMessage " + what,
                        ResultKind::AddMessage);
    check(t.EnableMessage(static_cast<unsigned short>(handler)), "EnableMessage " + std::to_string(handler),
          ResultKind::Message);
    std::printf("handler: %d\n", handler);
    if (conn.simulated()) builtInNote("the message stops with this command");
    return kExitOk;
}

int runSignal(const GlobalOptions& options, const SignalArgs& args) {
    // Everything is checked before the device hears of it.
    if (byHandler(args.message))
        handlerNumber(args.message);
    else
        parseChannelId(args.message);
    BitRange bits = parseBitRange(args.bits, 16);
    const unsigned width = bits.stop - bits.start + 1;
    NumberRule fits = wholeNumber(0, (1u << width) - 1);
    fits.noun = "a value of " + std::to_string(width) + (width == 1 ? " bit" : " bits");
    std::vector<unsigned short> values;
    for (const auto& v : args.values)
        values.push_back(static_cast<unsigned short>(parseNumber(v, fits, "VALUE")));
    Connection conn(options);
    Tarvel& t = conn.tarvel();
    if (conn.simulated()) builtInNote("no message exists yet");
    unsigned short message = messageHandler(t, args.message);
    unsigned char flags = args.cumulative ? Tarvel::kSignalCumulative : 0;
    int handler =
        check(t.AddSignal(message, static_cast<unsigned char>(args.group), static_cast<unsigned short>(bits.start),
                          static_cast<unsigned short>(bits.stop), flags),
              "AddSignal to message " + std::to_string(message), ResultKind::Signal);
    std::printf("signal: handler %d in message %u, bits %u:%u\n", handler, message, bits.start, bits.stop);
    for (std::size_t i = 0; i < values.size() && !g_interrupted; ++i) {
        if (i != 0) std::this_thread::sleep_for(std::chrono::milliseconds(args.interval));
        check(t.SignalChangeValue(static_cast<unsigned short>(handler), values[i], true, true),
              "SignalChangeValue " + std::to_string(values[i]), ResultKind::Signal);
        std::printf("signal: value %u\n", values[i]);
        std::fflush(stdout);
    }
    return kExitOk;
}

} // namespace

void addTransmitCommands(CLI::App& app, CommandContext& ctx) {
    auto* send = app.add_subcommand("send", "Add a transmit message and switch it on; prints its handler");
    auto s = std::make_shared<SendArgs>();
    send->add_option("CHANNEL", s->channel, "CAN channel: 0..3 or can0..can3")->required();
    send->add_option("FRAME", s->frame,
                     "ID#DATA in hex, as cansend writes it (123#DEADBEEF; 8 hex digits: extended identifier)")
        ->required();
    send->add_option("--period", s->period, "Send every MS milliseconds (0: once, and again on every change)")
        ->capture_default_str()
        ->check(numberCheck(milliseconds(0, 65535)))
        ->type_name("MS");
    onRun(send, ctx, [&ctx, s] { return runSend(ctx.options, *s); });

    auto* signal = app.add_subcommand("signal", "Add a signal to a transmit message and give it values");
    auto sg = std::make_shared<SignalArgs>();
    signal->add_option("MESSAGE", sg->message, "Message handler, or CHANNEL:ID of a message the device sends")
        ->required();
    signal->add_option("BITS", sg->bits, "START:STOP, at most 16 bits, bit 0 = bit 0 of byte 0 (up to bit 511)")
        ->required();
    signal->add_option("VALUE", sg->values, "Values to set in turn (--interval apart); each must fit in BITS")
        ->required();
    signal->add_option("--group", sg->group, "Signal group")
        ->capture_default_str()
        ->check(numberCheck(wholeNumber(0, 255)))
        ->type_name("N");
    signal->add_flag("--cumulative", sg->cumulative,
                     "Cumulative signal: VALUE is added on every transmission (an alive counter)");
    signal->add_option("--interval", sg->interval, "Pause between two values in ms")
        ->capture_default_str()
        ->check(numberCheck(milliseconds(0, 3600000)))
        ->type_name("MS");
    onRun(signal, ctx, [&ctx, sg] { return runSignal(ctx.options, *sg); });
}

} // namespace tool
