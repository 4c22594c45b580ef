// Waiting for a condition in tests: poll with a generous deadline, never a
// fixed sleep, so that a loaded machine only makes a test slower.
#ifndef TARVEL_TEST_WAIT_H
#define TARVEL_TEST_WAIT_H

#include <chrono>
#include <functional>
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

#endif
