// demo: a narrated tour of the library on the built-in simulated device.
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "Commands.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

class Narrator {
public:
    Narrator() {
        const char* term = std::getenv("TERM");
        m_colour = isTerminal(1) && std::getenv("NO_COLOR") == nullptr && !(term && std::strcmp(term, "dumb") == 0);
    }
    void step(const std::string& title) {
        std::printf("\n%s%d. %s%s\n", on("\033[1;36m"), ++m_step, title.c_str(), off());
    }
    void say(const std::string& text) { std::printf("   %s\n", text.c_str()); }
    // A library call and what it gave.
    void call(const std::string& call, const std::string& result) {
        std::printf("   %s%s%s -> %s%s%s\n", on("\033[33m"), call.c_str(), off(), on("\033[32m"), result.c_str(),
                    off());
    }
    void quote(const std::string& line) { std::printf("   %s| %s%s\n", on("\033[2m"), line.c_str(), off()); }
    void title(const std::string& text) { std::printf("%s%s%s\n", on("\033[1m"), text.c_str(), off()); }
    void flush() { std::fflush(stdout); }

private:
    const char* on(const char* code) const { return m_colour ? code : ""; }
    const char* off() const { return m_colour ? "\033[0m" : ""; }
    bool m_colour = false;
    int m_step = 0;
};

std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* format, ...) {
    char buffer[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return buffer;
}

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Reads a signal until it shows `expected` (the device sends the new value with
// its next transmission); false after the deadline.
bool readBack(Tarvel& t, unsigned short signal, unsigned long long expected, unsigned long long& value, unsigned& age) {
    auto deadline = Clock::now() + std::chrono::seconds(2);
    while (Clock::now() < deadline) {
        int r = t.SignalReadValue(signal, value, &age, true);
        if (r == 0 && value == expected) return true;
        if (r != 0 && r != -1) check(r, "SignalReadValue", ResultKind::SignalRead);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

int runDemo(CommandContext& ctx) {
    if (!ctx.options.port.empty())
        throw UsageError("demo runs on the built-in simulated device only (it writes the EEPROM); drop --port");
    auto begin = Clock::now();
    GlobalOptions options = ctx.options;
    bool ownTrace = options.trace.empty();
    if (ownTrace) {
        const char* dir = std::getenv("TMPDIR");
        options.trace =
            std::string(dir && *dir ? dir : "/tmp") + "/tarvel-demo-" + std::to_string(::getpid()) + ".trace";
    }

    Narrator n;
    n.title("Tarvel demo: the library at work on the built-in simulated device");
    n.say("Each 'Call(...) -> result' line is a call of the C++ API (class Tarvel) and what it returned.");

    n.step("Connect");
    Connection conn(options);
    Tarvel& t = conn.tarvel();
    n.say("A simulated device is serving the pseudo-terminal " + conn.portPath() + ".");
    n.call("DebugComm(\"" + options.trace + "\")", "every packet is traced to that file");
    n.call("Connect(\"" + conn.portPath() + "\", " + std::to_string(options.readTimeout) + ", " +
               std::to_string(options.writeTimeout) + ")",
           "0: connected at 2000000 baud, 8E1");
    int version = check(t.GetVersion(), "GetVersion");
    n.call("GetVersion()", fmt("%d (%s)", version, version == 100 ? "current feature level" : "older device"));
    auto pingStart = Clock::now();
    int status = check(t.Ping(), "Ping");
    n.call("Ping()", fmt("%d, answered in %.2f ms", status, msSince(pingStart)));
    n.flush();

    n.step("Device clock");
    long long time = 0;
    check(t.GetTime(&time), "GetTime");
    n.call("GetTime(&time)", fmt("0, time = %lld (ms since the device started)", time));
    check(t.SetTime(1000000), "SetTime");
    n.call("SetTime(1000000)", "0");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    check(t.GetTime(&time), "GetTime");
    n.call("GetTime(&time) 100 ms later", fmt("0, time = %lld: the clock runs on", time));
    n.flush();

    n.step("EEPROM round trip");
    const char text[] = "Hello, Tarvel!!";
    std::vector<unsigned char> written(text, text + 16);
    check(t.WriteEeprom(0x100, 16, written.data()), "WriteEeprom", ResultKind::Eeprom);
    n.call("WriteEeprom(0x100, 16, \"Hello, Tarvel!!\")", "0");
    std::vector<unsigned char> back(16);
    check(t.ReadEeprom(0x100, 16, back.data()), "ReadEeprom", ResultKind::Eeprom);
    n.call("ReadEeprom(0x100, 16, data)", "0, " + hexBytes(back.data(), back.size()));
    n.say(back == written ? "The same 16 bytes came back." : "The bytes differ!");
    if (back != written) throw std::runtime_error("the EEPROM round trip returned other bytes");
    n.flush();

    n.step("A transmit message with an alive counter and a signal");
    tagCanMessage m{};
    m.dlc = 8;
    m.selector1 = 0; // channel 0
    m.id = 0x123;
    m.param1 = 20; // every 20 ms
    m.enabled = true;
    int message = check(t.AddMessage(m), "AddMessage", ResultKind::AddMessage);
    n.call("AddMessage({id 0x123, channel 0, 8 bytes, every 20 ms, enabled})", fmt("handler %d", message));
    int alive = check(t.AddSignal(static_cast<unsigned short>(message), 1, 0, 7, Tarvel::kSignalCumulative),
                      "AddSignal alive", ResultKind::Signal);
    n.call(fmt("AddSignal(%d, group 1, bits 0..7, kSignalCumulative)", message), fmt("signal handler %d", alive));
    check(t.SignalChangeValue(static_cast<unsigned short>(alive), 1, true, true), "SignalChangeValue alive",
          ResultKind::Signal);
    n.call(fmt("SignalChangeValue(%d, 1, now)", alive), "0: the counter grows by 1 with every transmission");
    int speed =
        check(t.AddSignal(static_cast<unsigned short>(message), 2, 16, 31, 0), "AddSignal speed", ResultKind::Signal);
    n.call(fmt("AddSignal(%d, group 2, bits 16..31, 0)", message), fmt("signal handler %d (call it speed)", speed));
    check(t.SignalChangeValue(static_cast<unsigned short>(speed), 1000, true, true), "SignalChangeValue speed",
          ResultKind::Signal);
    n.call(fmt("SignalChangeValue(%d, 1000, now)", speed), "0");
    n.flush();

    n.step("A request for the same identifier");
    conn.startReceiver();
    n.call("StartReceiver()", "0: a thread now files every report the device sends");
    int key = check(t.RequestReport(0x01, 0x123, false, false, 8, false, false, nullptr), "RequestReport",
                    ResultKind::Request);
    n.call("RequestReport(channel mask 0x01, 0x123, standard, ...)",
           fmt("request key 0x%06X", static_cast<unsigned>(key)));
    int aliveRead = check(t.RequestSignal(key, 0, 7), "RequestSignal", ResultKind::SignalRequest);
    int speedRead = check(t.RequestSignal(key, 16, 31), "RequestSignal", ResultKind::SignalRequest);
    n.call("RequestSignal(key, 0, 7) and RequestSignal(key, 16, 31)", fmt("handles %d and %d", aliveRead, speedRead));
    TarvelReport report{};
    if (t.WaitReport(report, 3000) != 1) throw OperationError("WaitReport", 0, ResultKind::SignalRead);
    n.call("WaitReport(report, 3000 ms)", "the first report, as candump prints it:");
    n.quote(candumpLine(report));
    n.flush();

    n.step("The signal changes, and is read back live");
    unsigned long long before = 0, count = 0, value = 0;
    unsigned age = 0;
    check(t.SignalReadValue(static_cast<unsigned short>(aliveRead), before, &age, true), "SignalReadValue",
          ResultKind::SignalRead);
    for (unsigned short next : {1500, 2500, 4000, 6500}) {
        check(t.SignalChangeValue(static_cast<unsigned short>(speed), next, true, true), "SignalChangeValue",
              ResultKind::Signal);
        if (!readBack(t, static_cast<unsigned short>(speedRead), next, value, age))
            throw std::runtime_error(fmt("the value %u did not come back from the bus", next));
        check(t.SignalReadValue(static_cast<unsigned short>(aliveRead), count, nullptr, true), "SignalReadValue",
              ResultKind::SignalRead);
        n.call(fmt("SignalChangeValue(%d, %4u); SignalReadValue(%d)", speed, next, speedRead),
               fmt("%4llu, age %2u ms; alive counter %3llu", value, age, count));
        n.flush();
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    }
    n.say(fmt("The alive counter went from %llu to %llu: one step per transmission, every 20 ms, wrapping at 256.",
              before, count));
    t.RemoveRequest(static_cast<unsigned short>(key & 0xFFFF));
    t.StopReceiver();

    n.step("The communication trace");
    conn.closeTrace();
    std::ifstream trace(options.trace);
    std::vector<std::string> lines;
    std::size_t sent = 0, received = 0;
    for (std::string line; std::getline(trace, line);) {
        if (line.find(":>> ") != std::string::npos) ++sent;
        if (line.find(":<< ") != std::string::npos) ++received;
        if (lines.size() < 4 && (line.find(":>> ") != std::string::npos || line.find(":<< ") != std::string::npos))
            lines.push_back(line);
    }
    n.say(fmt("%s: %zu packets sent, %zu received; the first ones:", options.trace.c_str(), sent, received));
    for (const auto& line : lines)
        n.quote(line);
    n.say("(time in ms, >> host to device, << device to host: length, message id, command or answer, data, sum16)");
    if (ownTrace) std::remove(options.trace.c_str());

    n.step("Done");
    n.say(fmt("The tour took %.1f s. Next: 'tarvel --help', or 'tarvel sim' and '--port' for your own session.",
              msSince(begin) / 1000.0));
    n.flush();
    return kExitOk;
}

} // namespace

void addDemoCommand(CLI::App& app, CommandContext& ctx) {
    auto* demo = app.add_subcommand("demo", "A narrated tour of the library on the built-in simulated device");
    onRun(demo, ctx, [&ctx] { return runDemo(ctx); });
}

} // namespace tool
