// Waiting in tests: poll a condition with a generous deadline, never a fixed
// sleep, so that a loaded machine only makes a test slower; bound a call that
// must return.
#ifndef TARVEL_TEST_WAIT_H
#define TARVEL_TEST_WAIT_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

// Polls `condition` until it holds (true) or `timeoutMs` has passed (false).
inline bool eventually(const std::function<bool()>& condition, int timeoutMs = 10000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Milliseconds since `start`, for a call that must end within a bound.
inline long long msSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

// Runs `call` on another thread and returns what it returns; when it has not
// returned within `limit`, fails the test and lets it return through `unstick`.
template <class F> auto within(std::chrono::seconds limit, F call, const std::function<void()>& unstick) {
    auto result = std::async(std::launch::async, call);
    if (result.wait_for(limit) != std::future_status::ready) {
        ADD_FAILURE() << "still running after " << limit.count() << " s";
        unstick();
    }
    return result.get();
}

#endif
