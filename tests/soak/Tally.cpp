#include "Tally.h"

#include <algorithm>
#include <cmath>

namespace soak {

namespace {
constexpr double kStep = 1.03; // bucket i holds [kStep^i, kStep^(i+1)) µs
} // namespace

double Tally::Operation::percentileUs(double p) const {
    const uint64_t wanted = static_cast<uint64_t>(std::ceil(p * static_cast<double>(count)));
    uint64_t seen = 0;
    for (std::size_t i = 0; i < buckets.size(); ++i) {
        seen += buckets[i];
        if (seen >= wanted && seen > 0) return std::min(std::pow(kStep, static_cast<double>(i + 1)), maxUs);
    }
    return maxUs;
}

void Tally::record(const char* operation, int code, Clock::duration took, bool expected, bool exchange) {
    const double us = std::chrono::duration<double, std::micro>(took).count();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Operation& op = m_operations[operation];
        ++op.codes[std::min(code, 1)];
        const double index = us < kStep ? 0 : std::floor(std::log(us) / std::log(kStep));
        ++op.buckets[std::min(static_cast<std::size_t>(index), op.buckets.size() - 1)];
        ++op.count;
        op.maxUs = std::max(op.maxUs, us);
    }
    ++m_calls;
    if (code == -15) ++m_timedOut;
    if (exchange) {
        ++m_exchanges;
        m_lastExchange = Clock::now().time_since_epoch().count();
    }
    if (!expected) fail(std::string(operation) + " returned " + std::to_string(code) + ", which is not expected");
}

void Tally::fail(const std::string& what) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failureTexts.size() < 20) m_failureTexts.push_back(what);
    ++m_failures;
}

void Tally::print(std::FILE* out) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::fprintf(out, "%-20s %9s %9s %9s %9s  %s\n", "operation", "calls", "p50 ms", "p99 ms", "max ms",
                 "codes (code x calls; 1: a count, handler or key)");
    for (const auto& [name, op] : m_operations) {
        std::string codes;
        for (const auto& [code, n] : op.codes)
            codes += (codes.empty() ? " " : ", ") + std::to_string(code) + " x " + std::to_string(n);
        std::fprintf(out, "%-20s %9llu %9.2f %9.2f %9.2f %s\n", name.c_str(), static_cast<unsigned long long>(op.count),
                     op.percentileUs(0.50) / 1000, op.percentileUs(0.99) / 1000, op.maxUs / 1000, codes.c_str());
    }
    if (m_failures > 0)
        std::fprintf(out, "%llu failures; the first ones:\n", static_cast<unsigned long long>(m_failures.load()));
    for (const std::string& text : m_failureTexts)
        std::fprintf(out, "  %s\n", text.c_str());
}

} // namespace soak
