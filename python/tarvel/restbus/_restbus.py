"""tarvel.restbus.RestBus: whole nodes of a DBC file played by a Tarvel device."""

import threading
import time
from typing import NamedTuple, Optional, Union

from .._convert import whole
from .._types import LENGTH_TO_DLC
from ..errors import TarvelError
from . import _database, _plan, _table, _values
from ._plan import COUNTER, DEFAULT_COUNTER_PATTERNS, DEVICE, HOST
from ._values import SignalError

#: What a cumulative signal adds at every transmission of its frame.
COUNTER_STEP = 1
POLL = 0.005


class SignalReading(NamedTuple):
    """A signal read from the latest frame received: physical value, unit, age in seconds."""

    name: str
    value: Union[int, float]
    unit: str
    age: float  #: seconds since the frame was received
    raw: Union[int, float]
    label: Optional[str] = None  #: the value table's name for the value, when it has one

    def __str__(self):
        shown = _values.with_unit(self.value, self.unit)
        if self.label is not None:
            shown += f" ({self.label})"
        return f"{self.name} = {shown}, {self.age * 1000:.0f} ms ago"


class RestBus:
    """The nodes of a CAN database played by a Tarvel device: their frames at their cycle times, their signals by name.

    Building it reads the database and decides, for every frame the nodes
    send, how each signal goes on the bus; nothing is sent until
    :meth:`start` (or ``with``). Then every frame is a transmit message of
    the device, with its identifier, length, cycle time (none: sent when its
    data changes) and the signals' start values, and:

    - little-endian signals of up to 16 bits (and big-endian ones within one
      byte) are device signals: :meth:`set` is one short command;
    - the others (big-endian across bytes, wider than 16 bits, floats,
      multiplexed) are encoded on the host and sent as a masked data update;
    - alive counters (named in ``counters``, or matching a pattern of
      ``counter_patterns``, case ignored) are cumulative device signals: the
      device adds 1 at every transmission.

    ::

        with tarvel.Device(port) as device, RestBus(device, "vehicle.dbc", ["Chassis"]) as rest:
            rest.set("VehicleSpeed", 120.5)                  # km/h, as the DBC has it
            rest.set_many({"Odometer": 12345.6, "FuelLevel": 40})
            print(rest.read("EngineSpeed"))                  # EngineSpeed = 3000 rpm, 12 ms ago

    Args:
        device: a connected :class:`tarvel.Device`.
        database: the path of a DBC file, or a canmatrix.CanMatrix.
        nodes: the node name(s) to play.
        channel: the CAN channel (0 to 3) of every frame and request.
        counters: signal names that are alive counters.
        counter_patterns: shell-style patterns of alive counter names; () for none.
        values: start values to use instead of the database's (name: physical value).
    """

    def __init__(
        self,
        device,
        database,
        nodes,
        *,
        channel=0,
        counters=(),
        counter_patterns=DEFAULT_COUNTER_PATTERNS,
        values=None,
    ):
        self.device = device
        self.database = _database.load(database)
        self.nodes = (nodes,) if isinstance(nodes, str) else tuple(nodes)
        self.channel = whole(channel, "channel", 0, 3)
        self.frames = _plan.plan_frames(
            self.database, self.nodes, counters=counters, counter_patterns=counter_patterns
        )
        # The raw value of every signal but the counters as the device has it (start: the initial data).
        self._initial = {s: s.start_raw for f in self.frames for s in f.signals if s.kind != COUNTER}
        for frame, raws in _plan.check_values(self.frames, dict(values or {}), self.database).items():
            frame.initial = _plan.encode(frame, {s.name: raw for s, raw in raws.items()}, frame.initial)
            self._initial.update(raws)
        self._current = dict(self._initial)
        self._lock = threading.RLock()
        self._messages = {}  # FramePlan -> message handler
        self._signals = {}  # SignalPlan -> signal handler
        self._requests = {}  # frame name -> request key
        self._receiver_started = False
        self._running = False

    def __repr__(self):
        state = "running" if self._running else "stopped"
        return f"<tarvel.restbus.RestBus {'+'.join(self.nodes)}: {len(self.frames)} frames, {state}>"

    def __enter__(self):
        return self.start()

    def __exit__(self, exc_type, exc, tb):
        try:
            self.stop()
        except TarvelError:
            if exc_type is None:
                raise

    @property
    def running(self):
        """True between start() and stop()."""
        return self._running

    def table(self):
        """The set-up as a text table: frames, identifiers, lengths, cycle times, how each signal is sent, values."""
        return _table.table(self)

    def signals(self, kind=None):
        """The signals of the simulated frames (SignalPlan), all or of one kind ("device", "counter", "host")."""
        return [s for f in self.frames for s in f.signals if kind is None or s.kind == kind]

    # --- on the device ------------------------------------------------------------

    def start(self):
        """Puts every frame on the device and switches them on together; returns self.

        On a failure, what was set up is removed again and the TarvelError raised.
        """
        with self._lock:
            if self._running:
                return self
            self._current = dict(self._initial)
            try:
                for frame in self.frames:
                    self._add(frame)
                for frame in self.frames:
                    self.device.enable_message(self._messages[frame])
            except BaseException:
                self._remove_all(quiet=True)
                raise
            self._running = True
            return self

    def _add(self, frame):
        handler = self.device.add_message(
            frame.can_id,
            frame.initial,
            channel=self.channel,
            extended=frame.extended,
            period=frame.cycle_ms / 1000,
            enabled=False,
        )
        self._messages[frame] = handler
        for signal in frame.signals:
            if signal.kind == HOST:
                continue
            counter = signal.kind == COUNTER
            self._signals[signal] = self.device.add_signal(handler, signal.bits[0], signal.bits[-1], cumulative=counter)
            if counter:
                self.device.signal_change_value(self._signals[signal], COUNTER_STEP)

    def stop(self):
        """Removes from the device every frame (with its signals) and request this rest-bus made. Idempotent.

        Stops the receiver if :meth:`read` started it.
        """
        with self._lock:
            self._running = False
            self._remove_all(quiet=False)

    def _remove_all(self, quiet):
        failure = None
        removals = [(self.device.remove_request, key) for key in self._requests.values()]
        removals += [(self.device.remove_message, handler) for handler in self._messages.values()]
        self._requests.clear()
        self._messages.clear()
        self._signals.clear()
        for remove, what in removals:
            try:
                remove(what)
            except TarvelError as error:
                failure = failure or error
        if self._receiver_started:
            self._receiver_started = False
            self.device.stop_receiver()
        if failure is not None and not quiet:
            raise failure

    # --- signals ------------------------------------------------------------------

    def set(self, name, value):
        """Gives a signal of a simulated frame a physical value (a name of its value table also does).

        ``name`` is the signal's name, or FRAME.SIGNAL when several frames
        have it. Raises SignalError, with nothing sent, for an unknown
        signal, an alive counter, or a value outside the signal's range or
        between two of its steps.
        """
        self.set_many({name: value})

    def set_many(self, values):
        """Gives several signals physical values; the signals of one frame change together.

        Every value is checked before anything is sent (SignalError). In a
        frame, device signals alone are staged and applied by one command
        (for all such frames at once); a frame with a host-encoded signal
        among them gets one masked data update that carries all of them.
        """
        chosen = _plan.check_values(self.frames, dict(values), self.database)
        with self._lock:
            if not self._running:
                raise RuntimeError("the rest-bus is not running: start() it first")
            staged = []
            for frame, raws in chosen.items():
                handler = self._messages[frame]
                if all(s.kind == DEVICE for s in raws):
                    one = len(chosen) == 1 and len(raws) == 1
                    for signal, raw in raws.items():
                        field = _values.field_value(raw, signal.signal.size)
                        self.device.signal_change_value(self._signals[signal], field, immediate=one)
                    if one:
                        self._current.update(raws)
                    else:
                        staged.append(raws)
                    continue
                data = _plan.encode(frame, {s.name: raw for s, raw in raws.items()})
                mask = _values.bit_mask([b for s in raws for b in s.bits], frame.length)
                self.device.set_message_data(handler, data, mask)
                self._current.update(raws)
            if staged:
                self.device.execute_signal_change()
                for raws in staged:
                    self._current.update(raws)

    def get(self, name):
        """The physical value the rest-bus gives a signal of its frames now (its start value until set)."""
        frame, signal = _plan.lookup(self.frames, name, self.database)
        if signal.kind == COUNTER:
            raise SignalError(f"{name}: an alive counter, advanced by the device at every transmission", name)
        return _values.reading_value(signal.signal, self._current[signal])

    def read(self, name, timeout=1.0):
        """A signal of any frame of the database, from the latest such frame received on the channel.

        The first read of a frame asks the device to report it (a request,
        kept until stop()) and starts the session's receiver when it is not
        running; it waits up to ``timeout`` seconds for a frame (TimeoutError
        when none came). Returns a SignalReading: physical value, unit, age.
        With the receiver running, commands wait for their answers only as
        long as the device's answer wait (Device.set_answer_wait): give a
        slow device more.
        """
        frame, signal = self._find(name)
        with self._lock:
            key = self._requests.get(frame.name)
            if key is None:
                length = _plan.frame_length(frame)
                key = self.device.request_report(
                    frame.arbitration_id.id,
                    channel_mask=1 << self.channel,
                    extended=bool(frame.arbitration_id.extended),
                    dlc=LENGTH_TO_DLC[length],
                )
                self._requests[frame.name] = key
            if not self.device.receiver_running:
                self.device.start_receiver()
                self._receiver_started = True
        deadline = time.monotonic() + timeout
        while (report := self.device.read_report(key)) is None:
            if time.monotonic() > deadline:
                raise TimeoutError(
                    f"read {name}: no frame {frame.name} (0x{frame.arbitration_id.id:X}) "
                    f"on channel {self.channel} in {timeout:g} s"
                )
            time.sleep(POLL)
        data = bytes(report.data[: frame.size]).ljust(frame.size, b"\0")
        decoded = frame.decode(data)
        if signal.name not in decoded:
            raise LookupError(f"read {name}: the latest {frame.name} carries another multiplexer page")
        raw = decoded[signal.name].raw_value
        return SignalReading(
            name=name,
            value=_values.reading_value(signal, raw),
            unit=signal.unit,
            age=max(0.0, time.time() - report.timestamp),
            raw=raw,
            label=signal.values.get(raw) if not signal.is_float else None,
        )

    def _find(self, name):
        """(canmatrix frame, canmatrix signal) of any frame of the database, by SIGNAL or FRAME.SIGNAL."""
        pairs = ((f, s) for f in self.database.frames for s in f.signals)
        found = _plan.find(pairs, name, lambda f: f.name, lambda s: s.name)
        if found is None:
            names = {s.name for f in self.database.frames for s in f.signals}
            raise SignalError(_plan.unknown_signal_message(names, name, "the database"), name)
        return found
