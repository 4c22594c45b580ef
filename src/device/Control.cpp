// Device control: liveness probe, version query and the three restarts.
#include <chrono>
#include <mutex>
#include <thread>

#include "Tarvel.h"
#include "protocol/Bytes.h"
#include "session/SessionUtil.h"

using tarvel::mapAnswer;

int Tarvel::Ping() {
    // Quiet: Reboot probes a device that may still be booting.
    return mapAnswer(_exchange(PING, {}, true, true));
}

int Tarvel::GetVersion() {
    const int r = _reboot(3);
    if (r == -21) return 0;
    if (r < 0) return r;
    return r == 0 ? 100 : 0;
}

int Tarvel::Reset() {
    std::lock_guard<std::recursive_mutex> lock(m_exchangeMutex);
    const int r = _reboot(2);
    if (r < 0) return r;
    _clearHostState();
    return r;
}

int Tarvel::Bootloader() {
    std::lock_guard<std::recursive_mutex> lock(m_exchangeMutex);
    const int r = _reboot(5);
    if (r < 0) return r;
    _clearHostState();
    return r;
}

int Tarvel::Reboot(bool mode, unsigned int timeoutMs) {
    // Held for the whole wait so that no other caller talks to a booting device.
    std::lock_guard<std::recursive_mutex> lock(m_exchangeMutex);
    // The purge must not cut into a frame the receiver thread is reading.
    const auto flush = [this] {
        TARVEL_PORT_LOCK(port);
        m_serialPort.Flush();
    };
    flush();
    const int r = _reboot(mode ? 1 : 0);
    if (r < 0) return r;
    _clearHostState();

    const unsigned int probes = timeoutMs / kRebootPollIntervalMs;
    for (unsigned int i = 0; i < probes; ++i) {
        flush();
        if (Ping() == 0) break;
        if (i + 1 < probes) std::this_thread::sleep_for(std::chrono::milliseconds(kRebootPollIntervalMs));
    }
    return r;
}
