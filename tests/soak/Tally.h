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

class Tally {
public:
    // Records a call that `expected` allows (false: counted as a failure); a
    // command exchange with the device is also the heartbeat. Positive codes
    // (a count, a handler, a key) are counted as 1.
    void record(const char* operation, int code, Clock::duration took, bool expected, bool exchange);
    // A wrong result; the first ones are kept word for word.
    void fail(const std::string& what);

    bool failed() const { return m_failures > 0; }
    uint64_t calls() const { return m_calls; }
    uint64_t exchanges() const { return m_exchanges; }
    uint64_t timedOut() const { return m_timedOut; } // calls that returned -15
    Clock::time_point lastExchange() const { return Clock::time_point(Clock::duration(m_lastExchange.load())); }

    // A table: calls, latency p50 / p99 / max and codes per operation, then the failures.
    void print(std::FILE* out) const;

private:
    // Latencies in buckets 3 % wide from 1 µs on: fixed memory however long the soak runs.
    struct Operation {
        std::map<int, uint64_t> codes;
        std::array<uint64_t, 800> buckets{};
        uint64_t count = 0;
        double maxUs = 0;
        double percentileUs(double p) const;
    };

    mutable std::mutex m_mutex;
    std::map<std::string, Operation> m_operations;
    std::vector<std::string> m_failureTexts;
    std::atomic<uint64_t> m_failures{0}, m_calls{0}, m_exchanges{0}, m_timedOut{0};
    std::atomic<Clock::rep> m_lastExchange{Clock::now().time_since_epoch().count()};
};

} // namespace soak

#endif
