// Session costs against the simulated device over a pseudo-terminal:
// Connect, one command exchange (Ping) with and without the receiver, and
// the same exchange over the bare terminal with no library in between (the
// floor an exchange is measured against).
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>

#include "TarvelAPI.h"
#include "tarvelsim/Simulator.h"

namespace {

std::unique_ptr<tarvelsim::Simulator> startSim(benchmark::State& state) {
    auto sim = std::make_unique<tarvelsim::Simulator>();
    if (!sim->start()) {
        state.SkipWithError(("simulator: " + sim->lastError()).c_str());
        return nullptr;
    }
    return sim;
}

void BM_Connect(benchmark::State& state) {
    auto sim = startSim(state);
    if (!sim) return;
    for (auto _ : state) {
        Tarvel tarvel;
        const auto begin = std::chrono::steady_clock::now();
        const int r = tarvel.Connect(sim->portPath(), 1000, 1000);
        const auto end = std::chrono::steady_clock::now();
        if (r != 0) {
            state.SkipWithError("Connect failed");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
        tarvel.Disconnect();
    }
}
BENCHMARK(BM_Connect)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

// arg 0: direct reading; arg 1: the receiver thread collects the answer.
void BM_PingExchange(benchmark::State& state) {
    auto sim = startSim(state);
    if (!sim) return;
    Tarvel tarvel;
    tarvel.ClearPrintStream();
    if (tarvel.Connect(sim->portPath(), 1000, 1000) != 0) {
        state.SkipWithError("Connect failed");
        return;
    }
    if (state.range(0) != 0 && tarvel.StartReceiver() != 0) {
        state.SkipWithError("StartReceiver failed");
        return;
    }
    // A loaded machine may stretch a round trip past the 50 ms answer wait;
    // such misses are counted rather than ending the run.
    int64_t failures = 0;
    int firstFailure = 0;
    for (auto _ : state) {
        const int r = tarvel.Ping();
        if (r != 0 && failures++ == 0) firstFailure = r;
    }
    state.counters["failures"] = static_cast<double>(failures);
    if (failures > 0)
        std::fprintf(stderr, "Ping failed %lld times, first with %d\n", (long long)failures, firstFailure);
    tarvel.StopReceiver();
    tarvel.Disconnect();
}
BENCHMARK(BM_PingExchange)->ArgName("receiver")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// The floor: write the Ping frame to the terminal and read the answer frame.
void BM_BarePtyRoundTrip(benchmark::State& state) {
    auto sim = startSim(state);
    if (!sim) return;
    const int fd = ::open(sim->portPath().c_str(), O_RDWR | O_NOCTTY);
    if (fd < 0) {
        state.SkipWithError("cannot open the terminal");
        return;
    }
    termios tio{};
    ::tcgetattr(fd, &tio);
    ::cfmakeraw(&tio);
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
    ::tcsetattr(fd, TCSANOW, &tio);
    ::tcflush(fd, TCIOFLUSH);

    const unsigned char ping[] = {0xC0, 0x01, 0x05, 0x09, 0x00, 0x0F, 0xC0};
    unsigned char buf[256];
    for (auto _ : state) {
        if (::write(fd, ping, sizeof ping) != static_cast<ssize_t>(sizeof ping)) {
            state.SkipWithError("write failed");
            break;
        }
        // Read until a frame with content has closed.
        std::size_t content = 0;
        bool open = false, done = false;
        while (!done) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 1000) <= 0) {
                state.SkipWithError("no answer");
                break;
            }
            const ssize_t n = ::read(fd, buf, sizeof buf);
            for (ssize_t i = 0; i < n && !done; ++i) {
                if (buf[i] != 0xC0) {
                    content += open ? 1 : 0;
                } else if (open && content > 0) {
                    done = true;
                } else {
                    open = true;
                    content = 0;
                }
            }
        }
        if (!done) break;
    }
    ::close(fd);
}
BENCHMARK(BM_BarePtyRoundTrip)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
