// Device control: liveness probe, version query and the three restarts.
#include <chrono>
#include <mutex>
#include <thread>

#include "Tarvel.h"
#include "protocol/Bytes.h"
#include "protocol/RebootMode.h"

using tarvel::mapAnswer;

int Tarvel::Ping() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _ping();
}

int Tarvel::_ping() {
    // Quiet: Reboot probes a device that may still be booting.
    return mapAnswer(_exchange(PING, {}, true, true));
}

int Tarvel::GetVersion() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return tarvel::versionFromQuery(_reboot(tarvel::kVersionQuery));
}

int Tarvel::Reset() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _restart(tarvel::kRebootReset);
}

int Tarvel::Bootloader() {
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    return _restart(tarvel::kRebootBootloader);
}

int Tarvel::_restart(unsigned char mode) {
    const int r = _reboot(mode);
    if (r < 0) return r;
    _clearHostState();
    return r;
}

int Tarvel::Reboot(bool mode, unsigned int timeoutMs) {
    // Held for the whole wait so that no other caller talks to a booting device.
    std::lock_guard<std::mutex> exchange(m_exchangeMutex);
    m_serialPort.Flush();
    const int r = _restart(mode ? tarvel::kRebootMode1 : tarvel::kRebootMode0);
    if (r < 0) return r;

    const unsigned int probes = timeoutMs / kRebootPollIntervalMs;
    for (unsigned int i = 0; i < probes; ++i) {
        m_serialPort.Flush();
        if (_ping() == 0) break;
        if (i + 1 < probes) std::this_thread::sleep_for(std::chrono::milliseconds(kRebootPollIntervalMs));
    }
    return r;
}
