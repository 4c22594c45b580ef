"""What the rest-bus puts on the device for a database and its simulated nodes: frames and how each signal is sent."""

import difflib
import fnmatch
from dataclasses import dataclass, field
from typing import List, Optional, Tuple

from .._types import DLC_TO_LENGTH, LENGTH_TO_DLC
from . import _database, _values
from ._values import SignalError

#: Signal names taken for alive counters unless told otherwise (case does not matter).
DEFAULT_COUNTER_PATTERNS = ("*Counter*", "*Alive*")
#: The most bits the device moves in one signal.
DEVICE_SIGNAL_BITS = 16
#: The longest cycle the device keeps, in milliseconds.
LONGEST_CYCLE_MS = 0xFFFF

DEVICE = "device"
COUNTER = "counter"
HOST = "host"


@dataclass(eq=False)
class SignalPlan:
    """One signal of a frame and how it is sent.

    ``kind``: "device" (a device signal, changed with one short command),
    "counter" (a cumulative device signal: the device adds 1 at every
    transmission) or "host" (encoded on the host, sent as a masked data
    update); ``why`` says why a signal is host-encoded.
    """

    name: str
    signal: object = field(repr=False)  # canmatrix.Signal
    kind: str
    bits: Tuple[int, ...]  # least significant first
    start_raw: object
    why: str = ""

    @property
    def unit(self):
        return self.signal.unit

    @property
    def start_value(self):
        """The start value, physical (a Decimal, or a float for floating-point signals)."""
        return _values.physical(self.signal, self.start_raw)


@dataclass(eq=False)
class FramePlan:
    """One frame a simulated node sends: identifier, length, cycle, initial data, signals."""

    name: str
    frame: object = field(repr=False)  # canmatrix.Frame
    can_id: int
    extended: bool
    length: int
    cycle_ms: int  # 0: sent when its data changes
    senders: Tuple[str, ...]
    signals: List[SignalPlan] = field(default_factory=list)
    initial: bytes = b""

    @property
    def dlc(self):
        return LENGTH_TO_DLC[self.length]

    @property
    def fd(self):
        return self.length > 8 or bool(self.frame.is_fd)

    @property
    def multiplexer(self) -> Optional[SignalPlan]:
        return next((s for s in self.signals if s.signal.is_multiplexer), None)

    def counted(self, kind):
        return sum(1 for s in self.signals if s.kind == kind)


def frame_length(frame):
    """The frame's data length: its DBC size, raised to the next CAN FD length (0..8, 12, ..., 64)."""
    if frame.size > 64:
        raise ValueError(f"{frame.name}: {frame.size} bytes is more than a CAN FD frame holds (64)")
    return next(length for length in DLC_TO_LENGTH if length >= frame.size)


def device_fit(signal, bits):
    """Why the device can't move a signal by itself, or "" when it can.

    The device places a value of at most 16 bits least significant bit first
    on consecutive bit numbers: any little-endian signal of that size, and a
    big-endian one that stays within one byte (there both orders agree).
    """
    if signal.is_float:
        return "float"
    if signal.size > DEVICE_SIGNAL_BITS:
        return f"{signal.size} bits"
    if list(bits) != list(range(bits[0], bits[0] + len(bits))):
        return "big-endian across bytes"
    return ""


def is_counter(name, counters, patterns):
    lowered = name.lower()
    return name in counters or any(fnmatch.fnmatchcase(lowered, p.lower()) for p in patterns)


def plan_frames(matrix, nodes, *, counters=(), counter_patterns=DEFAULT_COUNTER_PATTERNS):
    """The frames the nodes send, with every signal's way of being sent and the initial data.

    Raises ValueError for a node the database does not know or that sends
    nothing, a frame the device can't send, and for a counter named in
    ``counters`` that the device can't advance by itself.
    """
    nodes = list(nodes)
    if not nodes:
        raise ValueError("no node to simulate: name at least one")
    known = [ecu.name for ecu in matrix.ecus]
    for node in nodes:
        if node not in known:
            raise ValueError(f"node {node!r} is not in the database; its nodes are: {', '.join(known) or '(none)'}")
    counters = set(counters)
    frames = []
    for frame in matrix.frames:
        senders = tuple(frame.transmitters)
        if not any(node in senders for node in nodes):
            continue
        frames.append(_plan_frame(matrix, frame, senders, counters, counter_patterns))
    if not frames:
        raise ValueError(f"no frame of the database is sent by {', '.join(nodes)}")
    missing = sorted(counters - {s.name for f in frames for s in f.signals})
    if missing:
        raise ValueError(f"counter {missing[0]!r} is not a signal of the frames of {', '.join(nodes)}")
    return frames


def _plan_frame(matrix, frame, senders, counters, counter_patterns):
    length = frame_length(frame)
    cycle = _database.cycle_time_ms(matrix, frame)
    if not 0 <= cycle <= LONGEST_CYCLE_MS:
        raise ValueError(f"{frame.name}: a cycle time of {cycle} ms is more than the device keeps ({LONGEST_CYCLE_MS})")
    plan = FramePlan(
        name=frame.name,
        frame=frame,
        can_id=frame.arbitration_id.id,
        extended=bool(frame.arbitration_id.extended),
        length=length,
        cycle_ms=cycle,
        senders=senders,
    )
    multiplexed = frame.is_multiplexed
    for signal in frame.signals:
        bits = tuple(_values.field_bits(signal))
        if min(bits) < 0 or max(bits) >= 8 * length:
            raise ValueError(f"{frame.name}.{signal.name}: its bits lie outside the frame's {length} bytes")
        if signal.is_float and signal.size not in _values.FLOAT_MAX:
            raise ValueError(f"{frame.name}.{signal.name}: a float of {signal.size} bits (32 or 64 are known)")
        why = "multiplexed" if multiplexed else device_fit(signal, bits)
        if is_counter(signal.name, counters, counter_patterns):
            if why:
                if signal.name in counters:
                    raise ValueError(
                        f"{frame.name}.{signal.name}: the device advances counters of up to {DEVICE_SIGNAL_BITS} "
                        f"bits in little-endian order; this one is {why}"
                    )
                kind = HOST  # matched by a pattern only: an ordinary signal then
            else:
                kind = COUNTER
        else:
            kind = HOST if why else DEVICE
        start = _database.start_raw(matrix, signal)
        start = float(start) if signal.is_float else int(start.to_integral_value())
        low, high = _values.raw_range(signal)
        if not low <= start <= high:
            raise ValueError(f"{frame.name}.{signal.name}: its start value (raw {start}) does not fit its bits")
        plan.signals.append(SignalPlan(signal.name, signal, kind, bits, start, why if kind == HOST else ""))
    plan.initial = encode(plan, {s.name: s.start_raw for s in _page(plan, plan.signals)})
    return plan


def _page(plan, signals):
    """The signals of ``signals`` that a frame carries with its multiplexer at its start value."""
    mux = plan.multiplexer
    if mux is None:
        return list(signals)
    return [s for s in signals if s.signal.mux_val is None or s.signal.mux_val == mux.start_raw]


def encode(plan, raws, data=None):
    """The frame's data with the given raw values (name: raw) placed by canmatrix, over ``data`` (default zeros)."""
    placed = bytes(plan.frame.signals_to_bytes(raws)) if raws else b""
    placed = placed.ljust(plan.length, b"\0")
    if data is None:
        return placed
    mask = _values.bit_mask([b for s in plan.signals if s.name in raws for b in s.bits], plan.length)
    return bytes((d & ~m) | (p & m) for d, p, m in zip(data, placed, mask))


def check_values(plans, values, database=None):
    """Raw values for physical ones, grouped by frame: {FramePlan: {SignalPlan: raw}}.

    Every value is checked before anything is sent: names, ranges, steps.
    Setting a multiplexed signal sets its multiplexer to the signal's page too.
    ``database`` lets the refusal of a signal of another node's frame say so.
    """
    by_frame = {}
    for name, value in values.items():
        frame, signal = lookup(plans, name, database)
        if signal.kind == COUNTER:
            raise SignalError(f"{name}: an alive counter, advanced by the device at every transmission", name)
        raw = _values.to_raw(signal.signal, value, name)
        chosen = by_frame.setdefault(frame.name, (frame, {}))[1]
        chosen[signal] = raw
        mux_val = signal.signal.mux_val
        if mux_val is not None and frame.multiplexer is not None:
            previous = chosen.get(frame.multiplexer, mux_val)
            if previous != mux_val:
                raise SignalError(f"{name}: on multiplexer page {mux_val}, another signal given is not", name)
            chosen[frame.multiplexer] = mux_val
    return dict(by_frame.values())


def lookup(plans, name, database=None):
    """(FramePlan, SignalPlan) of a signal name, or of "FRAME.SIGNAL"; SignalError when none or ambiguous."""
    found = find(((f, s) for f in plans for s in f.signals), name, lambda f: f.name, lambda s: s.name)
    if found:
        return found
    if database is not None:
        elsewhere = find(
            ((f, s) for f in database.frames for s in f.signals), name, lambda f: f.name, lambda s: s.name
        )
        if elsewhere:
            senders = ", ".join(elsewhere[0].transmitters) or "no node"
            raise SignalError(
                f"{name}: its frame {elsewhere[0].name} is sent by {senders}, not by the simulated nodes; "
                "read() reads it",
                name,
            )
    names = {s.name for f in plans for s in f.signals}
    raise SignalError(unknown_signal_message(names, name, "the frames of the simulated nodes"), name)


def find(pairs, name, frame_name_of, signal_name_of):
    """The one (frame, signal) pair named SIGNAL or FRAME.SIGNAL, None when none; SignalError when several."""
    if not isinstance(name, str):
        raise SignalError(f"a signal name is text, got {name!r}")
    frame_name, _, signal_name = name.rpartition(".")
    found = [
        (f, s)
        for f, s in pairs
        if signal_name_of(s) == signal_name and (not frame_name or frame_name_of(f) == frame_name)
    ]
    if len(found) > 1:
        where = ", ".join(f"{frame_name_of(f)}.{signal_name_of(s)}" for f, s in found)
        raise SignalError(f"{name}: more than one frame has it ({where}); name it as FRAME.SIGNAL", name)
    return found[0] if found else None


def unknown_signal_message(names, name, where):
    close = difflib.get_close_matches(name.rpartition(".")[2], sorted(names), n=3)
    hint = f"; did you mean {' or '.join(close)}?" if close else ""
    return f"unknown signal {name!r}: not in {where}{hint}"
