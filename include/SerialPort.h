/// @file SerialPort.h
/// @brief The serial line to the device: port device, SLIP framing, sender
/// thread (C++ only; included by TarvelAPI.h).
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

/// Line configuration written at Connect (DCB field names).
struct LineSettings {
    uint32_t BaudRate = 0; ///< bits per second
    uint8_t ByteSize = 0;  ///< data bits
    uint8_t StopBits = 0;  ///< 0 one, 1 one and a half, 2 two
    uint8_t Parity = 0;    ///< 0 none, 1 odd, 2 even, 3 mark, 4 space
};

/// @brief The serial line to the device: the port device, SLIP framing and
/// the sender thread that writes queued frames.
///
/// A Tarvel session owns one; it can also be used on its own. Failures are
/// reported on the standard error stream, with the system's text.
///
/// @par Threads
/// Reads, and the operations that purge, reconfigure or close the device
/// (Connect, Disconnect, Flush, SetTimeout, assignment), may be called from
/// different threads: those operations wake a read under way, wait for it
/// to end and go ahead of the next one. WriteByteNonblock may be called from
/// any thread. Blocking writes (WriteByte, SlipSend with blocking) are not
/// coordinated with each other or with the sender thread: one writer at a
/// time.
class TARVEL_API SerialPort {
public:
    /// @name Frame constants
    /// @{
    static const unsigned char END;     ///< 0xC0 frame delimiter
    static const unsigned char ESC;     ///< 0xDB escape introducer
    static const unsigned char ESC_END; ///< after ESC: data byte 0xC0
    static const unsigned char ESC_ESC; ///< after ESC: data byte 0xDB
    static const unsigned char ESC_BRK; ///< after ESC: drop what was gathered
    /// @}

    /// The sender thread's state (getThrStatus).
    enum SenderThreadState {
        IDLE = 0,      ///< never started
        START_REQ = 1, ///< starting
        RUNNING = 2,   ///< serving the write queue
        STOP_REQ = 3,  ///< asked to stop
        STOPPED = 4,   ///< stopped; the next queued write starts it again
        FAILED = 5     ///< ended after more than kMaxSenderErrors errors
    };

    /// Capacity of the write queue in buffers; a full queue replaces its newest.
    static constexpr std::size_t kMaxQueuedBuffers = 65536;
    /// The sender gathers queued buffers into one write until it holds more
    /// than this many bytes.
    static constexpr std::size_t kSendBatchLimit = 1024;
    /// Write errors the sender thread survives; one more and it fails.
    static constexpr int kMaxSenderErrors = 128;

    /// A port that is not connected.
    SerialPort();
    /// The copy is not connected; it takes the line settings, time-outs and
    /// name of other.
    SerialPort(const SerialPort& other);
    /// Closes a connected target first, then takes the line settings,
    /// time-outs and name of other; the target is not connected.
    SerialPort& operator=(const SerialPort& other);
    /// Stops the sender thread and closes the device.
    ~SerialPort();

    /// Opens the device and applies the line settings (the time-outs are
    /// SetTimeout's). On Linux it also asks the driver for low latency, where
    /// the driver has that setting (USB serial adapters).
    /// @param name a name with '/' is a device path; a bare name is looked up
    ///        in /dev/ (on Windows: `\\.\<name>`)
    /// @param baud bits per second
    /// @param byteSize data bits
    /// @param stopBits 0 one, 1 one and a half, 2 two
    /// @param parity 0 none, 1 odd, 2 even, 3 mark, 4 space
    /// @return 0 connected; 1 already connected to this name; -1 connected to
    ///         another port; -2 cannot open; -3 settings cannot be read; -4
    ///         cannot be applied.
    int Connect(const std::string& name, unsigned int baud, unsigned char byteSize, unsigned char stopBits,
                unsigned char parity);
    /// Stops the sender thread and closes the device: 0; -1 the device could
    /// not be closed.
    int Disconnect();
    /// Purges both directions of the device and the bytes read ahead: 0; -1
    /// purge failed (also when the port is not open).
    int Flush();
    /// Sets the read and write time-outs in ms (read 0xFFFFFFFF: no limit):
    /// 0; -1 (kept old values; the port is not open or the driver refused).
    int SetTimeout(unsigned int readMs, unsigned int writeMs);
    /// The time-outs last set (0 before any): always 0.
    int GetTimeout(unsigned int& readMs, unsigned int& writeMs);
    /// Whether a device is open.
    bool IsActive();

    /// Reads exactly n bytes within the read time-out: n bytes read; 0
    /// time-out, or woken by InterruptRead or a control operation (bytes that
    /// came stay buffered for the next read); -1 failure, port not open or n
    /// negative. flag has no effect.
    int ReadByte(unsigned char* buf, int n, bool flag);
    /// Writes n bytes within the write time-out: n written; -1 failure or
    /// time-out; -2 short write. flag has no effect.
    int WriteByte(unsigned char* buf, int n, bool flag);
    /// Queues a copy for the sender thread, starting it when needed: buffers
    /// waiting (1 or more); -5 no event; thread not serving: -2 START_REQ, -3
    /// STOP_REQ, -4 STOPPED, -1 FAILED.
    int WriteByteNonblock(unsigned char* buf, int n);
    /// The sender thread's state, a SenderThreadState.
    int getThrStatus() const;
    /// Buffers that a full write queue lost (each replaced the newest one)
    /// since the port was made.
    unsigned long long GetDroppedWrites() const;

    /// Frame and send: blocking -> WriteByte result, else WriteByteNonblock
    /// result; -1 port closed. The second argument has no effect.
    int SlipSend(const ByteVector& data, bool, bool blocking);
    /// Reads one frame into buffer: n payload bytes; 0 silence; -1 closed or
    /// read failure; -2 too long for maxSize; -3 protocol error or silence in
    /// mid-frame. ESC ESC_BRK drops what was gathered. mode 0 reports
    /// decoding problems on the standard error stream; other modes are quiet.
    int SlipReceive(ByteVector& buffer, std::size_t maxSize, int mode);
    /// The same for a reader that another thread may stop: when `keepReading`
    /// is clear as the read would begin, returns 0 at once (buffer emptied).
    int SlipReceive(ByteVector& buffer, std::size_t maxSize, int mode, const std::atomic<bool>& keepReading);
    /// Wakes a read that is waiting for bytes on another thread: it returns
    /// as on a time-out. A read that begins later is not affected.
    void InterruptRead();

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
