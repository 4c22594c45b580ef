// What the soak counts: calls and result codes per operation, their
// latencies, the wrong results it met, and when an exchange last finished
// (the watchdog's heartbeat). Safe to use from every worker thread.
#ifndef TARVEL_SOAK_TALLY_H
#define TARVEL_SOAK_TALLY_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace soak {

using Clock = std::chrono::steady_clock;

// Latencies in buckets 3 % wide, from 1 µs to beyond ten minutes: fixed
// memory however long the soak runs.
class Histogram {
public:
    void add(double us);
    // The latency below which a share p (0..1) of the calls finished, in µs
    // (the upper edge of its bucket).
    double percentile(double p) const;
    double maxUs() const { return m_maxUs; }
    uint64_t count() const { return m_count; }

private:
    static constexpr std::size_t kBuckets = 800;
    std::array<uint64_t, kBuckets> m_buckets{};
    uint64_t m_count = 0;
    double m_maxUs = 0;
};

class Tally {
public:
    // Records a call that `expected` allows (false: counted as a failure).
    void record(const char* operation, int code, Clock::duration took, bool expected);
    // The same for a command exchange with the device: also the heartbeat.
    void recordExchange(const char* operation, int code, Clock::duration took, bool expected);
    // A wrong result; the first ones are kept word for word.
    void fail(const std::string& what);

    bool failed() const { return m_failures.load() > 0; }
    uint64_t calls() const { return m_calls.load(); }
    uint64_t exchanges() const { return m_exchanges.load(); }
    // Calls of any operation that returned `code`.
    uint64_t count(int code) const;
    Clock::time_point lastExchange() const { return Clock::time_point(Clock::duration(m_lastExchange.load())); }

    // A table: calls, codes, latency p50 / p99 / max per operation, then the
    // codes over all and the failures.
    void print(std::FILE* out) const;

private:
    struct Operation {
        std::map<int, uint64_t> codes;
        Histogram latency;
    };
    static constexpr std::size_t kFailuresKept = 20;

    mutable std::mutex m_mutex;
    std::map<std::string, Operation> m_operations;
    std::vector<std::string> m_failureTexts;
    std::atomic<uint64_t> m_failures{0};
    std::atomic<uint64_t> m_calls{0};
    std::atomic<uint64_t> m_exchanges{0};
    std::atomic<Clock::rep> m_lastExchange{Clock::now().time_since_epoch().count()};
};

} // namespace soak

#endif
