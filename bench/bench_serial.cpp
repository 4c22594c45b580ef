// Serial transport throughput: SLIP encoding and decoding in memory, and
// frames received through SlipReceive over a pseudo-terminal compared with
// the raw throughput of the same kind of pseudo-terminal read in large
// chunks. Also the latency of the first queued write after a connect.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "Pty.h"
#include "SerialPort.h"
#include "serial/SlipCodec.h"

namespace {

const std::size_t kPayload = 24; // a typical device packet

ByteVector randomPayload(std::size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    ByteVector v(n);
    for (auto& b : v)
        b = static_cast<unsigned char>(rng());
    return v;
}

// Many frames back to back, as they come down the line.
ByteVector frameStream(std::size_t frames, std::size_t payload) {
    ByteVector wire;
    ByteVector frame(tarvel::slip::encodeBound(payload));
    for (std::size_t i = 0; i < frames; ++i) {
        ByteVector p = randomPayload(payload, static_cast<unsigned>(i));
        std::size_t n = tarvel::slip::encode(p.data(), p.size(), frame.data());
        wire.insert(wire.end(), frame.begin(), frame.begin() + static_cast<long>(n));
    }
    return wire;
}

void BM_SlipEncode(benchmark::State& state) {
    const ByteVector payload = randomPayload(static_cast<std::size_t>(state.range(0)), 1);
    ByteVector out(tarvel::slip::encodeBound(payload.size()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(tarvel::slip::encode(payload.data(), payload.size(), out.data()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * payload.size()));
}
BENCHMARK(BM_SlipEncode)->Arg(kPayload)->Arg(254)->Arg(4096);

void BM_SlipDecodeMemory(benchmark::State& state) {
    const ByteVector wire = frameStream(1024, static_cast<std::size_t>(state.range(0)));
    std::size_t pos = 0;
    auto readOne = [&](unsigned char* b) {
        if (pos == wire.size()) pos = 0;
        *b = wire[pos++];
        return 1;
    };
    ByteVector buffer;
    int64_t frames = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tarvel::slip::decode(readOne, buffer, 1024, false, true));
        ++frames;
    }
    state.SetItemsProcessed(frames);
    state.SetBytesProcessed(
        static_cast<int64_t>(static_cast<double>(frames) * static_cast<double>(wire.size()) / 1024.0));
}
BENCHMARK(BM_SlipDecodeMemory)->Arg(kPayload)->Arg(254);

// Feeds a pseudo-terminal's master with the frame stream until stopped.
class Feeder {
public:
    Feeder(Pty& pty, const ByteVector& wire) : m_thread([this, &pty, &wire] { run(pty, wire); }) {}
    ~Feeder() {
        m_stop = true;
        m_thread.join();
    }

private:
    void run(Pty& pty, const ByteVector& wire) {
        std::size_t pos = 0;
        while (!m_stop) {
            const ssize_t put = ::write(pty.masterFd(), wire.data() + pos, wire.size() - pos);
            if (put > 0) {
                pos = (pos + static_cast<std::size_t>(put)) % wire.size();
                continue;
            }
            pollfd fd = {pty.masterFd(), POLLOUT, 0};
            ::poll(&fd, 1, 10);
        }
    }
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

void BM_PtyRawRead(benchmark::State& state) {
    Pty pty;
    const ByteVector wire = frameStream(4096, kPayload);
    const int fd = ::open(pty.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        state.SkipWithError("cannot open the slave");
        return;
    }
    Feeder feeder(pty, wire);
    ByteVector chunk(1 << 16);
    int64_t bytes = 0;
    for (auto _ : state) {
        const ssize_t got = ::read(fd, chunk.data(), chunk.size());
        if (got <= 0) {
            state.SkipWithError("read failed");
            break;
        }
        bytes += got;
    }
    state.SetBytesProcessed(bytes);
    ::close(fd);
}
BENCHMARK(BM_PtyRawRead)->UseRealTime();

void BM_PtySlipReceive(benchmark::State& state) {
    Pty pty;
    const ByteVector wire = frameStream(4096, kPayload);
    SerialPort port;
    if (port.Connect(pty.slavePath(), 2000000, 8, 0, 2) != 0 || port.SetTimeout(5000, 5000) != 0) {
        state.SkipWithError("cannot connect");
        return;
    }
    Feeder feeder(pty, wire);
    ByteVector buffer;
    int64_t frames = 0;
    for (auto _ : state) {
        if (port.SlipReceive(buffer, 255, 1) <= 0) {
            state.SkipWithError("SlipReceive failed");
            break;
        }
        ++frames;
    }
    state.SetItemsProcessed(frames);
    state.SetBytesProcessed(
        static_cast<int64_t>(static_cast<double>(frames) * static_cast<double>(wire.size()) / 4096.0));
    port.Disconnect();
}
BENCHMARK(BM_PtySlipReceive)->UseRealTime();

// Connect, the first queued write (which starts the sender thread), disconnect.
void BM_FirstQueuedWriteAfterConnect(benchmark::State& state) {
    Pty pty;
    SerialPort port;
    unsigned char byte = 0x55;
    for (auto _ : state) {
        state.PauseTiming();
        if (port.Connect(pty.slavePath(), 2000000, 8, 0, 2) != 0 || port.SetTimeout(1000, 1000) != 0) {
            state.SkipWithError("cannot connect");
            break;
        }
        state.ResumeTiming();
        if (port.WriteByteNonblock(&byte, 1) != 1) state.SkipWithError("queued write failed");
        state.PauseTiming();
        port.Disconnect();
        pty.drain();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FirstQueuedWriteAfterConnect)->Unit(benchmark::kMicrosecond)->Iterations(50);

} // namespace

BENCHMARK_MAIN();
