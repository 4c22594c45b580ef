// The session: one object per attached device.
#ifndef TARVEL_SESSION_H
#define TARVEL_SESSION_H

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <fstream>
#include <functional>
#include <ios>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "SerialPort.h"
#include "TarvelBase.h"
#include "TarvelPrinter.h"
#include "TarvelTypes.h"

namespace tarvel {
namespace session {
struct Events;
} // namespace session
} // namespace tarvel

class TARVEL_API Tarvel {
public:
    // Command codes (fixed by the device).
    enum CMD : unsigned char {
        ADD_MESSAGE = 0x01,
        REMOVE_MESSAGE = 0x02,
        ENABLE_MESSAGE = 0x03,
        DISABLE_MESSAGE = 0x04,
        SET_MESSAGE_DATA = 0x05,
        GET_HANDLER = 0x06,
        PING = 0x09,
        ADD_CRC = 0x0A,
        CHANGE_CRC = 0x0B,
        DISABLE_CRC = 0x0C,
        ADD_SIGNAL = 0x14,
        CHANGE_SIGNAL = 0x15,
        REMOVE_SIGNAL = 0x16,
        EXECUTE_SIGNAL_CHANGE = 0x17,
        SET_SIGNAL_CONTROL = 0x18,
        GATEWAY_ID = 0x19,
        REBOOT = 0x20,
        BLOB_REMOVE = 0x21,
        REQUEST_MESSAGE = 0x22,
        ENABLE_REQUEST = 0x23,
        DISABLE_REQUEST = 0x24,
        REMOVE_REQUEST = 0x25,
        READ_EEPROM = 0x26,
        WRITE_EEPROM = 0x27,
        GET_TIME = 0x30,
        SET_TIME = 0x31,
    };

    // Response identifiers (byte 2 of a device packet).
    enum RESPONSE : unsigned char {
        OK = 0x80,
        COMMAND_FAILED = 0x81,
        PACKET_ERROR = 0x82,
        SLIP_PROTO_ERROR = 0x83,
        TARVEL_HW_ERROR = 0x84,
        ASYNC_MESSAGE = 0x90,
        DATA_RESPONSE_A = 0x91,
        DATA_RESPONSE_B = 0x92,
    };

    // CAN FD data length code -> number of data bytes.
    static const unsigned char kDlcToLength[16];
    static constexpr unsigned char kSignalCumulative = 0x80;
    static constexpr unsigned int kRebootPollIntervalMs = 50;

    Tarvel(); // throws std::invalid_argument when the default sinks can't be added
    Tarvel(const Tarvel& other);
    Tarvel& operator=(const Tarvel& other);
    ~Tarvel();

    // --- Connection and command exchange -------------------------------
    int Connect(const std::string& port, unsigned int readTimeout, unsigned int writeTimeout);
    int Disconnect();
    int SetTimeout(unsigned int readTimeout, unsigned int writeTimeout);
    int GetTimeout(unsigned int& readTimeout, unsigned int& writeTimeout);
    // 0, or the negative result of SlipSend; -6 (nothing sent, id not
    // advanced) for a payload above 254 bytes, which the length byte can't describe.
    int SendCommand(CMD cmd, const ByteVector& payload, bool tracked);
    int SendCommandHandler(CMD cmd, unsigned short handler, const ByteVector& payload, bool tracked);
    int GetResponse(bool quiet);
    int GetBytesResponse(ByteVector& data, bool quiet);
    int ReadSyncMessage(unsigned short messageId, RecvMessage& message, unsigned short polls, bool quiet);

    // --- Packet validation ------------------------------------------------
    int CheckMessage(const ByteVector& packet, bool quiet);
    int ParseMessage(const ByteVector& packet, RecvMessage& out, int quietLevel);

    // --- Receiver thread ----------------------------------------------------
    int StartReceiver();
    void StopReceiver();
    int GetInternalThreadStatus();
    RecvAsyncMessage ReadAsyncMessage(int requestKey);

    // --- Logging --------------------------------------------------------------
    int SetPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);
    int SetPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level);
    int SetPrintStream(FILE* file, LOG_LEVELS_TARVEL level);
    int ClearPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);
    int ClearPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level);
    int ClearPrintStream(FILE* file, LOG_LEVELS_TARVEL level);
    int ClearPrintStream(std::ostream& stream);
    int ClearPrintStream(void (*func)(const char*));
    int ClearPrintStream(FILE* file);
    int ClearPrintStream();
    void Printf_err(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 2, 3)))
#endif
        ;
    void Printf_inf(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 2, 3)))
#endif
        ;
    void vPrintf_err(const char* format, va_list& args);
    void vPrintf_inf(const char* format, va_list& args);
    void DataPrint(const ByteVector& data, int direction);
    void DebugComm(const char* filename, int mode);
    static long long GetTickMs();

    // --- Device control -------------------------------------------------------
    int Ping();
    int GetVersion();
    int Reset();
    int Reboot(bool mode, unsigned int timeoutMs);
    int Bootloader();
    int GetTime(long long* time);
    int SetTime(long long time);

    // --- EEPROM -----------------------------------------------------------------
    int ReadEeprom(unsigned short address, unsigned char length, unsigned char* data);
    int WriteEeprom(unsigned short address, unsigned char length, const unsigned char* data);

    // --- Transmit messages --------------------------------------------------------
    int AddMessage(const tagCanMessage& message);
    int AddMessage(const tagCanMessage& message, const ByteVector& data);
    int AddMessage(const unsigned char* data, unsigned char dlc, unsigned char selector1, unsigned char selector2,
                   unsigned int id, bool idFlag, bool flag6, bool flag5, bool flag4, bool extraFlag, bool enabled,
                   bool fastSlowSend, unsigned short param1, unsigned short param2, unsigned short param3);
    int RemoveMessage(unsigned short handler);
    int EnableMessage(unsigned short handler);
    int DisableMessage(unsigned short handler);
    int SetMessageData(unsigned short handler, const unsigned char* data, const unsigned char* mask, bool flag,
                       bool tracked);
    int GetHandler(unsigned char selector1, unsigned char selector2, unsigned int id, bool idFlag, bool fastSlowSend,
                   bool flag6);

    // --- Signals ------------------------------------------------------------------
    int AddSignal(unsigned short messageHandler, unsigned char group, unsigned short startSymbol,
                  unsigned short stopSymbol, unsigned char flags);
    int RemoveSignal(unsigned short handler);
    int SignalChangeValue(unsigned short handler, unsigned short value, bool flag, bool tracked);
    int ChangeSignalSgroup(unsigned char group, unsigned short value);
    int ExecuteSignalChange(bool tracked);
    int SetSignalControl(unsigned short handler, unsigned char controlMode, unsigned int arg1, unsigned int arg2,
                         unsigned int arg3);

    // --- Checksums, gateway, blob -------------------------------------------------
    int AddCrc(const unsigned char* crcBlock);
    int ChangeCrc(unsigned short handler, unsigned char* crcBlock);
    int DisableCrc(unsigned short handler);
    int GatewayID(unsigned char target, unsigned int id);
    int BlobRemove();

    // --- Reception requests and signal reading --------------------------------------
    int RequestMessage(unsigned char channelMask, unsigned int id, bool tailFlag, bool idFlag, unsigned char dlc,
                       bool flag7, bool flag6, const unsigned char* data);
    int EnableRequest(unsigned short handler);
    int DisableRequest(unsigned short handler);
    int RemoveRequest(unsigned short handler);
    int RequestSignal(int requestKey, unsigned short StartSymbol, unsigned short StopSymbol);
    int SignalReadValue(unsigned short handler, unsigned int& value, unsigned int* age, bool doRead);
    int SignalReadValue(unsigned short handler, unsigned long long& value, unsigned int* age, bool doRead);

    // --- Reception as events (extensions) --------------------------------------
    /// A report as the queue, the callback and ReadReport hand it out.
    using Report = TarvelReport;
    /// A report callback for any callable; runs on the session's delivery thread.
    using ReportCallback = std::function<void(const TarvelReport&)>;

    /// Checked form of RequestMessage: refuses (-31, nothing sent, a report on
    /// the error channel naming both) a request that the device could not tell
    /// apart from a live one of this session: a shared channel and the same low
    /// 16 bits with another identifier or format. Also refuses an identifier
    /// too large for its format (-31). `extended` is sent as the identifier
    /// flag. Otherwise as RequestMessage: the request key or a negative code.
    int RequestReport(unsigned char channelMask, unsigned int id, bool extended, bool tailFlag, unsigned char dlc,
                      bool flag7, bool flag6, const unsigned char* data);
    /// Capacity of the report queue (default 4096 reports; 0 switches it off
    /// and empties it). A full queue drops its oldest report and counts it.
    int SetReportQueue(unsigned int capacity);
    /// Takes the oldest queued report, waiting up to timeoutMs (0: don't wait).
    /// 1 with `report` filled; 0 none came in time; -2 the queue is switched
    /// off; -3 the receiver is not running and the queue is empty.
    int WaitReport(TarvelReport& report, unsigned int timeoutMs);
    /// Takes up to maxCount reports at once, waiting up to timeoutMs for the
    /// first: the number taken (1..maxCount), 0, -2 or -3 as WaitReport.
    int WaitReports(TarvelReport* reports, unsigned int maxCount, unsigned int timeoutMs);
    /// Calls `function(report, user)` for every report, in arrival order, on
    /// the session's delivery thread (null: no callback). The callback may call
    /// any operation of the session; once SetReportCallback returns, the old
    /// callback is not running and is not called again (unless it was called
    /// from inside that callback). Always 0.
    int SetReportCallback(void (*function)(const TarvelReport* report, void* user), void* user);
    /// The same for any callable (an empty one removes the callback).
    int SetReportCallback(ReportCallback callback);
    /// The latest report of a request (as ReadAsyncMessage finds it), with its
    /// full identifier, microsecond time and data: 0; -1 none yet.
    int ReadReport(int requestKey, TarvelReport& report);
    /// What the session has counted (see TarvelStatistics).
    TarvelStatistics GetStatistics();
    void ResetStatistics();
    /// Words for a result code. `operation`: the name of the member that
    /// returned it ("Connect", "ReadEeprom", "SignalReadValue", ...), since
    /// some codes mean different things to different operations; null or an
    /// unknown name gives the common meaning. The text stays valid until the
    /// next call on the same thread.
    static const char* ResultText(int code, const char* operation = nullptr);
    /// The library's version, "major.minor.patch".
    static const char* LibraryVersion();

    // --- Waits a slow or noisy device must not break (extensions) --------------
    /// How long GetResponse and GetBytesResponse wait for an answer while the
    /// receiver runs: default 50 ms; at most 65535. Always 0.
    int SetAnswerWait(unsigned int ms);
    /// How the receiver counts its read faults before it ends itself (more than
    /// 10): `consecutive` false counts every fault of its life (the default),
    /// true only faults in a row (a good frame starts the count again). Always 0.
    int SetReceiverErrorCounting(bool consecutive);

private:
    friend struct TarvelTestAccess; // white-box tests only

    static constexpr unsigned long long m_kBufferSize = 255;

    // The command exchange. Each public operation takes m_exchangeMutex once;
    // the helpers below expect it held.
    int _send(CMD cmd, const ByteVector& payload, bool tracked);
    int _awaitAnswer(bool quiet);
    int _awaitBytes(ByteVector& data, bool quiet);
    // Send, and when tracked wait for the answer (_awaitAnswer(quiet)): the
    // answer value, 0 when untracked, a send failure unchanged, a failed
    // wait c as c - 10.
    int _exchange(CMD cmd, const ByteVector& payload, bool tracked = true, bool quiet = false);
    int _exchangeHandler(CMD cmd, unsigned short handler, const ByteVector& payload, bool tracked = true);
    // The same, tracked, with the answer's bytes (_awaitBytes(answer, false)).
    int _exchangeBytes(CMD cmd, const ByteVector& payload, ByteVector& answer);
    int _readAnswerDirect(RecvMessage& message, int slipMode, bool quiet, bool& hardwareError);
    int _readSyncAnswer(RecvMessage& message, bool quiet);
    int _failedAnswer(unsigned char responseId);
    int _reboot(unsigned char mode);
    int _restart(unsigned char mode); // reboot command, then the host state goes
    int _ping();
    int _switchMessage(CMD cmd, unsigned short handler, bool enabled, const char* notFoundReport);
    int _request(unsigned char channelMask, unsigned int id, bool tailFlag, bool idFlag, unsigned char dlc, bool flag7,
                 bool flag6, const unsigned char* data);
    void _clearHostState();

    // The receiver thread and the buffers it fills.
    void _writeSyncBuffer(const RecvMessage& message);
    void _writeAsyncMessage(const RecvAsyncMessage& message);
    void _receiverLoop();
    // Reads one frame (while m_receiverRunning stays set) and sorts it; false
    // when the receiver has to end (too many faults).
    bool _receiveOne();
    void _receiverStateChanged(bool running, bool ended);
    // A read of one frame, and its check as a packet, with the statistics.
    int _readFrame(ByteVector& buffer, int slipMode, const std::atomic<bool>* keepReading, uint64_t* timeUs = nullptr);
    int _parseFrame(const ByteVector& buffer, RecvMessage& message, int quietLevel);
    // Files a report in the async map, the queue and for the callback.
    void _fileReport(const RecvMessage& message, uint64_t timeUs);
    // The checks both SignalReadValue widths share: 0 with the latest report
    // and the registration (and *age set), or the read's result code.
    int _locateSignal(unsigned short handler, bool doRead, RecvAsyncMessage& report, SignalRequest& entry,
                      unsigned int* age);

    std::mutex m_syncMutex;
    std::mutex m_asyncMutex;
    std::vector<SignalRequest> m_signalRequests;
    std::unordered_map<uint16_t, SignalEntry> m_signals;
    std::unordered_map<uint16_t, tagCanMessage> m_txMessages;
    std::deque<RecvMessage> m_syncBuffer;
    std::unordered_map<uint32_t, RecvAsyncMessage> m_asyncMessages;
    SerialPort m_serialPort;
    std::thread m_receiverThread;
    std::atomic<bool> m_receiverRunning;
    uint32_t m_signalRequestCount;
    uint8_t m_messageId;
    uint16_t m_deviceVersion;
    std::ofstream m_commFile;
    Printer m_printer;

    std::mutex m_exchangeMutex;            // one exchange at a time per session
    std::condition_variable m_syncArrived; // signalled by _writeSyncBuffer
    // The receiver's life as StartReceiver and Disconnect wait for it.
    std::atomic<bool> m_receiverStopRequested; // a stop that a starting thread must obey
    std::mutex m_receiverStateMutex;
    std::condition_variable m_receiverState;
    bool m_receiverEnded; // the loop has returned (guarded by m_receiverStateMutex)
    int m_receiveErrors;  // the receiver's fault counters, per thread
    int m_invalidUntraced;
    bool m_badChannelReported; // the receiver said once that it drops such reports

    std::unique_ptr<tarvel::session::Events> m_events;
    std::atomic<unsigned int> m_answerWaitMs;
    std::atomic<bool> m_countConsecutiveErrors;
    std::atomic<bool> m_closingPort; // Disconnect is closing the port under the receiver
};

#endif
