#include "Tally.h"

#include <algorithm>
#include <cmath>

namespace soak {

namespace {

constexpr double kStep = 1.03; // bucket i holds [kStep^i, kStep^(i+1)) µs

double ms(double us) {
    return us / 1000.0;
}

} // namespace

void Histogram::add(double us) {
    const double index = us < kStep ? 0 : std::floor(std::log(us) / std::log(kStep));
    ++m_buckets[std::min(static_cast<std::size_t>(index), kBuckets - 1)];
    ++m_count;
    m_maxUs = std::max(m_maxUs, us);
}

double Histogram::percentile(double p) const {
    const uint64_t wanted = static_cast<uint64_t>(std::ceil(p * static_cast<double>(m_count)));
    uint64_t seen = 0;
    for (std::size_t i = 0; i < kBuckets; ++i) {
        seen += m_buckets[i];
        if (seen >= wanted && seen > 0) return std::min(std::pow(kStep, static_cast<double>(i + 1)), m_maxUs);
    }
    return m_maxUs;
}

void Tally::record(const char* operation, int code, Clock::duration took, bool expected) {
    const double us = std::chrono::duration<double, std::micro>(took).count();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Operation& op = m_operations[operation];
        ++op.codes[code];
        op.latency.add(us);
    }
    ++m_calls;
    if (!expected) fail(std::string(operation) + " returned " + std::to_string(code) + ", which is not expected");
}

void Tally::recordExchange(const char* operation, int code, Clock::duration took, bool expected) {
    record(operation, code, took, expected);
    ++m_exchanges;
    m_lastExchange = Clock::now().time_since_epoch().count();
}

uint64_t Tally::count(int code) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    uint64_t n = 0;
    for (const auto& entry : m_operations) {
        const auto found = entry.second.codes.find(code);
        if (found != entry.second.codes.end()) n += found->second;
    }
    return n;
}

void Tally::fail(const std::string& what) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failureTexts.size() < kFailuresKept) m_failureTexts.push_back(what);
    ++m_failures;
}

void Tally::print(std::FILE* out) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::fprintf(out, "%-20s %9s %9s %9s %9s  %s\n", "operation", "calls", "p50 ms", "p99 ms", "max ms",
                 "codes (code x calls)");
    std::map<int, uint64_t> all;
    for (const auto& [name, op] : m_operations) {
        std::string codes;
        for (const auto& [code, n] : op.codes) {
            codes += " " + std::to_string(code) + " x " + std::to_string(n) + ",";
            all[code] += n;
        }
        if (!codes.empty()) codes.pop_back();
        const Histogram& h = op.latency;
        std::fprintf(out, "%-20s %9llu %9.2f %9.2f %9.2f %s\n", name.c_str(),
                     static_cast<unsigned long long>(h.count()), ms(h.percentile(0.50)), ms(h.percentile(0.99)),
                     ms(h.maxUs()), codes.c_str());
    }
    std::fprintf(out, "codes over all calls:");
    for (const auto& [code, n] : all)
        std::fprintf(out, " %d x %llu", code, static_cast<unsigned long long>(n));
    std::fprintf(out, "\n");
    if (m_failures > 0) {
        std::fprintf(out, "%llu failures; the first ones:\n", static_cast<unsigned long long>(m_failures.load()));
        for (const std::string& text : m_failureTexts)
            std::fprintf(out, "  %s\n", text.c_str());
    }
}

} // namespace soak
