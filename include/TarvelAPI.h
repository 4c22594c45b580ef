/**
 * @file TarvelAPI.h
 * @brief TarvelAPI: host library for the Tarvel CAN-bus simulator device.
 *
 * This one header serves C and C++ callers alike. A C compiler sees the
 * shared types (TarvelBase.h) and the flat entry points below, with the
 * session as the opaque type `Tarvel`. A C++ compiler additionally gets the
 * classes Tarvel and SerialPort (Tarvel.h, SerialPort.h); each entry point is
 * the C form of the Tarvel member of the same name without the suffix
 * (ConnectTarvel: Tarvel::Connect) and returns what that member returns.
 *
 * @par Result codes
 * Every operation returns a signed 32-bit value; 0 is success, positive
 * values carry a device answer or a count, negative values are errors. The
 * common mapping of device operations:
 * - a failed send is returned unchanged: -1 port not open or sender failed,
 *   -2..-5 sender thread not serving, -6 payload above 254 bytes;
 * - a failed wait c becomes c - 10: -14 no valid answer, -15 no answer in time
 *   with the receiver running;
 * - a device answer of 0xFFFF becomes -21;
 * - an answer read with the receiver off, after a TARVEL_HW_ERROR packet of
 *   the device in the same wait, has 0x10000 added.
 *
 * ResultTextTarvel and OperationResultTextTarvel put any code into words.
 *
 * @par Null handles and pointers
 * Every entry point that takes a session refuses a null handle, and a null
 * pointer it can't do without, with TARVEL_ERROR_NULL_POINTER (-9998) and a
 * message, before anything else (void ones just return): a null handle is
 * reported on the standard error stream, naming the entry point ("The
 * session handle is NULL!"), a null pointer on the session's error channel.
 * DeleteTarvel
 * takes null as "nothing to do", and the pointers the operations accept as
 * null (data blocks, the time of GetTimeTarvel, ...) keep their meaning.
 *
 * @par Exceptions
 * The C entry points never let a C++ exception escape (except NewTarvel,
 * which raises the allocation failure or the constructor's error): an entry
 * point that returns int returns TARVEL_ERROR_EXCEPTION when the operation
 * failed with an exception (out of memory, a thread that could not be created
 * or joined, a throwing log sink); the void ones drop it.
 *
 * @par Threads
 * A session may be used from several threads: each device operation holds the
 * session's exchange lock from its command to its answer, so operations of one
 * session run one after the other. The session runs up to three threads of
 * its own: the sender (writes queued frames), the receiver (StartReceiverTarvel)
 * and the delivery thread of the report callback. DeleteTarvel must be the last
 * call on a session, from outside its report callback and print sinks.
 */
#ifndef TARVEL_API_H
#define TARVEL_API_H

#include "TarvelBase.h"

#ifdef __cplusplus
class Tarvel;
extern "C" {
#else
typedef struct Tarvel Tarvel;
#endif

/** @name Session, connection and receiver */
/** @{ */

/** Creates a session (not connected); release it with DeleteTarvel. Its
 * error channel prints to the standard error stream and its information
 * channel to the standard output until changed. Raises the C++ exception of
 * a failed allocation or construction. */
TARVEL_API Tarvel* TARVEL_CALL NewTarvel(void);
/** Destroys a session; a null handle does nothing. Removes the report
 * callback (waiting for a call under way), stops the receiver, closes the
 * port and the trace file. Not from inside the session's report callback. */
TARVEL_API void TARVEL_CALL DeleteTarvel(Tarvel* tarvel);

/** Opens the serial port to the device (2,000,000 baud, 8 data bits, even
 * parity, one stop bit), sets the time-outs, purges the port and asks the
 * device for its version (a query, not a restart). As Tarvel::Connect.
 * @param tarvel the session
 * @param port a zero-terminated name (null counts as an empty name): a name
 *        with '/' is a device path, a bare name is looked up in /dev/ (on
 *        Windows: `\\.\<name>`, for example COM3)
 * @param readTimeout how long a read waits for data, in ms (0xFFFFFFFF: no limit)
 * @param writeTimeout how long a write may take, in ms
 * @return 0 connected; -1 another port is open; -2 cannot open; -3/-4 line
 *         settings failed; c-100 / c-200 time-outs / purge failed; c-300
 *         version query failed (-314: the device did not answer). The port's
 *         own failures are reported on the standard error stream. */
TARVEL_API int TARVEL_CALL ConnectTarvel(Tarvel* tarvel, const char* port, unsigned int readTimeout,
                                         unsigned int writeTimeout);
/** Closes the port: 0, or -1 when the port could not be closed. Forgets
 * what the session knew of the device's tables (transmit messages, signals,
 * requests, registered signal reads, the latest reports); a running receiver
 * ends by itself (waited for up to 1 s), and every waiter in WaitReportTarvel
 * is woken. */
TARVEL_API int TARVEL_CALL DisconnectTarvel(Tarvel* tarvel);

/** Starts the receiver thread, which reads every frame from the line,
 * hands answers to the waiting operation and files reports. It purges the
 * port first. 0 started; 1 already running; -1 the thread did not start in
 * time (1 s), or the port is not open (reported on the error channel). */
TARVEL_API int TARVEL_CALL StartReceiverTarvel(Tarvel* tarvel);
/** Stops the receiver thread and waits for it to end; a read under way is
 * woken, and so is every WaitReportTarvel. */
TARVEL_API void TARVEL_CALL StopReceiverTarvel(Tarvel* tarvel);
/** The session's threads: bit 0 receiver running; 0x10 sender serving; 0x20
 * sender starting, stopping or failed. */
TARVEL_API int TARVEL_CALL GetInternalThreadStatus(Tarvel* tarvel);
/** Latest report for a request key (of the channels in the key, the lowest
 * that holds one): -1 none, or the receiver is not running (msg and data
 * untouched); otherwise fills *msg and returns the number of data bytes
 * copied to data (at most maxLen), or 0 when data is null. A null msg gives
 * TARVEL_ERROR_NULL_POINTER. */
TARVEL_API int TARVEL_CALL ReadAsyncMsgTarvel(Tarvel* tarvel, int requestKey, TarvelAsyncMessage* msg,
                                              unsigned char* data, unsigned char maxLen);

/** @} */

/** @name Device control */
/** @{ */

/** Restarts the device (reset); the device's status or a negative code. The
 * session forgets the device's tables. */
TARVEL_API int TARVEL_CALL ResetTarvel(Tarvel* tarvel);
/** Reboots (mode false and true: the device's two reboot modes) and waits
 * up to 5 s for the device to answer a ping again; the result of the reboot
 * command (status or negative code), whether the ping came or not. The session
 * forgets the device's tables, and no other operation talks to the device
 * during the wait. */
TARVEL_API int TARVEL_CALL RebootTarvel(Tarvel* tarvel, bool mode);
/** Restarts the device into its bootloader; its status or a negative code.
 * The session forgets the device's tables. */
TARVEL_API int TARVEL_CALL BootloaderTarvel(Tarvel* tarvel);
/** 100 or 0 (device feature level), or a negative code. Asks, does not restart. */
TARVEL_API int TARVEL_CALL GetVersionTarvel(Tarvel* tarvel);
/** The device clock: 0 and *time set; -2 null pointer (reported on the
 * standard error stream); negative codes. */
TARVEL_API int TARVEL_CALL GetTimeTarvel(Tarvel* tarvel, long long* time);
/** Sets the device clock to the low 32 bits of time: the device's status,
 * -21 refused, or a negative code. */
TARVEL_API int TARVEL_CALL SetTimeTarvel(Tarvel* tarvel, long long time);

/** @} */

/** @name EEPROM
 * EEPROM blocks of 1..16 bytes: -1 bad length (or write below address 30),
 * -2 null pointer, -666 wrong block length returned. The checks report on
 * the standard error stream. */
/** @{ */

/** Reads length bytes from address into data: 0, or a code of the group. */
TARVEL_API int TARVEL_CALL ReadEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                            unsigned char* data);
/** Writes length bytes of data (null: zeros) from address on (30 or more):
 * the device's status, -21 refused, or a code of the group. */
TARVEL_API int TARVEL_CALL WriteEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                             const unsigned char* data);

/** @} */

/** @name Transmit messages
 * The commands that take a message handler return the device's status, -21
 * for a refusal (0xFFFF) and -22 for a handler the device does not accept
 * (answer 1), or a code of the exchange. */
/** @{ */

/** Adds a message that the device transmits by itself: the new handler (data
 * null: zero data; else the CAN FD length of msg->dlc is read from it), -21
 * invalid DLC or message, -22 invalid length, -23 device out of memory. */
TARVEL_API int TARVEL_CALL AddMessageTarvel(Tarvel* tarvel, const tagCanMessage* msg, const unsigned char* data);
/** Removes a transmit message from the device. */
TARVEL_API int TARVEL_CALL RemoveMessageTarvel(Tarvel* tarvel, unsigned short handler);
/** Switches a transmit message on. */
TARVEL_API int TARVEL_CALL EnableMessageTarvel(Tarvel* tarvel, unsigned short handler);
/** Switches a transmit message off. */
TARVEL_API int TARVEL_CALL DisableMessageTarvel(Tarvel* tarvel, unsigned short handler);
/** New data for a message this session added: data and mask each of the
 * message's length (mask null: all bits, 0xFF; data null: zeros); flag is
 * passed on; tracked: wait for the device's answer (else 0 once sent). -31:
 * handler unknown to this session (nothing sent). */
TARVEL_API int TARVEL_CALL SetMessageDataTarvel(Tarvel* tarvel, unsigned short handler, const unsigned char* data,
                                                const unsigned char* mask, bool flag, bool tracked);
/** The device's handler of the message with these key fields (as in
 * tagCanMessage; the identifier is sent as given, idFlag sets bit 31), or -21. */
TARVEL_API int TARVEL_CALL GetHandlerTarvel(Tarvel* tarvel, unsigned char selector1, unsigned char selector2,
                                            unsigned int id, bool idFlag, bool fastSlowSend, bool flag6);

/** @} */

/** @name Signals in transmit messages */
/** @{ */

/** Adds a signal: bits startSymbol..stopSymbol (at most 16) of a transmit
 * message; flags bit 7 (Tarvel::kSignalCumulative) makes it cumulative (an
 * alive counter). Returns the signal handler; -31 bad bit range, -32
 * cumulative signal in a fast/slow-send message, -21 refused. */
TARVEL_API int TARVEL_CALL AddSignalTarvel(Tarvel* tarvel, unsigned short messageHandler, unsigned char group,
                                           unsigned short startSymbol, unsigned short stopSymbol, unsigned char flags);
/** Removes a signal: the device's status, -21 refused, or a negative code. */
TARVEL_API int TARVEL_CALL RemoveSignalTarvel(Tarvel* tarvel, unsigned short handler);
/** Gives a signal a new value (right-aligned; the session aligns it as the
 * device expects); flag is passed on; tracked: wait for the answer (else 0
 * once sent). The device's status, -21 refused, or a negative code. */
TARVEL_API int TARVEL_CALL SignalChangeValueTarvel(Tarvel* tarvel, unsigned short handler, unsigned short value,
                                                   bool flag, bool tracked);
/** Gives every signal of a group a new value: status, -21, or a negative code. */
TARVEL_API int TARVEL_CALL ChangeSignalSgroupTarvel(Tarvel* tarvel, unsigned char group, unsigned short value);
/** Makes the device apply the signal changes: status, -21, or a negative
 * code; untracked: 0 once sent. */
TARVEL_API int TARVEL_CALL ExecuteSignalChangeTarvel(Tarvel* tarvel, bool tracked);
/** Sets how the device drives a signal: controlMode and three arguments,
 * passed on. Status, -21, or a negative code. */
TARVEL_API int TARVEL_CALL SetSignalControlTarvel(Tarvel* tarvel, unsigned short handler, unsigned char controlMode,
                                                  unsigned int arg1, unsigned int arg2, unsigned int arg3);

/** @} */

/** @name Checksums, gateway and blob
 * Checksums: ChangeCrc/DisableCrc answers 1, 2, 3 give -21, -22, -23;
 * AddCrcTarvel with a null block gives -2. A checksum block is 16 bytes,
 * passed on. */
/** @{ */

/** Adds a checksum configuration: the device's status, -21 refused, -2 null
 * block, or a negative code. */
TARVEL_API int TARVEL_CALL AddCrcTarvel(Tarvel* tarvel, const unsigned char* crcBlock);
/** Changes a checksum configuration (crcBlock null: 16 bytes of rand(),
 * which the library does not seed). */
TARVEL_API int TARVEL_CALL ChangeCrcTarvel(Tarvel* tarvel, unsigned short handler, unsigned char* crcBlock);
/** Switches a checksum configuration off. */
TARVEL_API int TARVEL_CALL DisableCrcTarvel(Tarvel* tarvel, unsigned short handler);
/** Removes the device's blob: status, -21 refused, or a negative code. */
TARVEL_API int TARVEL_CALL BlobRemoveTarvel(Tarvel* tarvel);

/** @} */

/** @name Reception requests and signal reading
 * A request makes the device report the CAN messages with its identifier on
 * the channels of channelMask (bits 0..3); the reports carry the low 16 bits
 * of the identifier (the request's handler). The receiver thread must run
 * for reports to be filed. */
/** @{ */

/** Asks the device to report a CAN message. idFlag sets bit 31 of the
 * identifier word; data (null: none) holds the CAN FD length of dlc bytes.
 * Returns the request key (channelMask << 16 | id & 0xFFFF) or -21 (bad
 * DLC, refused). */
TARVEL_API int TARVEL_CALL RequestMessageTarvel(Tarvel* tarvel, unsigned char channelMask, unsigned int id,
                                                bool tailFlag, bool idFlag, unsigned char dlc, bool flag7, bool flag6,
                                                const unsigned char* data);
/** Switches a request on (handler: the low 16 bits of its identifier):
 * status, -21, or a negative code. */
TARVEL_API int TARVEL_CALL EnableRequestTarvel(Tarvel* tarvel, unsigned short handler);
/** Switches a request off: status, -21, or a negative code. */
TARVEL_API int TARVEL_CALL DisableRequestTarvel(Tarvel* tarvel, unsigned short handler);
/** Removes a request: status, -21, or a negative code. */
TARVEL_API int TARVEL_CALL RemoveRequestTarvel(Tarvel* tarvel, unsigned short handler);

/** Registers a signal to read out of a request's reports: bits
 * StartSymbol..StopSymbol (at most 64; bit 0 is bit 0 of data byte 0).
 * Host-only, nothing is sent. Returns a handle (1, 2, ...) or -1. */
TARVEL_API int TARVEL_CALL RequestSignalTarvel(Tarvel* tarvel, int requestKey, unsigned short StartSymbol,
                                               unsigned short StopSymbol);
/** Reads a registered signal from the latest report of its request, with
 * its age in ms (age may be null); bits beyond 32 are dropped. 0; -5 null
 * value (before the handle check, without a message); -1000 doRead false;
 * -3 receiver not running; -4 unknown handle; -1 no report yet; -2 bits
 * beyond the data. */
TARVEL_API int TARVEL_CALL SignalReadValue32Tarvel(Tarvel* tarvel, unsigned short handler, unsigned int* value,
                                                   unsigned int* age, bool doRead);
/** The same, up to 64 bits. */
TARVEL_API int TARVEL_CALL SignalReadValue64Tarvel(Tarvel* tarvel, unsigned short handler, unsigned long long* value,
                                                   unsigned int* age, bool doRead);

/** @} */

/** @name Logging
 * The trace file (null name: trace off), sinks (0 added; -1 bad level; -2
 * channel full, at most 5 sinks per channel) and the session's own print
 * channels (LOG_LEVELS_TARVEL). A message goes to every sink of its channel
 * in the order they were added, on the thread that prints (the caller's, the
 * receiver's for the trace, the delivery thread's for operations the report
 * callback calls). A sink must not call operations of the session other than
 * its print functions. */
/** @{ */

/** Writes the session's trace to fileName, started afresh: every packet in
 * both directions on the COM channel, and what the ERR and INF channels
 * print, each line written through at once. A file open before is closed;
 * null name: trace off. A file that can't be opened is reported on the
 * error channel. */
TARVEL_API void TARVEL_CALL DebugCommTarvel(Tarvel* tarvel, const char* fileName);
/** Adds func as a sink of a channel; it gets each message as one
 * zero-terminated text, possibly from several threads at once. 0 added; -1
 * bad level; -2 channel full; a null func gives TARVEL_ERROR_NULL_POINTER. */
TARVEL_API int TARVEL_CALL SetPrintFunctionTarvel(Tarvel* tarvel, void (*func)(const char*), LOG_LEVELS_TARVEL level);
/** Removes every sink of func from a channel: 0, or -1 for a bad level. */
TARVEL_API int TARVEL_CALL ClearPrintFunctionTarvel(Tarvel* tarvel, void (*func)(const char*), LOG_LEVELS_TARVEL level);
/** Adds an open file as a sink of a channel; the session never flushes or
 * closes it. 0 added; -1 bad level; -2 channel full; a null file gives
 * TARVEL_ERROR_NULL_POINTER. */
TARVEL_API int TARVEL_CALL SetPrintFileTarvel(Tarvel* tarvel, FILE* file, LOG_LEVELS_TARVEL level);
/** Removes every sink of file from a channel: 0, or -1 for a bad level. Once
 * it has returned, nothing more is written to the file (it may be closed). */
TARVEL_API int TARVEL_CALL ClearPrintFileTarvel(Tarvel* tarvel, FILE* file, LOG_LEVELS_TARVEL level);
/**
 * @def TARVEL_PRINTF_CHECK
 * @brief Lets GCC and clang check the arguments of PrintfErrTarvel and
 * PrintfInfTarvel against their format; empty for other compilers.
 */
#if defined(__GNUC__)
#define TARVEL_PRINTF_CHECK __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 2, 3)))
#else
#define TARVEL_PRINTF_CHECK
#endif
/** Prints a printf-style message on the session's error channel (null
 * format: reported, nothing printed). */
TARVEL_API void TARVEL_CALL PrintfErrTarvel(Tarvel* tarvel, const char* format, ...) TARVEL_PRINTF_CHECK;
/** Prints a printf-style message on the session's information channel. */
TARVEL_API void TARVEL_CALL PrintfInfTarvel(Tarvel* tarvel, const char* format, ...) TARVEL_PRINTF_CHECK;

/** @} */

/** @name Reception as events
 * Every report the receiver reads goes, besides the latest-report map, to a
 * queue in arrival order (default 4096 reports; a full queue drops its oldest
 * and counts it) and to the report callback, with its full identifier (from
 * the request that asked for it) and a microsecond time stamp. */
/** @{ */

/** Checked RequestMessage: -31 (nothing sent) for an identifier too large for
 * its format or a request the device could not tell apart from a live one
 * (shared channel, same low 16 bits, other identifier or format); else as
 * RequestMessageTarvel, with `extended` as the identifier flag. */
TARVEL_API int TARVEL_CALL RequestReportTarvel(Tarvel* tarvel, unsigned char channelMask, unsigned int id,
                                               bool extended, bool tailFlag, unsigned char dlc, bool flag7, bool flag6,
                                               const unsigned char* data);
/** Queue capacity in reports; 0 switches the queue off (and empties it).
 * Reports a smaller capacity drops are counted. 0. */
TARVEL_API int TARVEL_CALL SetReportQueueTarvel(Tarvel* tarvel, unsigned int capacity);
/** The oldest report, waiting up to timeoutMs (0: no wait): 1 with *report
 * filled; 0 none in time; -2 queue off; -3 receiver not running and queue
 * empty. Any thread may wait; StopReceiverTarvel and DisconnectTarvel wake it. */
TARVEL_API int TARVEL_CALL WaitReportTarvel(Tarvel* tarvel, TarvelReport* report, unsigned int timeoutMs);
/** Up to maxCount reports at once, waiting up to timeoutMs for the first:
 * the number taken, 0, -2 or -3. */
TARVEL_API int TARVEL_CALL WaitReportsTarvel(Tarvel* tarvel, TarvelReport* reports, unsigned int maxCount,
                                             unsigned int timeoutMs);
/** function(report, user) for every report, in order, on the session's delivery
 * thread; null removes it. When this returns, the old callback is not running
 * (unless called from inside it). The callback may call any entry point of the
 * session but DeleteTarvel. A callback that falls behind by 65536 reports
 * loses the oldest (counted as dropped). 0. */
TARVEL_API int TARVEL_CALL SetReportCallbackTarvel(Tarvel* tarvel, void (*function)(const TarvelReport*, void*),
                                                   void* user);
/** The latest report of a request key, with its data: 0; -1 none yet. */
TARVEL_API int TARVEL_CALL ReadReportTarvel(Tarvel* tarvel, int requestKey, TarvelReport* report);
/** The session's counters (TarvelStatistics): 0. */
TARVEL_API int TARVEL_CALL GetStatisticsTarvel(Tarvel* tarvel, TarvelStatistics* statistics);
/** Sets every counter to 0: 0. */
TARVEL_API int TARVEL_CALL ResetStatisticsTarvel(Tarvel* tarvel);

/** @} */

/** @name Result texts and version
 * Words for a result code; with the name of the operation that returned it
 * ("ReadEeprom", "ReadEepromTarvel", ...) where a code means different things
 * to different operations. Valid until the next call on the same thread;
 * never null. Any thread, no session needed. */
/** @{ */

/** Words for a result code, in its common meaning. */
TARVEL_API const char* TARVEL_CALL ResultTextTarvel(int code);
/** Words for a result code of one operation (null or unknown: the common meaning). */
TARVEL_API const char* TARVEL_CALL OperationResultTextTarvel(const char* operation, int code);
/** The library's version, "major.minor.patch". */
TARVEL_API const char* TARVEL_CALL LibraryVersionTarvel(void);

/** @} */

/** @name Operations that had no C form
 * Ping (status, or -21 / c-10), GatewayID, the port's time-outs in
 * milliseconds. */
/** @{ */

/** Asks whether the device answers: its status, or -21 / c-10. Reports
 * nothing when it doesn't answer. */
TARVEL_API int TARVEL_CALL PingTarvel(Tarvel* tarvel);
/** Sets the gateway identifier of a target (both passed on): status, -21, or
 * a negative code. */
TARVEL_API int TARVEL_CALL GatewayIDTarvel(Tarvel* tarvel, unsigned char target, unsigned int id);
/** Sets the port's read and write time-outs in ms (read 0xFFFFFFFF: no
 * limit): 0; -1 (kept the old values, for example when the port is not open). */
TARVEL_API int TARVEL_CALL SetTimeoutTarvel(Tarvel* tarvel, unsigned int readTimeout, unsigned int writeTimeout);
/** The time-outs last set, in ms: 0; a null pointer gives TARVEL_ERROR_NULL_POINTER. */
TARVEL_API int TARVEL_CALL GetTimeoutTarvel(Tarvel* tarvel, unsigned int* readTimeout, unsigned int* writeTimeout);

/** @} */

/** @name Waits that a slow or noisy device must not break
 * How long an answer is awaited while the receiver runs (default 50 ms, at
 * most 65535); and whether the receiver counts only read faults in a row
 * before it ends itself (more than 10; default: all faults of its life).
 * Both 0. */
/** @{ */

/** How long an answer is awaited while the receiver runs, in ms (larger
 * values count as 65535). 0. */
TARVEL_API int TARVEL_CALL SetAnswerWaitTarvel(Tarvel* tarvel, unsigned int ms);
/** consecutive: the receiver ends itself only after more than 10 read faults
 * in a row. 0. */
TARVEL_API int TARVEL_CALL SetReceiverErrorCountingTarvel(Tarvel* tarvel, bool consecutive);

/** @} */

#ifdef __cplusplus
} /* extern "C" */
#endif

#ifdef __cplusplus
#include "Tarvel.h"
#endif

#endif /* TARVEL_API_H */
