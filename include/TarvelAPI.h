/*
 * TarvelAPI: host library for the Tarvel CAN-bus simulator device.
 *
 * This one header serves C and C++ callers alike. A C compiler sees the
 * shared types and the flat entry points, with the session as the opaque
 * type `Tarvel`. A C++ compiler additionally gets the classes `Tarvel` and
 * `SerialPort` (Tarvel.h, SerialPort.h).
 *
 * Result codes: every operation returns a signed 32-bit value; 0 is success,
 * positive values carry a device answer or a count, negative values are
 * errors. The common mapping of device operations: a failed send is
 * returned unchanged (-1 port not open or sender failed, -2..-5 sender
 * thread not serving, -6 payload above 254 bytes),
 * a failed wait c becomes c - 10 (-14: no valid answer, -15: no answer in
 * time with the receiver running), a device answer of 0xFFFF becomes -21.
 *
 * Every entry point that takes a session refuses a null handle, and a null
 * pointer it can't do without, with TARVEL_ERROR_NULL_POINTER (-9998) and a
 * message, before anything else (void ones just return); DeleteTarvel takes
 * null as "nothing to do", and the pointers the operations accept as null
 * (data blocks, the time of GetTimeTarvel, ...) keep their meaning.
 *
 * The C entry points never let a C++ exception escape (except NewTarvel,
 * which raises the allocation failure or the constructor's error): an entry
 * point that returns int returns TARVEL_ERROR_EXCEPTION when the operation
 * failed with an exception (out of memory, a thread that could not be created
 * or joined, a throwing log sink); the void ones drop it.
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

/* Creates a session (not connected); release it with DeleteTarvel. */
TARVEL_API Tarvel* TARVEL_CALL NewTarvel(void);
/* Destroys a session; a null handle does nothing. */
TARVEL_API void TARVEL_CALL DeleteTarvel(Tarvel* tarvel);

/* port: a zero-terminated name (null counts as an empty name).
 * 0 connected; -1 another port is open; -2 cannot open; -3/-4 line settings
 * failed; c-100 / c-200 time-outs / purge failed; c-300 version query
 * failed (-314: the device did not answer). */
TARVEL_API int TARVEL_CALL ConnectTarvel(Tarvel* tarvel, const char* port, unsigned int readTimeout,
                                         unsigned int writeTimeout);
/* 0, or -1 when the port could not be closed. */
TARVEL_API int TARVEL_CALL DisconnectTarvel(Tarvel* tarvel);

/* 0 started; 1 already running; -1 the thread did not start in time. */
TARVEL_API int TARVEL_CALL StartReceiverTarvel(Tarvel* tarvel);
TARVEL_API void TARVEL_CALL StopReceiverTarvel(Tarvel* tarvel);
/* bit 0 receiver running; 0x10 sender serving; 0x20 sender starting,
 * stopping or failed. */
TARVEL_API int TARVEL_CALL GetInternalThreadStatus(Tarvel* tarvel);
/* Latest report for a request key: -1 none (msg and data untouched);
 * otherwise fills *msg and returns the number of data bytes copied to data
 * (at most maxLen), or 0 when data is null. */
TARVEL_API int TARVEL_CALL ReadAsyncMsgTarvel(Tarvel* tarvel, int requestKey, TarvelAsyncMessage* msg,
                                              unsigned char* data, unsigned char maxLen);

/* Device control: the device's status or a negative code. */
TARVEL_API int TARVEL_CALL ResetTarvel(Tarvel* tarvel);
/* Reboots and waits up to 5 s for the device to answer a ping again. */
TARVEL_API int TARVEL_CALL RebootTarvel(Tarvel* tarvel, bool mode);
TARVEL_API int TARVEL_CALL BootloaderTarvel(Tarvel* tarvel);
/* 100 or 0 (device feature level), or a negative code. */
TARVEL_API int TARVEL_CALL GetVersionTarvel(Tarvel* tarvel);
/* 0 and *time set; -2 null pointer; negative codes. */
TARVEL_API int TARVEL_CALL GetTimeTarvel(Tarvel* tarvel, long long* time);
TARVEL_API int TARVEL_CALL SetTimeTarvel(Tarvel* tarvel, long long time);

/* EEPROM blocks of 1..16 bytes: -1 bad length (or write below address 30),
 * -2 null pointer, -666 wrong block length returned. */
TARVEL_API int TARVEL_CALL ReadEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                            unsigned char* data);
TARVEL_API int TARVEL_CALL WriteEepromTarvel(Tarvel* tarvel, unsigned short address, unsigned char length,
                                             const unsigned char* data);

/* Transmit messages: AddMessageTarvel returns the new handler (data null:
 * zero data), -21 invalid DLC or message, -22 invalid length, -23 device
 * out of memory. */
TARVEL_API int TARVEL_CALL AddMessageTarvel(Tarvel* tarvel, const tagCanMessage* msg, const unsigned char* data);
TARVEL_API int TARVEL_CALL RemoveMessageTarvel(Tarvel* tarvel, unsigned short handler);
TARVEL_API int TARVEL_CALL EnableMessageTarvel(Tarvel* tarvel, unsigned short handler);
TARVEL_API int TARVEL_CALL DisableMessageTarvel(Tarvel* tarvel, unsigned short handler);
/* -31: handler unknown to this session (nothing sent). */
TARVEL_API int TARVEL_CALL SetMessageDataTarvel(Tarvel* tarvel, unsigned short handler, const unsigned char* data,
                                                const unsigned char* mask, bool flag, bool tracked);
TARVEL_API int TARVEL_CALL GetHandlerTarvel(Tarvel* tarvel, unsigned char selector1, unsigned char selector2,
                                            unsigned int id, bool idFlag, bool fastSlowSend, bool flag6);

/* Signals: AddSignalTarvel returns the signal handler; -31 bad bit range,
 * -32 cumulative signal in a fast/slow-send message. */
TARVEL_API int TARVEL_CALL AddSignalTarvel(Tarvel* tarvel, unsigned short messageHandler, unsigned char group,
                                           unsigned short startSymbol, unsigned short stopSymbol, unsigned char flags);
TARVEL_API int TARVEL_CALL RemoveSignalTarvel(Tarvel* tarvel, unsigned short handler);
TARVEL_API int TARVEL_CALL SignalChangeValueTarvel(Tarvel* tarvel, unsigned short handler, unsigned short value,
                                                   bool flag, bool tracked);
TARVEL_API int TARVEL_CALL ChangeSignalSgroupTarvel(Tarvel* tarvel, unsigned char group, unsigned short value);
TARVEL_API int TARVEL_CALL ExecuteSignalChangeTarvel(Tarvel* tarvel, bool tracked);
TARVEL_API int TARVEL_CALL SetSignalControlTarvel(Tarvel* tarvel, unsigned short handler, unsigned char controlMode,
                                                  unsigned int arg1, unsigned int arg2, unsigned int arg3);

/* Checksums: ChangeCrc/DisableCrc answers 1, 2, 3 give -21, -22, -23;
 * AddCrcTarvel with a null block gives -2. */
TARVEL_API int TARVEL_CALL AddCrcTarvel(Tarvel* tarvel, const unsigned char* crcBlock);
TARVEL_API int TARVEL_CALL ChangeCrcTarvel(Tarvel* tarvel, unsigned short handler, unsigned char* crcBlock);
TARVEL_API int TARVEL_CALL DisableCrcTarvel(Tarvel* tarvel, unsigned short handler);
TARVEL_API int TARVEL_CALL BlobRemoveTarvel(Tarvel* tarvel);

/* Reception requests: RequestMessageTarvel returns the request key
 * (channelMask << 16 | id & 0xFFFF) or -21 (bad DLC, refused). */
TARVEL_API int TARVEL_CALL RequestMessageTarvel(Tarvel* tarvel, unsigned char channelMask, unsigned int id,
                                                bool tailFlag, bool idFlag, unsigned char dlc, bool flag7, bool flag6,
                                                const unsigned char* data);
TARVEL_API int TARVEL_CALL EnableRequestTarvel(Tarvel* tarvel, unsigned short handler);
TARVEL_API int TARVEL_CALL DisableRequestTarvel(Tarvel* tarvel, unsigned short handler);
TARVEL_API int TARVEL_CALL RemoveRequestTarvel(Tarvel* tarvel, unsigned short handler);

/* Signal reading: RequestSignalTarvel returns a handle (1, 2, ...) or -1.
 * SignalReadValue: 0; -5 null value; -1000 doRead false; -3 receiver not
 * running; -4 unknown handle; -1 no report yet; -2 bits beyond the data. */
TARVEL_API int TARVEL_CALL RequestSignalTarvel(Tarvel* tarvel, int requestKey, unsigned short StartSymbol,
                                               unsigned short StopSymbol);
TARVEL_API int TARVEL_CALL SignalReadValue32Tarvel(Tarvel* tarvel, unsigned short handler, unsigned int* value,
                                                   unsigned int* age, bool doRead);
TARVEL_API int TARVEL_CALL SignalReadValue64Tarvel(Tarvel* tarvel, unsigned short handler, unsigned long long* value,
                                                   unsigned int* age, bool doRead);

/* Logging: the trace file (null name: trace off), sinks (0 added; -1 bad
 * level; -2 channel full) and the session's own print channels. */
TARVEL_API void TARVEL_CALL DebugCommTarvel(Tarvel* tarvel, const char* fileName);
TARVEL_API int TARVEL_CALL SetPrintFunctionTarvel(Tarvel* tarvel, void (*func)(const char*), LOG_LEVELS_TARVEL level);
TARVEL_API int TARVEL_CALL ClearPrintFunctionTarvel(Tarvel* tarvel, void (*func)(const char*), LOG_LEVELS_TARVEL level);
TARVEL_API int TARVEL_CALL SetPrintFileTarvel(Tarvel* tarvel, FILE* file, LOG_LEVELS_TARVEL level);
TARVEL_API int TARVEL_CALL ClearPrintFileTarvel(Tarvel* tarvel, FILE* file, LOG_LEVELS_TARVEL level);
#if defined(__GNUC__)
#define TARVEL_PRINTF_CHECK __attribute__((format(TARVEL_PRINTF_ARCHETYPE, 2, 3)))
#else
#define TARVEL_PRINTF_CHECK
#endif
TARVEL_API void TARVEL_CALL PrintfErrTarvel(Tarvel* tarvel, const char* format, ...) TARVEL_PRINTF_CHECK;
TARVEL_API void TARVEL_CALL PrintfInfTarvel(Tarvel* tarvel, const char* format, ...) TARVEL_PRINTF_CHECK;

/* --- Reception as events --------------------------------------------------
 * Every report the receiver reads goes, besides the latest-report map, to a
 * queue in arrival order (default 4096 reports; a full queue drops its oldest
 * and counts it) and to the report callback, with its full identifier (from
 * the request that asked for it) and a microsecond time stamp. */

/* Checked RequestMessage: -31 (nothing sent) for an identifier too large for
 * its format or a request the device could not tell apart from a live one
 * (shared channel, same low 16 bits, other identifier or format); else as
 * RequestMessageTarvel, with `extended` as the identifier flag. */
TARVEL_API int TARVEL_CALL RequestReportTarvel(Tarvel* tarvel, unsigned char channelMask, unsigned int id,
                                               bool extended, bool tailFlag, unsigned char dlc, bool flag7, bool flag6,
                                               const unsigned char* data);
/* Queue capacity in reports; 0 switches the queue off. 0. */
TARVEL_API int TARVEL_CALL SetReportQueueTarvel(Tarvel* tarvel, unsigned int capacity);
/* The oldest report, waiting up to timeoutMs (0: no wait): 1 with *report
 * filled; 0 none in time; -2 queue off; -3 receiver not running and queue empty. */
TARVEL_API int TARVEL_CALL WaitReportTarvel(Tarvel* tarvel, TarvelReport* report, unsigned int timeoutMs);
/* Up to maxCount reports at once: the number taken, 0, -2 or -3. */
TARVEL_API int TARVEL_CALL WaitReportsTarvel(Tarvel* tarvel, TarvelReport* reports, unsigned int maxCount,
                                             unsigned int timeoutMs);
/* function(report, user) for every report, in order, on the session's delivery
 * thread; null removes it. When this returns, the old callback is not running
 * (unless called from inside it). The callback may call any entry point of the
 * session but DeleteTarvel. 0. */
TARVEL_API int TARVEL_CALL SetReportCallbackTarvel(Tarvel* tarvel, void (*function)(const TarvelReport*, void*),
                                                   void* user);
/* The latest report of a request key, with its data: 0; -1 none yet. */
TARVEL_API int TARVEL_CALL ReadReportTarvel(Tarvel* tarvel, int requestKey, TarvelReport* report);
/* The session's counters (TarvelStatistics): 0. */
TARVEL_API int TARVEL_CALL GetStatisticsTarvel(Tarvel* tarvel, TarvelStatistics* statistics);
TARVEL_API int TARVEL_CALL ResetStatisticsTarvel(Tarvel* tarvel);

/* Words for a result code; with the name of the operation that returned it
 * ("ReadEeprom", "ReadEepromTarvel", ...) where a code means different things
 * to different operations. Valid until the next call on the same thread. */
TARVEL_API const char* TARVEL_CALL ResultTextTarvel(int code);
TARVEL_API const char* TARVEL_CALL OperationResultTextTarvel(const char* operation, int code);
/* "major.minor.patch". */
TARVEL_API const char* TARVEL_CALL LibraryVersionTarvel(void);

/* Operations that had no C form: Ping (status, or -21 / c-10), GatewayID,
 * the port's time-outs in milliseconds. */
TARVEL_API int TARVEL_CALL PingTarvel(Tarvel* tarvel);
TARVEL_API int TARVEL_CALL GatewayIDTarvel(Tarvel* tarvel, unsigned char target, unsigned int id);
TARVEL_API int TARVEL_CALL SetTimeoutTarvel(Tarvel* tarvel, unsigned int readTimeout, unsigned int writeTimeout);
TARVEL_API int TARVEL_CALL GetTimeoutTarvel(Tarvel* tarvel, unsigned int* readTimeout, unsigned int* writeTimeout);

/* Waits that a slow or noisy device must not break. How long an answer is
 * awaited while the receiver runs (default 50 ms, at most 65535); and whether
 * the receiver counts only read faults in a row before it ends itself (more
 * than 10; default: all faults of its life). Both 0. */
TARVEL_API int TARVEL_CALL SetAnswerWaitTarvel(Tarvel* tarvel, unsigned int ms);
TARVEL_API int TARVEL_CALL SetReceiverErrorCountingTarvel(Tarvel* tarvel, bool consecutive);

#ifdef __cplusplus
} /* extern "C" */
#endif

#ifdef __cplusplus
#include "Tarvel.h"
#endif

#endif /* TARVEL_API_H */
