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
#include <cstdio>
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

constexpr unsigned kEepromWorkers = 2;
constexpr unsigned short kAnswerWaitMs = 100;

// Asks tarvel-sim to end (SIGTERM, SIGKILL after 10 s); what it said on its
// error stream goes to the soak's.
void stopSimulator(Process& sim) {
    sim.signal(SIGTERM);
    std::fputs(sim.finish(10000).err.c_str(), stderr);
}

} // namespace

int main(int argc, char** argv) {
    unsigned seconds = 60, watchdogSeconds = 30;
    std::string simulator = TARVEL_SIM_PATH, errorLog = "/dev/null";
    CLI::App app{"Soak: one session against tarvel-sim with every fault at once, several threads exchanging "
                 "commands with the receiver on."};
    app.add_option("--seconds", seconds, "How long the workers run")->check(CLI::Range(1u, 86400u));
    app.add_option("--sim", simulator, "The simulator program")->check(CLI::ExistingFile);
    app.add_option("--watchdog", watchdogSeconds, "A deadlock: no exchange finished for this many seconds")
        ->check(CLI::Range(1u, 3600u));
    app.add_option("--error-log", errorLog, "Where the library's and the simulator's error output goes");
    CLI11_PARSE(app, argc, argv);

    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    auto kB = [](std::size_t bytes) { return static_cast<long long>(bytes / 1024); };
    const std::size_t residentStart = ProcessCounts::residentBytes();
    // The library reports every fault it meets on the error stream: thousands.
    const int log = ::open(errorLog.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (log < 0 || ::dup2(log, 2) < 0) {
        std::printf("cannot write %s\n", errorLog.c_str());
        return 2;
    }
    ::close(log);

    std::vector<std::string> command{simulator};
    command.insert(command.end(), traffic::kSimulatorArguments.begin(), traffic::kSimulatorArguments.end());
    Process sim(command); // its own process: its memory and threads are not the soak's
    const std::string port = servedPort(sim);
    if (port.empty()) {
        std::printf("%s did not say which terminal it serves (it said: \"%s\")\n", simulator.c_str(),
                    sim.out().c_str());
        return 2;
    }
    std::printf("soak: %u s, %u workers, answer wait %u ms, on %s, tarvel-sim", seconds, 3 + kEepromWorkers,
                kAnswerWaitMs, port.c_str());
    for (const std::string& a : traffic::kSimulatorArguments)
        std::printf(" %s", a.c_str());
    std::printf("\n");

    Tally tally;
    const ProcessCounts before = ProcessCounts::baseline();
    // Connects (again while the version answer is lost) and sets the session up for a noisy device.
    auto tarvel = std::make_unique<Tarvel>();
    int connected = -1, connects = 0;
    for (; connects < 10 && connected != 0; ++connects)
        connected = tarvel->Connect(port, 1000, 1000);
    tarvel->SetReceiverErrorCounting(true);
    tarvel->SetAnswerWait(kAnswerWaitMs);
    std::atomic<uint64_t> callbacks{0};
    tarvel->SetReportCallback([&](const TarvelReport&) { ++callbacks; });
    if (connected != 0 || tarvel->StartReceiver() != 0) {
        std::printf("cannot connect to %s (%d), or the receiver did not start\n", port.c_str(), connected);
        stopSimulator(sim);
        return 1;
    }
    // The watchdog: no exchange finished for its time, while the workers run or end, is a deadlock.
    std::atomic<bool> stop{false}, closed{false};
    std::thread watchdog([&] {
        while (!closed) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (closed || Clock::now() - tally.lastExchange() <= std::chrono::seconds(watchdogSeconds)) continue;
            stopSimulator(sim);
            std::printf("\nDEADLOCK: no exchange finished for %u s\n", watchdogSeconds);
            tally.print(stdout);
            std::fflush(stdout);
            std::_Exit(3);
        }
    });

    Context c{*tarvel, tally, stop, {}};
    // The flood lands on the lowest request (handler 0x001); the injected frames are requested for good. A
    // lost answer does not matter: the device has the request, and its reports carry no key.
    for (const auto& [channel, id] :
         {std::pair(traffic::kFloodChannel, traffic::kFloodId), std::pair(traffic::kFixedChannel, traffic::kFixedId),
          std::pair(traffic::kExtendedChannel, traffic::kExtendedId)})
        timed(c, "RequestReport", {kPositive, -15}, [&, channel = channel, id = id] {
            return tarvel->RequestReport(1u << channel, id, id > 0x7FF, false, 8, false, false, nullptr);
        });
    std::vector<std::thread> workers;
    workers.emplace_back(deviceWorker, std::ref(c));
    for (unsigned i = 0; i < kEepromWorkers; ++i)
        workers.emplace_back(eepromWorker, std::ref(c), static_cast<int>(i));
    workers.emplace_back(reportReader, std::ref(c));
    workers.emplace_back(signalWorker, std::ref(c));

    // Resident memory after the warm-up (a sixth of the run, 1 to 30 s) and at the end; progress every 10 s.
    const Clock::time_point start = Clock::now();
    const unsigned warmUp = std::clamp(seconds / 6, 1u, 30u);
    std::size_t residentWarm = 0;
    for (unsigned s = 1; s <= seconds; ++s) {
        std::this_thread::sleep_until(start + std::chrono::seconds(s));
        if (s == warmUp) residentWarm = ProcessCounts::residentBytes();
        if (s % 10 == 0)
            std::printf("%5u s: %llu calls, %lld kB resident\n", s, static_cast<unsigned long long>(tally.calls()),
                        kB(ProcessCounts::residentBytes()));
    }
    const std::size_t residentEnd = ProcessCounts::residentBytes();
    const ProcessCounts during = ProcessCounts::now();
    stop = true; // the workers end within their longest wait; the watchdog tells one that does not
    for (auto& w : workers)
        w.join();
    const TarvelStatistics st = tarvel->GetStatistics();
    tarvel->SetReportCallback(nullptr);
    tarvel->StopReceiver();
    const int disconnected = tarvel->Disconnect();
    tarvel.reset();
    closed = true;
    watchdog.join();
    const bool settled = ProcessCounts::settlesTo(before);
    const ProcessCounts after = ProcessCounts::now();
    const bool simRan = sim.running();
    stopSimulator(sim);

    std::printf("\n");
    tally.print(stdout);
    auto u = [](uint64_t v) { return static_cast<unsigned long long>(v); };
    std::printf("session: frames sent %llu, received %llu; refused: SLIP %llu, length %llu, checksum %llu; "
                "answers: command failed %llu, hardware error %llu; exchanges timed out %llu; reports received %llu, "
                "dropped %llu, bad channel %llu; writes dropped %llu; receiver ended %llu\n",
                u(st.framesSent), u(st.framesReceived), u(st.rejectedSlip), u(st.rejectedLength),
                u(st.rejectedChecksum), u(st.commandFailed), u(st.hardwareError), u(st.exchangesTimedOut),
                u(st.reportsReceived), u(st.reportsDropped), u(st.reportsBadChannel), u(st.writesDropped),
                u(st.receiverEnded));
    std::printf("reports taken from the queue: flood %llu, 123 %llu, 18DAF1F1 %llu, 2A0 %llu; by the callback %llu\n",
                u(c.book.flood), u(c.book.fixed), u(c.book.extended), u(c.book.signal), u(callbacks));
    const double growth = residentWarm > 0 ? double(residentEnd) / double(residentWarm) - 1.0 : 0.0;
    std::printf("memory: resident %lld kB at the start, %lld kB after the warm-up, %lld kB at the end (%+.1f %%)\n",
                kB(residentStart), kB(residentWarm), kB(residentEnd), 100.0 * growth);
    std::printf("before the session %s; during it %s; after it %s\n", before.text().c_str(), during.text().c_str(),
                after.text().c_str());

    std::vector<std::string> verdicts;
    auto check = [&](bool sound, const std::string& otherwise) {
        if (!sound) verdicts.push_back(otherwise);
    };
    check(!tally.failed(), "wrong results or unexpected codes (above)");
    check(growth <= 0.10, "resident memory grew by more than 10 % after the warm-up");
    check(settled, "descriptors or threads left after the session was closed");
    check(disconnected == 0, "Disconnect returned " + std::to_string(disconnected));
    check(st.receiverEnded == 0, "the receiver ended itself");
    check(st.writesDropped == 0, "writes were lost to a full write queue");
    // The session's own counts agree with what the calls saw: a frame per command, a time-out per -15.
    const uint64_t commands = tally.exchanges() + unsigned(connects);
    std::printf("calls: %llu commands, %llu of them -15\n", u(commands), u(tally.timedOut()));
    check(st.framesSent == commands && st.exchangesTimedOut == tally.timedOut(), "statistics disagree with the calls");
    check(c.book.flood && c.book.fixed && c.book.extended && c.book.signal, "a kind of report never came");
    check(callbacks > 0, "the report callback was never called");
    check(simRan, "the simulator died");
    std::printf("result: %s\n", verdicts.empty() ? "sound" : "FAILED");
    for (const std::string& v : verdicts)
        std::printf("  %s\n", v.c_str());
    return verdicts.empty() ? 0 : 1;
}
