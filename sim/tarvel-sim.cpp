// tarvel-sim: an emulated Tarvel device on a pseudo-terminal or a serial port.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tarvelsim/Simulator.h"

namespace {

// A frame put on the bus again and again, as another node on the bus would.
struct Injection {
    tarvelsim::BusFrame frame;
    std::chrono::milliseconds period{0};
};

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A hexadecimal number of 1 to maxDigits digits.
bool parseHex(const std::string& text, std::size_t maxDigits, uint32_t& value) {
    if (text.empty() || text.size() > maxDigits) return false;
    value = 0;
    for (char c : text) {
        const int d = hexDigit(c);
        if (d < 0) return false;
        value = value * 16 + static_cast<uint32_t>(d);
    }
    return true;
}

bool parseDecimal(const std::string& text, unsigned long max, unsigned long& value) {
    if (text.empty() || text.size() > 9) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<unsigned long>(c - '0');
    }
    return value <= max;
}

// CHANNEL:ID#HEXDATA[/FLAGS]@MS, e.g. 0:123#1021324354657687/80@20. Returns
// what is wrong with the text, or an empty string when it is sound.
std::string parseInjection(const std::string& text, Injection& out) {
    const std::size_t colon = text.find(':');
    const std::size_t hash = text.find('#');
    const std::size_t at = text.rfind('@');
    if (colon == std::string::npos || hash == std::string::npos || at == std::string::npos || colon > hash || hash > at)
        return "expected CHANNEL:ID#HEXDATA[/FLAGS]@MS";
    unsigned long channel = 0, period = 0;
    if (!parseDecimal(text.substr(0, colon), 3, channel)) return "channel must be 0 to 3";
    uint32_t id = 0;
    if (!parseHex(text.substr(colon + 1, hash - colon - 1), 8, id) || id > 0x1FFFFFFFu)
        return "identifier must be hexadecimal, at most 1FFFFFFF";
    std::string data = text.substr(hash + 1, at - hash - 1);
    uint32_t flags = 0;
    const std::size_t slash = data.find('/');
    if (slash != std::string::npos) {
        if (!parseHex(data.substr(slash + 1), 2, flags) || (flags & 0x0F) != 0)
            return "flags must be hexadecimal with bits 7..4 only (e.g. 80)";
        data.resize(slash);
    }
    if (data.size() % 2 != 0 || data.size() > 128) return "data must be 0 to 64 bytes in hexadecimal";
    tarvelsim::Bytes bytes;
    for (std::size_t i = 0; i < data.size(); i += 2) {
        const int hi = hexDigit(data[i]), lo = hexDigit(data[i + 1]);
        if (hi < 0 || lo < 0) return "data must be 0 to 64 bytes in hexadecimal";
        bytes.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    if (!parseDecimal(text.substr(at + 1), 3600000, period) || period == 0)
        return "period must be 1 to 3600000 milliseconds";
    out.frame.channel = static_cast<uint8_t>(channel);
    out.frame.id = id;
    out.frame.flags = static_cast<uint8_t>(flags);
    out.frame.data = std::move(bytes);
    out.period = std::chrono::milliseconds(period);
    return std::string();
}

// Puts the injected frames on the bus on their periods until stopped. A late
// wake-up skips the missed periods instead of bursting them.
class Injector {
public:
    Injector(tarvelsim::Simulator& sim, std::vector<Injection> injections)
        : m_sim(sim), m_injections(std::move(injections)) {
        if (!m_injections.empty()) m_thread = std::thread([this] { run(); });
    }
    ~Injector() { stop(); }

    void stop() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_cv.notify_all();
        if (m_thread.joinable()) m_thread.join();
    }

private:
    void run() {
        using Clock = std::chrono::steady_clock;
        std::vector<Clock::time_point> due(m_injections.size(), Clock::now());
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_stop) {
            const Clock::time_point now = Clock::now();
            for (std::size_t i = 0; i < m_injections.size(); ++i) {
                if (due[i] > now) continue;
                m_sim.injectFrame(m_injections[i].frame);
                due[i] += m_injections[i].period;
                if (due[i] <= now) due[i] = now + m_injections[i].period;
            }
            m_cv.wait_until(lock, *std::min_element(due.begin(), due.end()), [this] { return m_stop; });
        }
    }

    tarvelsim::Simulator& m_sim;
    std::vector<Injection> m_injections;
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace

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
    app.add_option("--boot-ms", options.bootTimeMs, "Deaf time after a restart, in milliseconds")
        ->capture_default_str();
    app.add_option("--capacity", options.capacity, "Transmit messages the device can hold")->capture_default_str();
    app.add_flag("-v,--verbose", options.verbose, "Log every packet on standard error");
    std::vector<std::string> injectSpecs;
    app.add_option("--inject", injectSpecs,
                   "Put a frame on the bus every MS milliseconds, as another node would: channel 0..3, "
                   "identifier and data in hexadecimal, optional flag bits 7..4 in hexadecimal "
                   "(e.g. 0:123#1021324354/80@20). Repeatable")
        ->type_name("CHANNEL:ID#HEXDATA[/FLAGS]@MS")
        ->check(CLI::Validator(
            [](std::string& text) {
                Injection unused;
                return parseInjection(text, unused);
            },
            "", "injection"));

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
    std::vector<Injection> injections(injectSpecs.size());
    for (std::size_t i = 0; i < injectSpecs.size(); ++i)
        parseInjection(injectSpecs[i], injections[i]);

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
    Injector injector(sim, std::move(injections));

    int signal = 0;
    sigwait(&stopSignals, &signal);
    injector.stop();
    sim.stop();
    if (options.verbose) std::fprintf(stderr, "tarvel-sim: stopped by signal %d\n", signal);
    return 0;
}
