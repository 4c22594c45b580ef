/// @file Tarvel.h
/// @brief The session: one Tarvel object per attached device (C++ only;
/// included by TarvelAPI.h).
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

/// @brief The session: one object per attached device.
///
/// A session opens the serial port to the device (Connect), sends commands
/// and waits for their answers, keeps a host-side copy of what it configured
/// on the device (transmit messages, signals, requests), and with its receiver
/// thread (StartReceiver) files the CAN reports the device sends. Every
/// operation returns a result code: 0 success, positive values a device answer
/// or a count, negative values errors (see TarvelAPI.h and ResultText). The C
/// entry points of TarvelAPI.h are the same operations on a handle.
///
/// @par Threads
/// The operations may be called from several threads: each one that talks to
/// the device holds the session's exchange lock from its command to its answer,
/// so they run one after the other. Besides the caller's threads a session
/// runs the sender thread of its SerialPort (it writes the queued frames), the
/// receiver thread (StartReceiver to StopReceiver: it reads every frame, hands
/// answers to the waiting operation and files reports) and, while a report
/// callback is set, the delivery thread that calls it. Copying, assigning and
/// destroying a session need it to themselves: no other thread may use it
/// meanwhile, and the destructor may not run inside the report callback.
/// DebugComm may not run on two threads at once. Print sinks are called on
/// whichever thread prints (the receiver writes the trace), possibly while the
/// exchange lock is held: they must not call operations of the session other
/// than its print functions.
///
/// @par Reports
/// The session prints on three channels (LOG_LEVELS_TARVEL): errors (by default
/// to std::cerr), information (by default to std::cout) and the communication
/// trace (no sink by default; DebugComm). Some checks and the serial port
/// report on the standard error stream directly, as noted at each operation.
class TARVEL_API Tarvel {
public:
    /// Command codes (fixed by the device), each named after the operation
    /// that sends it.
    enum CMD : unsigned char {
        ADD_MESSAGE = 0x01,           ///< AddMessage
        REMOVE_MESSAGE = 0x02,        ///< RemoveMessage
        ENABLE_MESSAGE = 0x03,        ///< EnableMessage
        DISABLE_MESSAGE = 0x04,       ///< DisableMessage
        SET_MESSAGE_DATA = 0x05,      ///< SetMessageData
        GET_HANDLER = 0x06,           ///< GetHandler
        PING = 0x09,                  ///< Ping
        ADD_CRC = 0x0A,               ///< AddCrc
        CHANGE_CRC = 0x0B,            ///< ChangeCrc
        DISABLE_CRC = 0x0C,           ///< DisableCrc
        ADD_SIGNAL = 0x14,            ///< AddSignal
        CHANGE_SIGNAL = 0x15,         ///< SignalChangeValue, ChangeSignalSgroup
        REMOVE_SIGNAL = 0x16,         ///< RemoveSignal
        EXECUTE_SIGNAL_CHANGE = 0x17, ///< ExecuteSignalChange
        SET_SIGNAL_CONTROL = 0x18,    ///< SetSignalControl
        GATEWAY_ID = 0x19,            ///< GatewayID
        REBOOT = 0x20,                ///< Reset, Reboot, Bootloader, and the version query (GetVersion, Connect)
        BLOB_REMOVE = 0x21,           ///< BlobRemove
        REQUEST_MESSAGE = 0x22,       ///< RequestMessage, RequestReport
        ENABLE_REQUEST = 0x23,        ///< EnableRequest
        DISABLE_REQUEST = 0x24,       ///< DisableRequest
        REMOVE_REQUEST = 0x25,        ///< RemoveRequest
        READ_EEPROM = 0x26,           ///< ReadEeprom
        WRITE_EEPROM = 0x27,          ///< WriteEeprom
        GET_TIME = 0x30,              ///< GetTime
        SET_TIME = 0x31,              ///< SetTime
    };

    /// Response identifiers (byte 2 of a device packet).
    enum RESPONSE : unsigned char {
        OK = 0x80,               ///< the command was carried out; the data is its 16-bit answer
        COMMAND_FAILED = 0x81,   ///< the device could not carry out the command
        PACKET_ERROR = 0x82,     ///< the device refused the packet (length or checksum)
        SLIP_PROTO_ERROR = 0x83, ///< the device met a bad SLIP escape
        TARVEL_HW_ERROR = 0x84,  ///< the device reports a hardware error (message id 0)
        ASYNC_MESSAGE = 0x90,    ///< a CAN report; the message id is its channel
        DATA_RESPONSE_A = 0x91,  ///< an answer with data (GetTime, ReadEeprom)
        DATA_RESPONSE_B = 0x92,  ///< an answer with data, second kind
    };

    /// CAN FD data length code -> number of data bytes:
    /// 0..8, 12, 16, 20, 24, 32, 48, 64.
    static const unsigned char kDlcToLength[16];
    /// Flags bit of a cumulative signal (an alive counter) in AddSignal.
    static constexpr unsigned char kSignalCumulative = 0x80;
    /// How often Reboot pings the restarting device, in ms.
    static constexpr unsigned int kRebootPollIntervalMs = 50;

    /// A session that is not connected. Errors print to std::cerr and
    /// information to std::cout. Throws std::invalid_argument when the default
    /// sinks can't be added.
    Tarvel();
    /// A copy shares the sinks of its source and nothing else: it is not
    /// connected, has no receiver and starts with empty tables.
    Tarvel(const Tarvel& other);
    /// Takes over the sinks of other only; port, connection, tables and
    /// receiver stay. The trace file of this session is closed.
    Tarvel& operator=(const Tarvel& other);
    /// Removes the report callback (waiting for a call under way), stops the
    /// receiver, closes the port and the trace file.
    ~Tarvel();

    /// @name Connection and command exchange
    /// @{

    /// Opens the serial port to the device (2,000,000 baud, 8 data bits, even
    /// parity, one stop bit), sets the time-outs, purges the port and asks the
    /// device for its version (a query, not a restart). The port already open
    /// under the same name is set up and asked again.
    /// @param port a name with '/' is a device path; a bare name is looked up
    ///        in /dev/ (on Windows: `\\.\<name>`, for example COM3)
    /// @param readTimeout how long a read waits for data, in ms (0xFFFFFFFF: no limit)
    /// @param writeTimeout how long a write may take, in ms
    /// @return 0 connected; -1 another port is open; -2 cannot open; -3/-4 line
    ///         settings failed; c-100 / c-200 time-outs / purge failed; c-300
    ///         version query failed (-314: the device did not answer). The
    ///         port's own failures are reported on the standard error stream.
    int Connect(const std::string& port, unsigned int readTimeout, unsigned int writeTimeout);
    /// Closes the port: 0, or -1 when it could not be closed. Forgets the
    /// device's tables (transmit messages, signals, requests, registered signal
    /// reads, the latest reports, queued answers; not the report queue);
    /// a running receiver ends by itself (waited for up to 1 s), and every
    /// waiter in WaitReport is woken.
    int Disconnect();
    /// Sets the port's read and write time-outs in ms (read 0xFFFFFFFF: no
    /// limit): 0; -1 (kept the old values, for example when the port is not
    /// open; reported on the standard error stream).
    int SetTimeout(unsigned int readTimeout, unsigned int writeTimeout);
    /// The time-outs last set, in ms: always 0.
    int GetTimeout(unsigned int& readTimeout, unsigned int& writeTimeout);
    /// Sends one command packet without waiting for an answer. tracked: the
    /// packet takes the next message id (5..255) and answers still queued are
    /// dropped; untracked packets carry id 4. The frame is queued for the sender
    /// thread and traced on the COM channel.
    /// @return 0, or the negative result of SlipSend; -6 (nothing sent, id not
    ///         advanced) for a payload above 254 bytes, which the length byte
    ///         can't describe.
    int SendCommand(CMD cmd, const ByteVector& payload, bool tracked);
    /// SendCommand with the handler (big-endian) before the payload.
    int SendCommandHandler(CMD cmd, unsigned short handler, const ByteVector& payload, bool tracked);
    /// Waits for the answer to the last tracked command and returns its value
    /// (up to two data bytes, big-endian). With the receiver running: from the
    /// answers it queued, for the answer wait (SetAnswerWait); -5 none in time
    /// (or the receiver ended meanwhile).
    /// Otherwise the line is read directly until the answer comes, at most for
    /// the read time-out (reports read meanwhile are not filed): -4 no valid
    /// answer, or an error answer (COMMAND_FAILED, PACKET_ERROR,
    /// SLIP_PROTO_ERROR, unknown; always reported); 0x10000 is added when a
    /// TARVEL_HW_ERROR packet came before the answer. quiet: a missing answer
    /// is not reported.
    int GetResponse(bool quiet);
    /// GetResponse for an answer with data, which goes to data. Receiver
    /// running: 0 with the data, or -5. Otherwise: an OK answer gives its value
    /// (a length other than 2 is reported), a data answer gives 0, both with
    /// 0x10000 for a hardware error seen; -4 as GetResponse.
    int GetBytesResponse(ByteVector& data, bool quiet);
    /// Takes the answer with messageId from the answers the receiver queued,
    /// waiting up to polls ms; answers queued before it are dropped. 0 with
    /// message filled; -1 the receiver is not running; -2 not found in time (or
    /// the receiver ended meanwhile).
    /// Both reported on the error channel unless quiet.
    int ReadSyncMessage(unsigned short messageId, RecvMessage& message, unsigned short polls, bool quiet);

    /// @}
    /// @name Packet validation
    /// @{

    /// Checks a device packet: 0 valid; -1 its length byte is wrong (reported
    /// on the error channel unless quiet); -2 its checksum (sum16) is wrong.
    int CheckMessage(const ByteVector& packet, bool quiet);
    /// Checks a device packet and takes it apart into out (message id,
    /// response id, the data between them and the checksum): 0; -1 wrong
    /// length; -2 wrong checksum; -4 empty. Every packet is traced on the COM
    /// channel (a bad one as an ERROR line); quietLevel 0 also reports a bad
    /// one on the error channel.
    int ParseMessage(const ByteVector& packet, RecvMessage& out, int quietLevel);

    /// @}
    /// @name Receiver thread
    /// @{

    /// Starts the receiver thread, which reads every frame from the line, hands
    /// answers to the waiting operation and files reports (the latest of each
    /// request, the report queue, the report callback). It purges the port
    /// first. 0 started; 1 already running; -1 the thread did not start in time
    /// (1 s), or the port is not open (reported on the error channel). The
    /// receiver ends by itself after more than 10 read faults
    /// (SetReceiverErrorCounting) or more than 20 answers to untracked commands
    /// with a failure value, saying so on the standard error stream, where it
    /// also reports error answers nobody waits for.
    int StartReceiver();
    /// Stops the receiver thread and waits for it to end; a read under way is
    /// woken, and so is every WaitReport.
    void StopReceiver();
    /// The session's threads: bit 0 receiver running; 0x10 sender serving;
    /// 0x20 sender starting, stopping or failed.
    int GetInternalThreadStatus();
    /// The latest report for a request key (of the channels in the key, the
    /// lowest that holds one); key 0 when there is none, or when the receiver
    /// is not running (reported on the error channel).
    RecvAsyncMessage ReadAsyncMessage(int requestKey);

    /// @}
    /// @name Logging
    /// A channel holds at most 5 sinks; a message goes to each of them in the
    /// order they were added. The session never flushes or closes a target,
    /// and once a removal has returned a stream or file receives nothing more.
    /// @{

    /// Adds a stream as a sink of a channel: 0 added; -1 bad level; -2 channel full.
    int SetPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);
    /// Adds a function as a sink: it gets each message as one text, possibly
    /// from several threads at once. 0; -1; -2.
    int SetPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level);
    /// Adds an open file as a sink: 0; -1; -2.
    int SetPrintStream(FILE* file, LOG_LEVELS_TARVEL level);
    /// Removes every sink of stream from a channel: 0, or -1 for a bad level.
    int ClearPrintStream(std::ostream& stream, LOG_LEVELS_TARVEL level);
    /// Removes every sink of func from a channel: 0, or -1 for a bad level.
    int ClearPrintStream(void (*func)(const char*), LOG_LEVELS_TARVEL level);
    /// Removes every sink of file from a channel: 0, or -1 for a bad level.
    int ClearPrintStream(FILE* file, LOG_LEVELS_TARVEL level);
    /// Removes stream from every channel: 0.
    int ClearPrintStream(std::ostream& stream);
    /// Removes func from every channel: 0.
    int ClearPrintStream(void (*func)(const char*));
    /// Removes file from every channel: 0.
    int ClearPrintStream(FILE* file);
    /// Removes every sink of every channel (the default ones and the trace
    /// file included): 0.
    int ClearPrintStream();
    /// Prints a printf-style message on the error channel.
    void Printf_err(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 2, 3)))
#endif
        ;
    /// Prints a printf-style message on the information channel.
    void Printf_inf(const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 2, 3)))
#endif
        ;
    /// Printf_err with the arguments in a va_list.
    void vPrintf_err(const char* format, va_list& args);
    /// Printf_inf with the arguments in a va_list.
    void vPrintf_inf(const char* format, va_list& args);
    /// Writes one trace line on the COM channel: GetTickMs, ":>> " for a sent
    /// packet (direction > 0), ":<< " for a received one (direction < 0; below
    /// -1 with "ERROR! "), then the bytes as "0xHH "; after a received packet
    /// a line of dashes. Nothing is done when the channel has no sink.
    void DataPrint(const ByteVector& data, int direction);
    /// Writes the session's trace to filename: every packet in both directions
    /// (COM channel) and what the ERR and INF channels print, each line written
    /// through at once. A file open before is closed; null: trace off.
    /// @param filename the trace file; null: no trace
    /// @param mode std::ios_base::openmode bits (out is always added; the C
    ///        form passes out | trunc); an open failure is reported on the
    ///        error channel
    void DebugComm(const char* filename, int mode);
    /// The host's millisecond clock (monotonic): stamps trace lines, received
    /// reports and signal ages.
    static long long GetTickMs();

    /// @}
    /// @name Device control
    /// @{

    /// Asks whether the device answers: its status (0), or -21 / c-10.
    /// Reports nothing when it doesn't answer.
    int Ping();
    /// 100 or 0 (device feature level), or a negative code. Asks, does not restart.
    int GetVersion();
    /// Restarts the device (reset): its status or a negative code. The session
    /// forgets the device's tables.
    int Reset();
    /// Reboots (mode false and true: the device's two reboot modes), then pings
    /// every kRebootPollIntervalMs until the device answers, for up to
    /// timeoutMs. Returns the reboot command's result (status or negative code)
    /// whether the ping came or not. The session forgets the device's tables;
    /// no other operation talks to the device during the wait.
    int Reboot(bool mode, unsigned int timeoutMs);
    /// Restarts the device into its bootloader: its status or a negative code.
    /// The session forgets the device's tables.
    int Bootloader();
    /// The device clock (up to 32 bits): 0 and *time set; -2 null pointer
    /// (reported on the standard error stream); negative codes.
    int GetTime(long long* time);
    /// Sets the device clock to the low 32 bits of time: status, -21 refused,
    /// or a negative code.
    int SetTime(long long time);

    /// @}
    /// @name EEPROM
    /// Blocks of 1..16 bytes: -1 bad length (or write below address 30), -2
    /// null pointer, -666 wrong block length returned; these checks report on
    /// the standard error stream.
    /// @{

    /// Reads length bytes from address into data: 0, or a code of the group.
    int ReadEeprom(unsigned short address, unsigned char length, unsigned char* data);
    /// Writes length bytes of data (null: zeros) from address on (30 or
    /// more): status, -21 refused, or a code of the group.
    int WriteEeprom(unsigned short address, unsigned char length, const unsigned char* data);

    /// @}
    /// @name Transmit messages
    /// The commands that take a message handler return the device's status,
    /// -21 for a refusal (0xFFFF) and -22 for a handler the device does not
    /// accept (answer 1), or a code of the exchange.
    /// @{

    /// Adds a message that the device transmits by itself, with zero data: the
    /// new handler, or as AddMessage(const tagCanMessage&, const ByteVector&).
    int AddMessage(const tagCanMessage& message);
    /// Adds a message with its data (exactly the CAN FD length of its dlc):
    /// the new handler; -21 invalid DLC, data of the wrong length or a message
    /// the device refused; -22 the device refused the length; -23 the device is
    /// out of memory. Refusals are reported on the error channel.
    int AddMessage(const tagCanMessage& message, const ByteVector& data);
    /// The same with the fields of tagCanMessage as arguments; data null: zero
    /// data. -31 for a dlc above 15 with data.
    int AddMessage(const unsigned char* data, unsigned char dlc, unsigned char selector1, unsigned char selector2,
                   unsigned int id, bool idFlag, bool flag6, bool flag5, bool flag4, bool extraFlag, bool enabled,
                   bool fastSlowSend, unsigned short param1, unsigned short param2, unsigned short param3);
    /// Removes a transmit message from the device (and the session's copy).
    int RemoveMessage(unsigned short handler);
    /// Switches a transmit message on (a handler this session did not add is
    /// reported, the device's answer still returned).
    int EnableMessage(unsigned short handler);
    /// Switches a transmit message off (as EnableMessage).
    int DisableMessage(unsigned short handler);
    /// New data for a message this session added: data and mask each of the
    /// message's length (mask null: all bits, 0xFF; data null: zeros); flag is
    /// passed on; tracked: wait for the device's answer (else 0 once sent).
    /// -31: handler unknown to this session (nothing sent, reported).
    int SetMessageData(unsigned short handler, const unsigned char* data, const unsigned char* mask, bool flag,
                       bool tracked);
    /// The device's handler of the message with these key fields (as in
    /// tagCanMessage; the identifier is sent as given, idFlag sets bit 31), or -21.
    int GetHandler(unsigned char selector1, unsigned char selector2, unsigned int id, bool idFlag, bool fastSlowSend,
                   bool flag6);

    /// @}
    /// @name Signals in transmit messages
    /// @{

    /// Adds a signal: bits startSymbol..stopSymbol (at most 16) of a transmit
    /// message, in a group; flags bit 7 (kSignalCumulative) makes it
    /// cumulative (an alive counter). Returns the signal handler; -31 bad bit
    /// range; -32 cumulative signal in a fast/slow-send message of this
    /// session (checked for a device of feature level 100); -21 refused. A
    /// message this session did not add is reported, the command still sent.
    int AddSignal(unsigned short messageHandler, unsigned char group, unsigned short startSymbol,
                  unsigned short stopSymbol, unsigned char flags);
    /// Removes a signal: status, -21 refused, or a negative code.
    int RemoveSignal(unsigned short handler);
    /// Gives a signal a new value, right-aligned: for a signal this session
    /// added, neither cumulative nor one bit long, it is sent left-aligned in
    /// 16 bits as the device expects (an unknown signal is reported, the value
    /// sent as it is). flag is passed on; tracked: wait for the answer (else 0
    /// once sent). Status, -21 refused, or a negative code.
    int SignalChangeValue(unsigned short handler, unsigned short value, bool flag, bool tracked);
    /// Gives every signal of a group a new value: status, -21, or a negative code.
    int ChangeSignalSgroup(unsigned char group, unsigned short value);
    /// Makes the device apply the signal changes: status, -21, or a negative
    /// code; untracked: 0 once sent.
    int ExecuteSignalChange(bool tracked);
    /// Sets how the device drives a signal: controlMode and three arguments,
    /// passed on. Status, -21, or a negative code.
    int SetSignalControl(unsigned short handler, unsigned char controlMode, unsigned int arg1, unsigned int arg2,
                         unsigned int arg3);

    /// @}
    /// @name Checksums, gateway, blob
    /// A checksum block is 16 bytes, passed on. ChangeCrc and DisableCrc turn
    /// the device's answers 1, 2, 3 into -21, -22, -23.
    /// @{

    /// Adds a checksum configuration: status, -21 refused, -2 null block
    /// (reported), or a negative code.
    int AddCrc(const unsigned char* crcBlock);
    /// Changes a checksum configuration (crcBlock null: 16 bytes of rand(),
    /// which the library does not seed).
    int ChangeCrc(unsigned short handler, unsigned char* crcBlock);
    /// Switches a checksum configuration off.
    int DisableCrc(unsigned short handler);
    /// Sets the gateway identifier of a target (both passed on): status, -21,
    /// or a negative code.
    int GatewayID(unsigned char target, unsigned int id);
    /// Removes the device's blob: status, -21 refused, or a negative code.
    int BlobRemove();

    /// @}
    /// @name Reception requests and signal reading
    /// A request makes the device report the CAN messages with its identifier
    /// on the channels of channelMask (bits 0..3); the reports carry the low 16
    /// bits of the identifier (the request's handler). The receiver must run
    /// for reports to be filed.
    /// @{

    /// Asks the device to report a CAN message. idFlag sets bit 31 of the
    /// identifier word; data (null: none) holds the CAN FD length of dlc bytes.
    /// Returns the request key (channelMask << 16 | id & 0xFFFF) or -21 (bad
    /// DLC, nothing sent; or the device refused).
    int RequestMessage(unsigned char channelMask, unsigned int id, bool tailFlag, bool idFlag, unsigned char dlc,
                       bool flag7, bool flag6, const unsigned char* data);
    /// Switches a request on (handler: the low 16 bits of its identifier):
    /// status, -21, or a negative code.
    int EnableRequest(unsigned short handler);
    /// Switches a request off: status, -21, or a negative code.
    int DisableRequest(unsigned short handler);
    /// Removes a request: status, -21, or a negative code.
    int RemoveRequest(unsigned short handler);
    /// Registers a signal to read out of the reports of a request: bits
    /// StartSymbol..StopSymbol (at most 64; bit 0 is bit 0 of data byte 0).
    /// Host-only, nothing is sent. Returns a handle (1, 2, ...) or -1 (bad
    /// range, reported).
    int RequestSignal(int requestKey, unsigned short StartSymbol, unsigned short StopSymbol);
    /// Reads a registered signal from the latest report of its request, with
    /// its age in ms (age may be null); bits beyond 32 are dropped. 0; -1000
    /// doRead false; -3 receiver not running; -4 unknown handle; -1 no report
    /// yet; -2 bits beyond the data (both reported).
    int SignalReadValue(unsigned short handler, unsigned int& value, unsigned int* age, bool doRead);
    /// The same, up to 64 bits (a signal spread over more than 8 bytes is
    /// reported on the standard error stream).
    int SignalReadValue(unsigned short handler, unsigned long long& value, unsigned int* age, bool doRead);

    /// @}
    /// @name Reception as events (extensions)
    /// @{

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
    /// Sets every counter to 0.
    void ResetStatistics();
    /// Words for a result code. `operation`: the name of the member that
    /// returned it ("Connect", "ReadEeprom", "SignalReadValue", ...), since
    /// some codes mean different things to different operations; null or an
    /// unknown name gives the common meaning. The text stays valid until the
    /// next call on the same thread.
    static const char* ResultText(int code, const char* operation = nullptr);
    /// The library's version, "major.minor.patch".
    static const char* LibraryVersion();

    /// @}
    /// @name Waits a slow or noisy device must not break (extensions)
    /// @{

    /// How long GetResponse and GetBytesResponse wait for an answer while the
    /// receiver runs: default 50 ms; at most 65535. Always 0.
    int SetAnswerWait(unsigned int ms);
    /// How the receiver counts its read faults before it ends itself (more than
    /// 10): `consecutive` false counts every fault of its life (the default),
    /// true only faults in a row (a good frame starts the count again). Always 0.
    int SetReceiverErrorCounting(bool consecutive);

    /// @}

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
