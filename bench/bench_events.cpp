// Reception as events over a pseudo-terminal, the bench playing the device:
// the time from the last byte of a report on the line to WaitReport returning
// and to the callback being called, against the bare terminal's one-way time
// (a thread blocked reading the other end) in the same run; and reports per
// second through the queue with nothing dropped.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "Pty.h"
#include "TarvelAPI.h"
#include "protocol/Packet.h"
#include "serial/SlipCodec.h"

namespace {

using Clock = std::chrono::steady_clock;

ByteVector frame(uint8_t messageId, uint8_t response, const ByteVector& data) {
    const ByteVector packet = tarvel::buildPacket(messageId, response, data);
    ByteVector out(tarvel::slip::encodeBound(packet.size()));
    out.resize(tarvel::slip::encode(packet.data(), packet.size(), out.data()));
    return out;
}

// A report of 0x123 on channel 0 with 8 data bytes.
ByteVector reportFrame(uint32_t seq) {
    return frame(
        0, Tarvel::ASYNC_MESSAGE,
        {0x01, 0x23, 0x08, uint8_t(seq >> 24), uint8_t(seq >> 16), uint8_t(seq >> 8), uint8_t(seq), 0, 0, 0, 0});
}

// Connects through the terminal, answering the version query as a device would.
bool connect(Tarvel& tarvel, Pty& pty) {
    tarvel.ClearPrintStream();
    auto connecting = std::async(std::launch::async, [&] { return tarvel.Connect(pty.slavePath(), 1000, 1000); });
    const ByteVector query = pty.read(8); // C0 02 05 20 03 00 2A C0
    if (query.size() != 8 || !pty.write(frame(query[2], Tarvel::OK, {0, 0}))) return false;
    return connecting.get() == 0 && tarvel.StartReceiver() == 0;
}

void seconds(benchmark::State& state, Clock::time_point from, Clock::time_point to) {
    state.SetIterationTime(std::chrono::duration<double>(to - from).count());
}

// arg 0: WaitReport returns; arg 1: the callback is called.
void BM_ReportLatency(benchmark::State& state) {
    Pty pty;
    Tarvel tarvel;
    if (!connect(tarvel, pty)) {
        state.SkipWithError("connect failed");
        return;
    }
    const bool callback = state.range(0) == 1;
    std::atomic<int64_t> calledAt{0};
    if (callback) {
        tarvel.SetReportQueue(0);
        tarvel.SetReportCallback([&](const TarvelReport&) { calledAt = Clock::now().time_since_epoch().count(); });
    }
    const ByteVector report = reportFrame(1);
    TarvelReport r{};
    for (auto _ : state) {
        calledAt = 0;
        if (!pty.write(report)) {
            state.SkipWithError("write failed");
            break;
        }
        const auto written = Clock::now();
        if (callback) {
            while (calledAt.load() == 0)
                std::this_thread::yield();
            seconds(state, written, Clock::time_point(Clock::duration(calledAt.load())));
        } else {
            if (tarvel.WaitReport(r, 1000) != 1) {
                state.SkipWithError("no report");
                break;
            }
            seconds(state, written, Clock::now());
        }
    }
    tarvel.SetReportCallback(nullptr, nullptr);
    tarvel.StopReceiver();
}
BENCHMARK(BM_ReportLatency)->ArgName("callback")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The floor: the same frame from the master to a thread blocked in poll and
// read on the slave, as the receiver is.
void BM_BarePtyOneWay(benchmark::State& state) {
    Pty pty;
    const int fd = ::open(pty.slavePath().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        state.SkipWithError("cannot open the terminal");
        return;
    }
    const ByteVector report = reportFrame(1);
    std::atomic<int64_t> readAt{0};
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        unsigned char buf[256];
        std::size_t got = 0;
        while (!stop) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 100) <= 0) continue;
            const ssize_t n = ::read(fd, buf, sizeof buf);
            if (n > 0 && (got += std::size_t(n)) >= report.size()) {
                got = 0;
                readAt = Clock::now().time_since_epoch().count();
            }
        }
    });
    for (auto _ : state) {
        readAt = 0;
        pty.write(report);
        const auto written = Clock::now();
        while (readAt.load() == 0)
            std::this_thread::yield();
        seconds(state, written, Clock::time_point(Clock::duration(readAt.load())));
    }
    stop = true;
    reader.join();
    ::close(fd);
}
BENCHMARK(BM_BarePtyOneWay)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Reports per second from the line to WaitReports, none dropped.
void BM_ReportThroughput(benchmark::State& state) {
    Pty pty;
    Tarvel tarvel;
    if (!connect(tarvel, pty)) {
        state.SkipWithError("connect failed");
        return;
    }
    const uint32_t perRound = 20000;
    tarvel.SetReportQueue(perRound);
    ByteVector stream;
    for (uint32_t i = 0; i < perRound; ++i) {
        const ByteVector f = reportFrame(i);
        stream.insert(stream.end(), f.begin(), f.end());
    }
    std::vector<TarvelReport> batch(512);
    for (auto _ : state) {
        auto writer = std::async(std::launch::async, [&] { return pty.write(stream, 30000); });
        uint32_t got = 0;
        while (got < perRound) {
            const int n = tarvel.WaitReports(batch.data(), unsigned(batch.size()), 5000);
            if (n <= 0) break;
            got += uint32_t(n);
        }
        if (!writer.get() || got != perRound) {
            state.SkipWithError("reports missing");
            break;
        }
    }
    const TarvelStatistics s = tarvel.GetStatistics();
    if (s.reportsDropped != 0) state.SkipWithError("reports were dropped");
    state.SetItemsProcessed(int64_t(state.iterations()) * perRound);
    state.counters["dropped"] = double(s.reportsDropped);
    tarvel.StopReceiver();
}
BENCHMARK(BM_ReportThroughput)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
BENCHMARK_MAIN();
