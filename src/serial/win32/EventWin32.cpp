// Win32 events for the sender thread. A PortEvent* is the kernel handle
// itself; a named event is shared by every process of the login session.
#include "serial/win32/Win32Api.h"

#include "serial/PortDevice.h"

namespace tarvel {
namespace event {

namespace {
HANDLE handleOf(PortEvent* event) {
    return reinterpret_cast<HANDLE>(event);
}
} // namespace

PortEvent* create(const char* name) {
    // Manual reset, not signalled; an existing event of that name is opened.
    return reinterpret_cast<PortEvent*>(CreateEventA(nullptr, TRUE, FALSE, name));
}

bool set(PortEvent* event) {
    return SetEvent(handleOf(event)) != 0;
}

bool reset(PortEvent* event) {
    return ResetEvent(handleOf(event)) != 0;
}

unsigned long wait(PortEvent* event, uint32_t timeoutMs) {
    return WaitForSingleObject(handleOf(event), timeoutMs);
}

void close(PortEvent* event) {
    if (event != nullptr) CloseHandle(handleOf(event));
}

} // namespace event
} // namespace tarvel
