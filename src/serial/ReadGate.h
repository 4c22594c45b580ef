// Who may use a port's read side, and when. One read runs at a time (a frame
// read or a ReadByte call). Operations that purge, reconfigure or close the
// device wake a read that is under way, go ahead of the next one, and run
// alone. Internal to the library.
#ifndef TARVEL_SERIAL_READ_GATE_H
#define TARVEL_SERIAL_READ_GATE_H

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "serial/PortDevice.h"

namespace tarvel {

class ReadGate {
public:
    // `device` is the port's handle member: read only while the gate is
    // held, which is when nobody may change it.
    explicit ReadGate(PortDevice* const& device) : m_device(device) {}
    ReadGate(const ReadGate&) = delete;
    ReadGate& operator=(const ReadGate&) = delete;

    // Waits for the read side. False, and nothing held, when `keepReading`
    // is given and clear by then: a stop that came first wins.
    bool enterRead(const std::atomic<bool>* keepReading) {
        if (keepReading != nullptr && !keepReading->load()) return false;
        unsigned idle = 0;
        return m_state.compare_exchange_strong(idle, kRead, std::memory_order_acquire) || enterReadWaiting(keepReading);
    }
    // Drops a wake-up that the read did not consume, so that it cannot cut
    // the next read short.
    void leaveRead() {
        unsigned held = kRead;
        if (!m_state.compare_exchange_strong(held, 0, std::memory_order_release)) leaveReadWaited();
    }
    // Wakes a read under way and waits until the read side is free.
    void enterControl();
    void leaveControl();
    // Wakes a read under way (it returns as a time-out); nothing otherwise.
    void interrupt();

private:
    // The state word: who holds the read side, whether the holding read was
    // cancelled, and how many wait at the mutex (controls, readers, a cancel
    // under way). A read with nobody else around takes and leaves the gate
    // with one atomic operation each; everything else goes through the mutex.
    static constexpr unsigned kRead = 1;
    static constexpr unsigned kControl = 2;
    static constexpr unsigned kCancelled = 4;
    static constexpr unsigned kWaiter = 8;

    // The paths through the mutex, when someone else is around.
    bool enterReadWaiting(const std::atomic<bool>* keepReading);
    void leaveReadWaited();
    // Cancels the holding read once; with the mutex and a waiter count held.
    void cancelHolder();

    PortDevice* const& m_device;
    std::atomic<unsigned> m_state{0};
    std::mutex m_mutex;
    std::condition_variable m_free;
    unsigned m_controlsWaiting = 0;
};

// Holds the read side for one scope; `held()` false when a stop came first.
class ReadTurn {
public:
    ReadTurn(ReadGate& gate, const std::atomic<bool>* keepReading = nullptr)
        : m_gate(gate), m_held(gate.enterRead(keepReading)) {}
    ~ReadTurn() {
        if (m_held) m_gate.leaveRead();
    }
    ReadTurn(const ReadTurn&) = delete;
    ReadTurn& operator=(const ReadTurn&) = delete;
    bool held() const { return m_held; }

private:
    ReadGate& m_gate;
    bool m_held;
};

// Holds the read side for a purge, reconfiguration or close.
class ControlTurn {
public:
    explicit ControlTurn(ReadGate& gate) : m_gate(gate) { m_gate.enterControl(); }
    ~ControlTurn() { m_gate.leaveControl(); }
    ControlTurn(const ControlTurn&) = delete;
    ControlTurn& operator=(const ControlTurn&) = delete;

private:
    ReadGate& m_gate;
};

} // namespace tarvel

#endif
