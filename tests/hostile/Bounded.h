// Calls that must end: run on another thread and given up on (the test
// fails, and `unstick` lets the call return) when they hang.
#ifndef TARVEL_TEST_BOUNDED_H
#define TARVEL_TEST_BOUNDED_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>

namespace bounded {

using Clock = std::chrono::steady_clock;

// What a hanging call is given before the test calls it a hang.
constexpr std::chrono::seconds kHang(20);

inline long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// The result of `call` and how long it took, in milliseconds.
struct Timed {
    int result = 0;
    long long ms = 0;
};

inline Timed within(const std::function<int()>& call, const std::function<void()>& unstick) {
    const Clock::time_point start = Clock::now();
    auto result = std::async(std::launch::async, call);
    if (result.wait_for(kHang) != std::future_status::ready) {
        ADD_FAILURE() << "still running after " << kHang.count() << " s";
        unstick();
    }
    Timed t;
    t.result = result.get();
    t.ms = msSince(start);
    return t;
}

} // namespace bounded

#endif
