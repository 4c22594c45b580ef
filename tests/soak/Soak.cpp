// tarvel_soak: one session under every fault of the simulator at once for a
// given time, with the receiver on and several threads exchanging commands
// (see Workers.h for what each does and which codes it expects).
//
//   tarvel_soak --seconds 60
//
// Prints the calls, the codes per operation, latency p50/p99/max, resident
// memory at the start, after the warm-up and at the end, descriptors and
// threads. Exit status: 0 sound; 1 a wrong result, an unexpected code,
// resident memory grown by more than 10 % after the warm-up, or a descriptor
// or thread left after the session is closed; 2 the simulator did not start;
// 3 no exchange finished for the watchdog's time (a deadlock).
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Process.h"
#include "ProcessCounts.h"
#include "Tally.h"
#include "TarvelAPI.h"
#include "Workers.h"

namespace {

using namespace soak;

struct Settings {
    unsigned seconds = 60;
    std::string simulator = TARVEL_SIM_PATH;
    unsigned answerWaitMs = 100;
    unsigned eepromWorkers = 2;
    unsigned watchdogSeconds = 30;
    std::string errorLog = "/dev/null";
};

constexpr double kResidentGrowth = 0.10;

// What the run measured besides the calls.
struct Measures {
    std::size_t residentStart = 0, residentWarm = 0, residentEnd = 0;
    ProcessCounts before, during, after;
    bool settled = false;
    TarvelStatistics statistics{};
    uint64_t flood = 0, fixed = 0, requested = 0, signal = 0; // reports taken, by kind
    uint64_t callbacks = 0;
    int connects = 0; // attempts, each a version query
    int disconnected = -1;
};

// The simulator, ended with the soak however it ends.
Process* g_simulator = nullptr;

// Asks tarvel-sim to end (SIGTERM, SIGKILL after 10 s); what it said on its
// error stream goes to the soak's.
void stopSimulator(Process& sim) {
    sim.signal(SIGTERM);
    std::fputs(sim.finish(10000).err.c_str(), stderr);
}

[[noreturn]] void deadlock(const Tally& tally, const std::string& what) {
    if (g_simulator != nullptr) stopSimulator(*g_simulator);
    std::printf("\nDEADLOCK: %s\n", what.c_str());
    tally.print(stdout);
    std::fflush(stdout);
    std::_Exit(3);
}

long long kB(std::size_t bytes) {
    return static_cast<long long>(bytes / 1024);
}

// Runs the workers on a connected session until the time is up.
void runWorkers(Tarvel& tarvel, const Settings& s, Tally& tally, Measures& m) {
    std::atomic<bool> stop{false};
    Context c{tarvel, tally, stop, {}};
    // The flood lands on the lowest request (its handler 0x001); the injected
    // 0x123 is requested for good. A lost answer does not matter: the device
    // has the request, and its reports carry no key.
    for (const auto& [channel, id] :
         {std::pair(traffic::kFloodChannel, traffic::kFloodId), std::pair(traffic::kFixedChannel, traffic::kFixedId)}) {
        exchangeWhere(
            c, "RequestReport", [](int code) { return code > 0 || code == -15; },
            [&, channel = channel, id = id] {
                return tarvel.RequestReport(1u << channel, id, false, false, 8, false, false, nullptr);
            });
    }

    std::vector<std::thread> workers;
    workers.emplace_back(deviceWorker, std::ref(c));
    for (unsigned i = 0; i < s.eepromWorkers; ++i)
        workers.emplace_back(eepromWorker, std::ref(c), static_cast<int>(i));
    workers.emplace_back(reportReader, std::ref(c));
    workers.emplace_back(requestWorker, std::ref(c));
    workers.emplace_back(signalWorker, std::ref(c));

    const Clock::time_point start = Clock::now();
    const auto run = std::chrono::seconds(s.seconds);
    const auto warmUp = std::clamp<Clock::duration>(run / 6, std::chrono::seconds(std::min(5u, s.seconds / 2)),
                                                    std::chrono::seconds(30));
    const auto watchdog = std::chrono::seconds(s.watchdogSeconds);
    Clock::time_point nextProgress = start + std::chrono::seconds(10);
    bool warm = false;
    while (Clock::now() < start + run) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const Clock::time_point now = Clock::now();
        if (now - tally.lastExchange() > watchdog)
            deadlock(tally, "no exchange finished for " + std::to_string(s.watchdogSeconds) + " s");
        if (!warm && now - start >= warmUp) {
            m.residentWarm = ProcessCounts::residentBytes();
            warm = true;
        }
        if (now >= nextProgress) {
            std::printf("%5lld s: %llu calls, %lld kB resident\n",
                        static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(now - start).count()),
                        static_cast<unsigned long long>(tally.calls()), kB(ProcessCounts::residentBytes()));
            nextProgress += std::chrono::seconds(10);
        }
    }
    m.residentEnd = ProcessCounts::residentBytes();
    m.during = ProcessCounts::now();

    // The workers end within their longest wait; a worker that does not is stuck.
    stop = true;
    std::mutex mutex;
    std::condition_variable joined;
    bool done = false;
    std::thread joiner([&] {
        for (auto& w : workers)
            w.join();
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        joined.notify_all();
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!joined.wait_for(lock, watchdog, [&] { return done; }))
            deadlock(tally, "the workers did not end within " + std::to_string(s.watchdogSeconds) + " s");
    }
    joiner.join();

    m.flood = c.book.flood;
    m.fixed = c.book.fixed;
    m.requested = c.book.requested;
    m.signal = c.book.signal;
}

// Connects (again while the version answer is lost), sets the session up for
// a noisy device, runs the workers and closes the session.
bool soakSession(const std::string& port, const Settings& s, Tally& tally, Measures& m) {
    auto tarvel = std::make_unique<Tarvel>();
    int connected = -1;
    for (int attempt = 0; attempt < 10 && connected != 0; ++attempt, ++m.connects)
        connected = tarvel->Connect(port, 1000, 1000);
    if (connected != 0) {
        std::printf("cannot connect to %s: %d\n", port.c_str(), connected);
        return false;
    }
    tarvel->SetReceiverErrorCounting(true);
    tarvel->SetAnswerWait(s.answerWaitMs);
    std::atomic<uint64_t> callbacks{0};
    tarvel->SetReportCallback([&](const TarvelReport&) { ++callbacks; });
    if (tarvel->StartReceiver() != 0) {
        std::printf("the receiver did not start\n");
        return false;
    }
    runWorkers(*tarvel, s, tally, m);
    m.callbacks = callbacks;
    m.statistics = tarvel->GetStatistics();
    tarvel->SetReportCallback(nullptr);
    tarvel->StopReceiver();
    m.disconnected = tarvel->Disconnect();
    return true;
}

void printStatistics(const TarvelStatistics& s) {
    auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
    std::printf("session: frames sent %llu, received %llu; refused: SLIP %llu, length %llu, checksum %llu; "
                "answers: command failed %llu, hardware error %llu; exchanges timed out %llu; reports received %llu, "
                "dropped %llu, bad channel %llu; writes dropped %llu; receiver ended %llu\n",
                u(s.framesSent), u(s.framesReceived), u(s.rejectedSlip), u(s.rejectedLength), u(s.rejectedChecksum),
                u(s.commandFailed), u(s.hardwareError), u(s.exchangesTimedOut), u(s.reportsReceived),
                u(s.reportsDropped), u(s.reportsBadChannel), u(s.writesDropped), u(s.receiverEnded));
}

} // namespace

int main(int argc, char** argv) {
    Settings s;
    CLI::App app{"Soak: one session against tarvel-sim with every fault at once, several threads exchanging "
                 "commands with the receiver on."};
    app.add_option("--seconds", s.seconds, "How long the workers run")->check(CLI::Range(1u, 86400u));
    app.add_option("--sim", s.simulator, "The simulator program")->check(CLI::ExistingFile);
    app.add_option("--answer-wait", s.answerWaitMs, "The session's answer wait in milliseconds")
        ->check(CLI::Range(1u, 65535u));
    app.add_option("--eeprom-workers", s.eepromWorkers, "Threads writing and reading the EEPROM")
        ->check(CLI::Range(1u, 8u));
    app.add_option("--watchdog", s.watchdogSeconds, "A deadlock: no exchange finished for this many seconds")
        ->check(CLI::Range(1u, 3600u));
    app.add_option("--error-log", s.errorLog, "Where the library's and the simulator's error output goes");
    CLI11_PARSE(app, argc, argv);

    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Measures m;
    m.residentStart = ProcessCounts::residentBytes();
    // The library reports every fault it meets on the error stream: thousands.
    const int log = ::open(s.errorLog.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (log < 0 || ::dup2(log, 2) < 0) {
        std::printf("cannot write %s\n", s.errorLog.c_str());
        return 2;
    }
    ::close(log);

    const std::vector<std::string> simArguments = traffic::simulatorArguments();
    std::vector<std::string> command{s.simulator};
    command.insert(command.end(), simArguments.begin(), simArguments.end());
    Process sim(command); // its own process: its memory and threads are not the soak's
    g_simulator = &sim;
    const std::string port = servedPort(sim);
    if (port.empty()) {
        std::printf("%s did not say which terminal it serves (it said: \"%s\")\n", s.simulator.c_str(),
                    sim.out().c_str());
        return 2;
    }
    std::string faults;
    for (const std::string& a : simArguments)
        faults += " " + a;
    std::printf("soak: %u s, %u workers, answer wait %u ms, on %s, tarvel-sim%s\n", s.seconds, 4 + s.eepromWorkers,
                s.answerWaitMs, port.c_str(), faults.c_str());

    Tally tally;
    m.before = ProcessCounts::baseline();
    const bool ran = soakSession(port, s, tally, m);
    m.settled = ProcessCounts::settlesTo(m.before);
    m.after = ProcessCounts::now();
    const bool simRan = sim.running();
    stopSimulator(sim);
    if (!ran) return 1;

    std::printf("\n");
    tally.print(stdout);
    printStatistics(m.statistics);
    auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
    std::printf("reports taken from the queue: flood %llu, 123 %llu, 18DAF1F1 %llu, 2A0 %llu; by the callback %llu\n",
                u(m.flood), u(m.fixed), u(m.requested), u(m.signal), u(m.callbacks));
    const double growth = m.residentWarm > 0 ? double(m.residentEnd) / double(m.residentWarm) - 1.0 : 0.0;
    std::printf("memory: resident %lld kB at the start, %lld kB after the warm-up, %lld kB at the end (%+.1f %%)\n",
                kB(m.residentStart), kB(m.residentWarm), kB(m.residentEnd), 100.0 * growth);
    std::printf("before the session %s; during it %s; after it %s\n", m.before.text().c_str(), m.during.text().c_str(),
                m.after.text().c_str());

    std::vector<std::string> verdicts;
    if (tally.failed()) verdicts.push_back("wrong results or unexpected codes (above)");
    if (growth > kResidentGrowth) verdicts.push_back("resident memory grew by more than 10 % after the warm-up");
    if (!m.settled) verdicts.push_back("descriptors or threads left after the session was closed");
    if (m.disconnected != 0) verdicts.push_back("Disconnect returned " + std::to_string(m.disconnected));
    if (m.statistics.receiverEnded != 0) verdicts.push_back("the receiver ended itself");
    if (m.statistics.writesDropped != 0) verdicts.push_back("writes were lost to a full write queue");
    // The session's own counts agree with what the calls saw: a frame per
    // command, a time-out per -15.
    const TarvelStatistics& st = m.statistics;
    if (st.framesSent != tally.exchanges() + unsigned(m.connects))
        verdicts.push_back("frames sent " + std::to_string(st.framesSent) + ", commands " +
                           std::to_string(tally.exchanges() + unsigned(m.connects)));
    if (st.exchangesTimedOut != tally.count(-15))
        verdicts.push_back("exchanges timed out " + std::to_string(st.exchangesTimedOut) +
                           ", calls that returned -15 " + std::to_string(tally.count(-15)));
    if (m.flood == 0 || m.fixed == 0 || m.requested == 0 || m.signal == 0)
        verdicts.push_back("a kind of report never came");
    if (m.callbacks == 0) verdicts.push_back("the report callback was never called");
    if (!simRan) verdicts.push_back("the simulator died");
    if (verdicts.empty()) {
        std::printf("result: sound\n");
        return 0;
    }
    std::printf("result: FAILED\n");
    for (const std::string& v : verdicts)
        std::printf("  %s\n", v.c_str());
    return 1;
}
