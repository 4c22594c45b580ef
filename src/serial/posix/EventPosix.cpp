// Manual-reset events on a mutex and a condition variable. POSIX has no named
// events, so each one belongs to the port that made it.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

#include "serial/PortDevice.h"

namespace tarvel {

class PortEvent {
public:
    std::mutex mutex;
    std::condition_variable changed;
    bool signalled = false;
};

namespace event {

PortEvent* create(const char* /*name*/) {
    return new (std::nothrow) PortEvent;
}

bool set(PortEvent* e) {
    if (e == nullptr) return false;
    {
        std::lock_guard<std::mutex> lock(e->mutex);
        e->signalled = true;
    }
    e->changed.notify_all();
    return true;
}

bool reset(PortEvent* e) {
    if (e == nullptr) return false;
    std::lock_guard<std::mutex> lock(e->mutex);
    e->signalled = false;
    return true;
}

unsigned long wait(PortEvent* e, uint32_t timeoutMs) {
    if (e == nullptr) return kFailed;
    std::unique_lock<std::mutex> lock(e->mutex);
    if (timeoutMs == kWaitForever) {
        e->changed.wait(lock, [e] { return e->signalled; });
        return kSignalled;
    }
    const bool got = e->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [e] { return e->signalled; });
    return got ? kSignalled : kTimeout;
}

void close(PortEvent* e) {
    delete e;
}

} // namespace event
} // namespace tarvel
