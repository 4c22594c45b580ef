/**
 * @file TarvelBase.h
 * @brief What every public header of TarvelAPI shares: the export and
 * calling-convention macros, and the plain C types that cross the flat
 * interface.
 *
 * Valid C and C++; included by TarvelAPI.h, Tarvel.h, SerialPort.h,
 * TarvelPrinter.h and TarvelTypes.h. Applications include TarvelAPI.h.
 */
#ifndef TARVEL_BASE_H
#define TARVEL_BASE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

/**
 * @def TARVEL_API
 * @brief Marks what the shared library exports.
 *
 * Building the library (TARVEL_BUILDING_LIBRARY): `__declspec(dllexport)` on
 * Windows, default visibility elsewhere. Using it: `__declspec(dllimport)` on
 * Windows, nothing elsewhere. TARVEL_STATIC: linking the static library (no
 * import decoration on Windows).
 *
 * @def TARVEL_CALL
 * @brief Calling convention of the C entry points: `__cdecl` on Windows,
 * the platform's own elsewhere.
 */
#if defined(_WIN32)
#if defined(TARVEL_BUILDING_LIBRARY)
#define TARVEL_API __declspec(dllexport)
#elif defined(TARVEL_STATIC)
#define TARVEL_API
#else
#define TARVEL_API __declspec(dllimport)
#endif
#define TARVEL_CALL __cdecl
#else
#if defined(TARVEL_BUILDING_LIBRARY)
#define TARVEL_API __attribute__((visibility("default")))
#else
#define TARVEL_API
#endif
#define TARVEL_CALL
#endif

/** Result of an int entry point whose operation ended in a C++ exception
 * (out of memory, a thread that could not be created or joined, a throwing
 * log sink). */
#define TARVEL_ERROR_EXCEPTION (-9999)
/** Result of an int entry point given a null session handle, or a null
 * pointer where it needs one; nothing else is done. */
#define TARVEL_ERROR_NULL_POINTER (-9998)

/**
 * @def TARVEL_PRINTF_ARCHETYPE
 * @brief Archetype for format checks of the printf-like operations.
 *
 * The library formats with C99 conversions (`%zu`, `%lld`), on MinGW through its
 * own printf family (`gnu_printf`) rather than the system's; `printf`
 * elsewhere.
 */
#if defined(__MINGW32__)
#define TARVEL_PRINTF_ARCHETYPE gnu_printf
#else
#define TARVEL_PRINTF_ARCHETYPE printf
#endif

/**
 * @brief Logging channels of a session's Printer.
 *
 * In C++ the enumeration holds any int, so that a bad level from a caller is
 * refused rather than undefined. The short names ERR, INF and COM are left
 * out when TARVEL_NO_SHORT_LEVEL_NAMES is defined, and each one when another
 * header already defines it as a macro (curses' ERR); the TARVEL_ names are
 * always there.
 */
/* clang-format off */
typedef enum LOG_LEVELS_TARVEL
#ifdef __cplusplus
    : int
#endif
{
    TARVEL_ERR = 0, /**< errors; by default to the standard error stream */
    TARVEL_INF = 1, /**< information; by default to the standard output */
    TARVEL_COM = 2  /**< communication trace: one line per packet; no sink by default */
#ifndef TARVEL_NO_SHORT_LEVEL_NAMES
#ifndef ERR
    ,
    ERR = TARVEL_ERR /**< short name of TARVEL_ERR */
#endif
#ifndef INF
    ,
    INF = TARVEL_INF /**< short name of TARVEL_INF */
#endif
#ifndef COM
    ,
    COM = TARVEL_COM /**< short name of TARVEL_COM */
#endif
#endif
} LOG_LEVELS_TARVEL;
/* clang-format on */

/** Description of a CAN message that the device transmits by itself
 * (AddMessageTarvel, Tarvel::AddMessage). Fields without a meaning of the
 * host's own are passed on to the device as they are. */
typedef struct tagCanMessage {
    unsigned char dlc;       /**< data length code 0..15 (CAN FD table, Tarvel::kDlcToLength) */
    unsigned char selector1; /**< passed on; first key byte of GetHandler */
    unsigned char selector2; /**< passed on; second key byte of GetHandler */
    unsigned int id;         /**< CAN identifier; low 29 bits are sent */
    bool idFlag;             /**< bit 31 of the identifier word */
    bool flag6;              /**< bit 6 of the flags byte, passed on */
    bool flag5;              /**< bit 5 of the flags byte, passed on */
    bool flag4;              /**< bit 4 of the flags byte, passed on */
    bool extraFlag;          /**< passed on as a byte of its own (1 or 0) */
    bool enabled;            /**< message switched on */
    bool fastSlowSend;       /**< bit 7 of the flags byte; no cumulative signal allowed in it */
    unsigned short param1;   /**< passed on (the simulator: period in ms, 0 on change) */
    unsigned short param2;   /**< passed on */
    unsigned short param3;   /**< passed on */
} tagCanMessage;

/** One received CAN report as ReadAsyncMsgTarvel hands it out (packed, 16
 * bytes). */
#pragma pack(push, 1)
typedef struct TarvelAsyncMessage {
    uint32_t key;       /**< channel << 16 | handler; 0: no report */
    uint16_t handler;   /**< low 16 bits of the CAN identifier */
    uint8_t channel;    /**< channel index 0..3 */
    uint8_t dlc;        /**< data length code */
    uint8_t flag7;      /**< flag bit 7 of the report, 0 or 1 */
    uint8_t flag6;      /**< flag bit 6, 0 or 1 */
    uint8_t flag5;      /**< flag bit 5, 0 or 1 */
    uint8_t flag4;      /**< flag bit 4, 0 or 1 */
    uint32_t timestamp; /**< host milliseconds at reception (Tarvel::GetTickMs, low 32 bits) */
} TarvelAsyncMessage;
#pragma pack(pop)

/** One received CAN report, as the report queue, the report callback and
 * ReadReport hand it out (C and C++ alike; 96 bytes). */
typedef struct TarvelReport {
    uint64_t timeUs;     /**< microseconds since the Unix epoch, taken when the frame was read */
    uint32_t id;         /**< the full CAN identifier (only the low 16 bits when requestKey is 0) */
    int32_t requestKey;  /**< key of the request of this session it answers; 0: none known */
    uint16_t handler;    /**< the report's handler field: the low 16 bits of the identifier */
    uint8_t channel;     /**< CAN channel 0..3 */
    uint8_t extended;    /**< 1: 29-bit identifier, 0: 11-bit */
    uint8_t dlc;         /**< data length code 0..15 */
    uint8_t length;      /**< data bytes 0..64 (CAN FD length of dlc) */
    uint8_t flag7;       /**< the report's flag bit 7, 0 or 1 */
    uint8_t flag6;       /**< flag bit 6, 0 or 1 */
    uint8_t flag5;       /**< flag bit 5, 0 or 1 */
    uint8_t flag4;       /**< flag bit 4, 0 or 1 */
    uint8_t reserved[6]; /**< zero */
    uint8_t data[64];    /**< length bytes are valid */
} TarvelReport;

/** What a session has counted since it was made or ResetStatistics
 * (GetStatisticsTarvel, Tarvel::GetStatistics). */
typedef struct TarvelStatistics {
    uint64_t framesSent;        /**< command packets handed to the port */
    uint64_t bytesSent;         /**< their bytes (packets, before SLIP framing) */
    uint64_t framesReceived;    /**< frames read from the line */
    uint64_t bytesReceived;     /**< their bytes (decoded) */
    uint64_t rejectedSlip;      /**< frames refused by the SLIP decoder (too long, bad escape, cut off) */
    uint64_t rejectedLength;    /**< packets with a wrong length byte */
    uint64_t rejectedChecksum;  /**< packets with a wrong sum16 */
    uint64_t commandFailed;     /**< COMMAND_FAILED answers */
    uint64_t packetError;       /**< PACKET_ERROR answers */
    uint64_t slipProtoError;    /**< SLIP_PROTO_ERROR answers */
    uint64_t hardwareError;     /**< TARVEL_HW_ERROR packets */
    uint64_t exchangesTimedOut; /**< waits for an answer that ended without one */
    uint64_t reportsReceived;   /**< reports filed (map, queue, callback) */
    uint64_t reportsDropped;    /**< reports lost to a full report queue or callback backlog */
    uint64_t reportsBadChannel; /**< reports dropped for a channel above 3 */
    uint64_t writesDropped;     /**< frames lost to a full write queue */
    uint64_t receiverEnded;     /**< times the receiver thread ended itself after too many faults */
    uint64_t lastReceivedUs;    /**< time of the last frame read, microseconds since the Unix epoch (0: none) */
} TarvelStatistics;

/* The layout C callers rely on, checked wherever the header is compiled
 * (not part of the interface: undefined again below). */
#if defined(__cplusplus)
#define TARVEL_LAYOUT_CHECK(cond, what) static_assert(cond, what)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define TARVEL_LAYOUT_CHECK(cond, what) _Static_assert(cond, what)
#endif
#ifdef TARVEL_LAYOUT_CHECK
TARVEL_LAYOUT_CHECK(sizeof(TarvelAsyncMessage) == 16, "TarvelAsyncMessage is 16 bytes");
TARVEL_LAYOUT_CHECK(offsetof(TarvelAsyncMessage, handler) == 4, "handler at 4");
TARVEL_LAYOUT_CHECK(offsetof(TarvelAsyncMessage, channel) == 6, "channel at 6");
TARVEL_LAYOUT_CHECK(offsetof(TarvelAsyncMessage, dlc) == 7, "dlc at 7");
TARVEL_LAYOUT_CHECK(offsetof(TarvelAsyncMessage, flag7) == 8, "flag7 at 8");
TARVEL_LAYOUT_CHECK(offsetof(TarvelAsyncMessage, flag4) == 11, "flag4 at 11");
TARVEL_LAYOUT_CHECK(offsetof(TarvelAsyncMessage, timestamp) == 12, "timestamp at 12");
TARVEL_LAYOUT_CHECK(sizeof(TarvelReport) == 96, "TarvelReport is 96 bytes");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, id) == 8, "id at 8");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, requestKey) == 12, "requestKey at 12");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, handler) == 16, "handler at 16");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, channel) == 18, "channel at 18");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, extended) == 19, "extended at 19");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, dlc) == 20, "dlc at 20");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, length) == 21, "length at 21");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, flag7) == 22, "flag7 at 22");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, flag4) == 25, "flag4 at 25");
TARVEL_LAYOUT_CHECK(offsetof(TarvelReport, data) == 32, "data at 32");
TARVEL_LAYOUT_CHECK(sizeof(TarvelStatistics) == 18 * 8, "TarvelStatistics is 18 counters");
TARVEL_LAYOUT_CHECK(offsetof(TarvelStatistics, lastReceivedUs) == 17 * 8, "lastReceivedUs last");
#undef TARVEL_LAYOUT_CHECK
#endif

#endif /* TARVEL_BASE_H */
