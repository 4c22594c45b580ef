// Timed byte I/O. Reads are served from a read-ahead buffer that one system
// read refills with whatever has arrived, so that SlipReceive's byte-at-a-time
// reads cost no system call per byte.
#include <algorithm>
#include <chrono>
#include <cstring>

#include "SerialPort.h"
#include "serial/PortDevice.h"
#include "serial/ReadGate.h"
#include "serial/SystemError.h"

namespace port = tarvel::port;
using tarvel::IoDirection;
using tarvel::IoResult;
using tarvel::IoStage;

namespace {

IoResult notOpen() {
    IoResult result;
    result.ok = false;
    result.stage = IoStage::Transfer;
    result.error = tarvel::notOpenError();
    return result;
}

} // namespace

int SerialPort::ReadByte(unsigned char* buf, int n, bool flag) {
    tarvel::ReadTurn turn(*m_readGate);
    return _readByte(buf, n, flag);
}

int SerialPort::_readByte(unsigned char* buf, int n, bool flag) {
    if (m_portHandle == nullptr) {
        PrintIoError(IoDirection::Read, notOpen(), flag);
        return -1;
    }
    if (n < 0) return -1;
    const std::size_t want = static_cast<std::size_t>(n);
    if (m_readLen - m_readPos < want) {
        // All or nothing: on a time-out the bytes gathered so far stay
        // buffered for the next read.
        const int filled = _fillReadAhead(want, m_readTimeout);
        if (filled <= 0) return filled;
    }
    if (want > 0) std::memcpy(buf, m_readAhead + m_readPos, want);
    m_readPos += want;
    if (m_readPos == m_readLen) m_readPos = m_readLen = 0;
    return n;
}

// Gathers until `want` bytes are buffered: 1 done, 0 time-out or cancelled,
// -1 failure (reported).
int SerialPort::_fillReadAhead(std::size_t want, uint32_t timeoutMs) {
    if (m_readCap < want || m_readAhead == nullptr) {
        const std::size_t cap = std::max(want, kReadAheadSize);
        unsigned char* grown = new unsigned char[cap];
        if (m_readLen > m_readPos) std::memcpy(grown, m_readAhead + m_readPos, m_readLen - m_readPos);
        delete[] m_readAhead;
        m_readAhead = grown;
        m_readCap = cap;
        m_readLen -= m_readPos;
        m_readPos = 0;
    } else if (m_readPos > 0) {
        std::memmove(m_readAhead, m_readAhead + m_readPos, m_readLen - m_readPos);
        m_readLen -= m_readPos;
        m_readPos = 0;
    }

    using Clock = std::chrono::steady_clock;
    const bool forever = timeoutMs == tarvel::kWaitForever;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : timeoutMs);
    uint32_t wait = timeoutMs;
    for (;;) {
        IoResult r = port::readSome(m_portHandle, m_readAhead + m_readLen, m_readCap - m_readLen, wait);
        if (!r.ok) {
            PrintIoError(IoDirection::Read, r, false);
            if (r.stage != IoStage::CloseEvent) return -1;
        }
        m_readLen += static_cast<std::size_t>(r.count);
        if (m_readLen >= want) return 1;
        if (r.count == 0) return 0;
        if (!forever) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            wait = left > 0 ? static_cast<uint32_t>(left) : 0;
        }
    }
}

int SerialPort::WriteByte(unsigned char* buf, int n, bool flag) {
    if (m_portHandle == nullptr) {
        PrintIoError(IoDirection::Write, notOpen(), flag);
        return -1;
    }
    if (n < 0) return -1;
    IoResult r = port::write(m_portHandle, buf, static_cast<std::size_t>(n), m_writeTimeout);
    if (!r.ok) {
        PrintIoError(IoDirection::Write, r, flag);
        if (r.stage != IoStage::CloseEvent) return -1;
    }
    if (r.count != n) return -2;
    return n;
}
