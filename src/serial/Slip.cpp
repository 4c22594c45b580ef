// SLIP framing on the port: SlipSend encodes and writes or queues a frame,
// SlipReceive reads one frame byte by byte.
#include <climits>
#include <memory>

#include "SerialPort.h"
#include "serial/ReadGate.h"
#include "serial/SlipCodec.h"

const unsigned char SerialPort::END = tarvel::slip::kEnd;
const unsigned char SerialPort::ESC = tarvel::slip::kEsc;
const unsigned char SerialPort::ESC_END = tarvel::slip::kEscEnd;
const unsigned char SerialPort::ESC_ESC = tarvel::slip::kEscEsc;
const unsigned char SerialPort::ESC_BRK = tarvel::slip::kEscBrk;

int SerialPort::SlipSend(const ByteVector& data, bool, bool blocking) {
    if (!IsActive()) return -1;
    const std::size_t n = data.size();
    if (n > (static_cast<std::size_t>(INT_MAX) - 4) / 2) return -1; // frame length must fit the write count
    std::unique_ptr<unsigned char[]> work(new unsigned char[tarvel::slip::encodeBound(n)]);
    const int length = static_cast<int>(tarvel::slip::encode(data.data(), n, work.get()));
    return blocking ? WriteByte(work.get(), length, false) : WriteByteNonblock(work.get(), length);
}

int SerialPort::SlipReceive(ByteVector& buffer, std::size_t maxSize, int mode) {
    tarvel::ReadTurn turn(*m_readGate);
    return _slipReceive(buffer, maxSize, mode);
}

int SerialPort::SlipReceive(ByteVector& buffer, std::size_t maxSize, int mode, const std::atomic<bool>& keepReading) {
    tarvel::ReadTurn turn(*m_readGate, &keepReading);
    if (!turn.held()) {
        buffer.clear();
        return 0;
    }
    return _slipReceive(buffer, maxSize, mode);
}

int SerialPort::_slipReceive(ByteVector& buffer, std::size_t maxSize, int mode) {
    if (!IsActive()) return -1;
    const bool flag = mode == 2;
    // _readByte(b, 1, flag), with its common case (the byte is already in
    // the read-ahead) inline.
    auto readOne = [this, flag](unsigned char* b) {
        if (m_readPos < m_readLen) {
            *b = m_readAhead[m_readPos++];
            return 1;
        }
        return _readByte(b, 1, flag);
    };
    return tarvel::slip::decode(readOne, buffer, maxSize, mode == 0, m_dropEnabled);
}
