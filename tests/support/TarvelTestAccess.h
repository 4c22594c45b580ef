// White-box access to a session's private state, for the few tests that
// can't observe a fault from outside.
#ifndef TARVEL_TEST_ACCESS_H
#define TARVEL_TEST_ACCESS_H

#include <cstddef>
#include <mutex>

#include "TarvelAPI.h"

struct TarvelTestAccess {
    static uint16_t deviceVersion(const Tarvel& t) { return t.m_deviceVersion; }
    static uint8_t messageId(const Tarvel& t) { return t.m_messageId; }
    static std::size_t signalRequestEntries(const Tarvel& t) { return t.m_signalRequests.size(); }
    static bool portOpen(Tarvel& t) { return t.m_serialPort.IsActive(); }
    static SerialPort& port(Tarvel& t) { return t.m_serialPort; }
    static std::size_t syncBufferSize(Tarvel& t) {
        std::lock_guard<std::mutex> lock(t.m_syncMutex);
        return t.m_syncBuffer.size();
    }
    static std::size_t asyncMapSize(Tarvel& t) {
        std::lock_guard<std::mutex> lock(t.m_asyncMutex);
        return t.m_asyncMessages.size();
    }
    static int exchange(Tarvel& t, Tarvel::CMD cmd, const ByteVector& payload, bool tracked = true) {
        std::lock_guard<std::mutex> lock(t.m_exchangeMutex);
        return t._exchange(cmd, payload, tracked);
    }
    static int exchangeBytes(Tarvel& t, Tarvel::CMD cmd, const ByteVector& payload, ByteVector& answer) {
        std::lock_guard<std::mutex> lock(t.m_exchangeMutex);
        return t._exchangeBytes(cmd, payload, answer);
    }
    static int reboot(Tarvel& t, unsigned char mode) {
        std::lock_guard<std::mutex> lock(t.m_exchangeMutex);
        return t._reboot(mode);
    }
    // Runs the receiver loop on the calling thread as a start that a stop
    // request has already overtaken.
    static void runOvertakenReceiverLoop(Tarvel& t) {
        t.m_receiverStopRequested = true;
        t._receiverLoop();
    }
    // One step of the receiver loop on the calling thread (no receiver thread):
    // false when the receiver would end. For the dispatch fuzz target.
    static bool receiveOne(Tarvel& t) {
        t.m_receiverRunning = true;
        return t._receiveOne();
    }
    static bool receiverRunning(const Tarvel& t) { return t.m_receiverRunning.load(); }
};

#endif
