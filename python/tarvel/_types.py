"""The plain C types that cross the flat interface (TarvelBase.h), as ctypes structures."""

import ctypes

#: Bytes of data for each data length code (CAN FD table).
DLC_TO_LENGTH = (0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64)
LENGTH_TO_DLC = {length: dlc for dlc, length in enumerate(DLC_TO_LENGTH)}


class CanMessage(ctypes.Structure):
    """tagCanMessage: a message the device transmits by itself."""

    _fields_ = [
        ("dlc", ctypes.c_ubyte),
        ("selector1", ctypes.c_ubyte),
        ("selector2", ctypes.c_ubyte),
        ("id", ctypes.c_uint),
        ("idFlag", ctypes.c_bool),
        ("flag6", ctypes.c_bool),
        ("flag5", ctypes.c_bool),
        ("flag4", ctypes.c_bool),
        ("extraFlag", ctypes.c_bool),
        ("enabled", ctypes.c_bool),
        ("fastSlowSend", ctypes.c_bool),
        ("param1", ctypes.c_ushort),
        ("param2", ctypes.c_ushort),
        ("param3", ctypes.c_ushort),
    ]


class AsyncMessage(ctypes.Structure):
    """TarvelAsyncMessage (packed, 16 bytes)."""

    _pack_ = 1
    _fields_ = [
        ("key", ctypes.c_uint32),
        ("handler", ctypes.c_uint16),
        ("channel", ctypes.c_uint8),
        ("dlc", ctypes.c_uint8),
        ("flag7", ctypes.c_uint8),
        ("flag6", ctypes.c_uint8),
        ("flag5", ctypes.c_uint8),
        ("flag4", ctypes.c_uint8),
        ("timestamp", ctypes.c_uint32),
    ]


class Report(ctypes.Structure):
    """TarvelReport (96 bytes)."""

    _fields_ = [
        ("timeUs", ctypes.c_uint64),
        ("id", ctypes.c_uint32),
        ("requestKey", ctypes.c_int32),
        ("handler", ctypes.c_uint16),
        ("channel", ctypes.c_uint8),
        ("extended", ctypes.c_uint8),
        ("dlc", ctypes.c_uint8),
        ("length", ctypes.c_uint8),
        ("flag7", ctypes.c_uint8),
        ("flag6", ctypes.c_uint8),
        ("flag5", ctypes.c_uint8),
        ("flag4", ctypes.c_uint8),
        ("reserved", ctypes.c_uint8 * 6),
        ("data", ctypes.c_uint8 * 64),
    ]


STATISTICS_FIELDS = (
    "framesSent",
    "bytesSent",
    "framesReceived",
    "bytesReceived",
    "rejectedSlip",
    "rejectedLength",
    "rejectedChecksum",
    "commandFailed",
    "packetError",
    "slipProtoError",
    "hardwareError",
    "exchangesTimedOut",
    "reportsReceived",
    "reportsDropped",
    "reportsBadChannel",
    "writesDropped",
    "receiverEnded",
    "lastReceivedUs",
)


class Statistics(ctypes.Structure):
    """TarvelStatistics: 18 unsigned 64-bit counters."""

    _fields_ = [(name, ctypes.c_uint64) for name in STATISTICS_FIELDS]


# The sizes C callers rely on (checked in TarvelBase.h as well).
assert ctypes.sizeof(AsyncMessage) == 16
assert ctypes.sizeof(Report) == 96 and Report.data.offset == 32
assert ctypes.sizeof(Statistics) == 18 * 8

#: void (*)(const char*): a log sink.
PRINT_FUNCTION = ctypes.CFUNCTYPE(None, ctypes.c_char_p)
#: void (*)(const TarvelReport*, void*): the report callback.
REPORT_FUNCTION = ctypes.CFUNCTYPE(None, ctypes.POINTER(Report), ctypes.c_void_p)
