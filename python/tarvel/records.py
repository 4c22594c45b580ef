"""What the library hands out, as plain Python values: reports, statistics, log levels."""

import ctypes
import enum
from dataclasses import dataclass
from typing import NamedTuple

from . import _types


class LogLevel(enum.IntEnum):
    """The session's logging channels (LOG_LEVELS_TARVEL)."""

    ERR = 0  #: errors (by default also written to the process's standard error)
    INF = 1  #: information
    COM = 2  #: communication trace


@dataclass(frozen=True)
class Report:
    """One received CAN frame, as the report queue, the report callback and read_report hand it out.

    Attributes:
        time_us: microseconds since the Unix epoch, taken when the frame was read.
        id: the full CAN identifier (from the request that asked for it; only
            the low 16 bits when ``request_key`` is 0).
        request_key: key of the request of this session it answers; 0: none known.
        handler: the low 16 bits of the identifier, as the device reports them.
        channel: CAN channel 0..3.
        extended: True for a 29-bit identifier.
        dlc: data length code 0..15.
        data: the data bytes (0..64, the CAN FD length of ``dlc``).
        flag7, flag6, flag5, flag4: the report's flag bits.
    """

    time_us: int
    id: int
    request_key: int
    handler: int
    channel: int
    extended: bool
    dlc: int
    data: bytes
    flag7: bool = False
    flag6: bool = False
    flag5: bool = False
    flag4: bool = False

    @property
    def timestamp(self) -> float:
        """The time in seconds since the Unix epoch (as time.time() counts)."""
        return self.time_us / 1e6

    @classmethod
    def from_c(cls, r: _types.Report) -> "Report":
        return cls(
            time_us=r.timeUs,
            id=r.id,
            request_key=r.requestKey,
            handler=r.handler,
            channel=r.channel,
            extended=bool(r.extended),
            dlc=r.dlc,
            data=ctypes.string_at(ctypes.addressof(r) + _types.Report.data.offset, min(r.length, 64)),
            flag7=bool(r.flag7),
            flag6=bool(r.flag6),
            flag5=bool(r.flag5),
            flag4=bool(r.flag4),
        )


@dataclass(frozen=True)
class AsyncMessage:
    """The latest report of a request in the original form (read_async_message).

    ``timestamp`` is the host's millisecond clock at reception (wrapping 32-bit
    counter); ``key`` is channel << 16 | handler.
    """

    key: int
    handler: int
    channel: int
    dlc: int
    flag7: bool
    flag6: bool
    flag5: bool
    flag4: bool
    timestamp: int
    data: bytes


class SignalValue(NamedTuple):
    """A signal read from the latest report: its value and how old that report is, in seconds."""

    value: int
    age: float


@dataclass(frozen=True)
class Statistics:
    """What a session has counted since it was made or reset_statistics() (TarvelStatistics)."""

    frames_sent: int  #: command packets handed to the port
    bytes_sent: int  #: their bytes (before SLIP framing)
    frames_received: int  #: frames read from the line
    bytes_received: int  #: their bytes (decoded)
    rejected_slip: int  #: frames refused by the SLIP decoder
    rejected_length: int  #: packets with a wrong length byte
    rejected_checksum: int  #: packets with a wrong checksum
    command_failed: int  #: COMMAND_FAILED answers
    packet_error: int  #: PACKET_ERROR answers
    slip_proto_error: int  #: SLIP_PROTO_ERROR answers
    hardware_error: int  #: TARVEL_HW_ERROR packets
    exchanges_timed_out: int  #: waits for an answer that ended without one
    reports_received: int  #: reports filed
    reports_dropped: int  #: reports lost to a full report queue or callback backlog
    reports_bad_channel: int  #: reports dropped for a channel above 3
    writes_dropped: int  #: frames lost to a full write queue
    receiver_ended: int  #: times the receiver ended itself after too many faults
    last_received_us: int  #: time of the last frame read, microseconds since the Unix epoch (0: none)

    @classmethod
    def from_c(cls, s: _types.Statistics) -> "Statistics":
        return cls(*(getattr(s, name) for name in _types.STATISTICS_FIELDS))
