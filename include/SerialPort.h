// The serial line to the device: port device, SLIP framing, sender thread.
#ifndef TARVEL_SERIAL_PORT_H
#define TARVEL_SERIAL_PORT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "TarvelBase.h"
#include "TarvelTypes.h"

namespace tarvel {
struct PortDevice; // an open device of the platform layer
class PortEvent;   // a manual-reset event of the platform layer
class ReadGate;    // turns on the read side: reads, and the operations that purge or close
} // namespace tarvel

// Line configuration written at Connect (DCB field names).
struct LineSettings {
    uint32_t BaudRate = 0;
    uint8_t ByteSize = 0;
    uint8_t StopBits = 0; // 0 one, 1 one and a half, 2 two
    uint8_t Parity = 0;   // 0 none, 1 odd, 2 even, 3 mark, 4 space
};

class TARVEL_API SerialPort {
public:
    // Frame constants.
    static const unsigned char END;     // 0xC0 frame delimiter
    static const unsigned char ESC;     // 0xDB escape introducer
    static const unsigned char ESC_END; // after ESC: data byte 0xC0
    static const unsigned char ESC_ESC; // after ESC: data byte 0xDB
    static const unsigned char ESC_BRK; // after ESC: drop what was gathered

    enum SenderThreadState { IDLE = 0, START_REQ = 1, RUNNING = 2, STOP_REQ = 3, STOPPED = 4, FAILED = 5 };

    static constexpr std::size_t kMaxQueuedBuffers = 65536;
    static constexpr std::size_t kSendBatchLimit = 1024;
    static constexpr int kMaxSenderErrors = 128;

    SerialPort();
    SerialPort(const SerialPort& other);            // the copy is not connected
    SerialPort& operator=(const SerialPort& other); // closes a connected target first
    ~SerialPort();

    // 0 connected; 1 already connected to this name; -1 connected to another
    // port; -2 cannot open; -3 settings cannot be read; -4 cannot be applied.
    // A name with '/' is a device path; a bare name is looked up in /dev/
    // (on Windows: \\.\<name>).
    int Connect(const std::string& name, unsigned int baud, unsigned char byteSize, unsigned char stopBits,
                unsigned char parity);
    int Disconnect();                                            // 0; -1 the device could not be closed
    int Flush();                                                 // 0; -1 purge failed
    int SetTimeout(unsigned int readMs, unsigned int writeMs);   // 0; -1 (kept old values)
    int GetTimeout(unsigned int& readMs, unsigned int& writeMs); // always 0
    bool IsActive();

    // n bytes read, 0 time-out (or cancelled), -1 failure, -2 count overflow.
    int ReadByte(unsigned char* buf, int n, bool flag);
    // n written; -1 failure or time-out; -2 short write.
    int WriteByte(unsigned char* buf, int n, bool flag);
    // Queues a copy for the sender thread: buffers waiting (1 or more); -5 no
    // event; thread not serving: -2 START_REQ, -3 STOP_REQ, -4 STOPPED, -1 FAILED.
    int WriteByteNonblock(unsigned char* buf, int n);
    int getThrStatus() const;
    // Buffers that a full write queue lost (each replaced the newest one)
    // since the port was made.
    unsigned long long GetDroppedWrites() const;

    // Frame and send: blocking -> WriteByte result, else WriteByteNonblock result; -1 port closed.
    int SlipSend(const ByteVector& data, bool, bool blocking);
    // One frame: n payload bytes; 0 silence; -1 closed or read failure; -2 too
    // long for maxSize; -3 protocol error or silence in mid-frame.
    int SlipReceive(ByteVector& buffer, std::size_t maxSize, int mode);
    // The same for a reader that another thread may stop: when `keepReading`
    // is clear as the read would begin, returns 0 at once (buffer emptied).
    int SlipReceive(ByteVector& buffer, std::size_t maxSize, int mode, const std::atomic<bool>& keepReading);
    // Wakes a read that is waiting for bytes on another thread: it returns
    // as on a time-out. A read that begins later is not affected.
    void InterruptRead();

    // Reads, and the operations that purge, reconfigure or close the device
    // (Connect, Disconnect, Flush, SetTimeout, assignment), may be called from
    // different threads: those operations wake a read under way, wait for it
    // to end and go ahead of the next one.

private:
    friend struct SerialPortTestAccess; // tests: queue depth

    int _startSenderThread();
    int _writeBuffer(unsigned char* buf, int n);
    int _getPopBuffer(ByteVector& out);
    static int SenderThread(SerialPort* port);

    void _stopSenderThread();
    int _connect(const std::string& name, unsigned int baud, unsigned char byteSize, unsigned char stopBits,
                 unsigned char parity);
    int _disconnect();
    int _readByte(unsigned char* buf, int n, bool flag);
    int _slipReceive(ByteVector& buffer, std::size_t maxSize, int mode);
    int _fillReadAhead(std::size_t want, uint32_t timeoutMs);

    tarvel::PortEvent* m_dataReadyEvent;    // "SerialDataReady"
    tarvel::PortEvent* m_threadStatusEvent; // "SenderThreadStatus"
    tarvel::PortDevice* m_portHandle;       // null: not connected
    LineSettings m_dcb;
    bool m_dropEnabled;
    // Set by the caller while the sender thread may be writing: atomic.
    std::atomic<unsigned int> m_readTimeout;
    std::atomic<unsigned int> m_writeTimeout;
    std::string m_portName;
    std::thread m_senderThread;
    std::atomic<int> m_threadStatus;
    std::mutex m_queueMutex;
    std::deque<ByteVector> m_writeQueue;
    std::atomic<unsigned long long> m_droppedWrites{0};

    std::unique_ptr<tarvel::ReadGate> m_readGate;
    std::mutex m_startMutex; // one thread start at a time
    // Read-ahead: one system read fills it, ReadByte serves from it.
    static constexpr std::size_t kReadAheadSize = 4096;
    unsigned char* m_readAhead;
    std::size_t m_readPos;
    std::size_t m_readLen;
    std::size_t m_readCap; // grows when one ReadByte asks for more than kReadAheadSize
};

#endif
