"""TarvelBus: the python-can interface "tarvel"."""

import collections
import threading
import time

import can

from ..device import Device
from ..errors import LibraryNotFoundError, TarvelError
from ._errors import can_error
from ._filters import request_targets
from ._frames import frame_of, message_of, parse_channels
from ._periodic import DevicePeriodicTask

OUT_OF_MEMORY = -23  # AddMessage: the device holds no more transmit messages
UNKNOWN_TO_SESSION = -31  # SetMessageData: the session did not add (or has forgotten) the message
SEND_SLOTS = 8  # transmit messages kept on the device for recently sent identifiers
BATCH = 64


def _seconds(value, name):
    """Seconds from a number or a string (a configuration file gives strings)."""
    try:
        seconds = float(value)
    except (TypeError, ValueError):
        raise ValueError(f"{name}: {value!r} is not a number of seconds") from None
    if not 0 < seconds <= 65.535:
        raise ValueError(f"{name}: {value!r} is not within 0.001..65.535 s")
    return seconds


def _joining_stop(task):
    """python-can's thread task, whose stop() returns only when its thread has sent its last frame.

    The thread may have passed its check of the stop flag and be about to
    send; it ends at once after that send, or when it wakes from its wait
    between two frames, without sending. A send takes milliseconds, so a wait
    of up to about a second covers it also for long periods.
    """
    stop = task.stop

    def stop_and_join():
        stop()
        thread = getattr(task, "thread", None)
        if thread is not None and thread is not threading.current_thread():
            thread.join(min(task.period, 1.0) + 0.5)

    task.stop = stop_and_join
    return task


class TarvelBus(can.BusABC):
    """A Tarvel device as a python-can bus: ``can.Bus(interface="tarvel", channel=PORT, ...)``.

    Args:
        channel: the device's serial port ("/dev/ttyUSB0", "COM3", the path tarvel-sim prints).
        can_filters: python-can filters, each naming one identifier (``can_mask``
            0x7FF for a standard identifier, 0x1FFFFFFF for an extended one);
            each becomes a request on the device. A partial mask raises
            ValueError: the device reports only what it was asked for, one
            identifier at a time. **Without filters nothing is requested, so
            nothing is received.**
        can_channels: the device's CAN channel(s) this bus uses (0 to 3; an int,
            "can1", "0,1" or a sequence). Filters are requested on all of them;
            a message whose ``channel`` is None is sent on the first.
        read_timeout, write_timeout: the serial line's time-outs in seconds
            (default 1.0). The read time-out is also how long a command waits
            for the device's answer.

    Sending: ``send`` puts exactly one frame on the bus, through a transmit
    message of the device (sent once when added, again when its data
    changes); the bus keeps up to 8 such messages for recently sent
    identifiers. ``send_periodic`` with one message uses the device's own
    periodic transmission (period 0.001 to 65.535 s, in whole milliseconds);
    with several messages it falls back to python-can's thread that sends them
    in turn.

    Receiving: every frame reported for the filters, in order, from the
    session's report queue, with ``timestamp`` in seconds (microsecond
    resolution, taken when the report was read), ``channel`` the CAN channel
    (0 to 3), ``is_fd`` for more than 8 bytes and ``dlc`` the data length in
    bytes. The device reports every frame on its bus that matches a request,
    also those this bus sends: a filter for an identifier you send brings your
    own frames back.

    ``shutdown`` stops the periodic tasks and removes from the device
    everything this bus set up (transmit messages and requests), then
    disconnects. Failures raise ``CanInitializationError`` (connecting),
    ``CanOperationError`` or ``CanTimeoutError`` (no answer in time), with the
    library's result code as ``error_code`` and its words in the message;
    a missing library raises ``CanInterfaceNotImplementedError``.
    """

    def __init__(
        self, channel, can_filters=None, *, can_channels=0, read_timeout=1.0, write_timeout=1.0, **kwargs
    ):
        if not channel:
            raise ValueError("channel: give the serial port of the Tarvel device")
        self._channels = parse_channels(can_channels)
        read_timeout = _seconds(read_timeout, "read_timeout")
        write_timeout = _seconds(write_timeout, "write_timeout")
        self.channel_info = f"Tarvel on {channel}, CAN channel(s) {', '.join(map(str, self._channels))}"
        self._lock = threading.RLock()  # device set-up: sends, tasks, filters
        self._recv_lock = threading.Lock()
        self._sent = collections.OrderedDict()  # (channel, id, extended, length) -> handler
        self._requests = {}  # request key -> (identifier, extended)
        self._pending = collections.deque()
        self._closed = False
        try:
            self._device = Device(str(channel), read_timeout=read_timeout, write_timeout=write_timeout)
        except LibraryNotFoundError as error:
            raise can.CanInterfaceNotImplementedError(str(error)) from error
        try:
            try:
                self._device.connect()
                # Answers awaited as long as a read; line noise ends the receiver only in a row.
                self._device.set_answer_wait(read_timeout)
                self._device.set_receiver_error_counting(True)
                self._device.start_receiver()
            except TarvelError as error:
                raise can_error(error, can.CanInitializationError) from error
            super().__init__(channel, can_filters=can_filters, **kwargs)
        except BaseException:
            self._closed = True
            self._device.close()
            raise

    @property
    def device(self):
        """The tarvel.Device under this bus (statistics, log sinks, every other operation)."""
        return self._device

    @property
    def can_channels(self):
        """The device's CAN channels this bus uses; the first is the default for sending."""
        return self._channels

    def _check_open(self):
        if self._closed:
            raise can.CanOperationError("the bus has been shut down")

    # --- sending -----------------------------------------------------------------------

    def _frame(self, msg):
        return frame_of(msg, self._channels)

    def send(self, msg, timeout=None):
        """Puts exactly one frame on the bus (``timeout`` is not used: the line's write time-out applies)."""
        channel, can_id, extended, data = self._frame(msg)
        key = (channel, can_id, extended, len(data))
        with self._lock:
            self._check_open()
            handler = self._sent.get(key)
            if handler is not None:
                try:
                    # The device sends such a message again whenever its data is set.
                    self._device.set_message_data(handler, data)
                    self._sent.move_to_end(key)
                    return
                except TarvelError as error:
                    if error.code != UNKNOWN_TO_SESSION:
                        raise can_error(error) from error
                    del self._sent[key]  # forgotten in a restart of the device: added anew
            self._sent[key] = self._add_message((channel, can_id, extended, data), 0.0)
            while len(self._sent) > SEND_SLOTS:
                self._evict_oldest()

    def _add_message(self, frame, period):
        """A transmit message, enabled (sent at once); makes room among the send slots when the device is full."""
        channel, can_id, extended, data = frame
        with self._lock:
            self._check_open()
            while True:
                try:
                    return self._device.add_message(can_id, data, channel=channel, extended=extended, period=period)
                except TarvelError as error:
                    if error.code != OUT_OF_MEMORY or not self._sent:
                        raise can_error(error) from error
                self._evict_oldest()

    def _evict_oldest(self):
        _, handler = self._sent.popitem(last=False)
        try:
            self._device.remove_message(handler)
        except TarvelError as error:
            raise can_error(error) from error

    def _remove_message(self, handler):
        with self._lock:
            if self._closed:
                return
            try:
                self._device.remove_message(handler)
            except TarvelError as error:
                raise can_error(error) from error

    def _set_data(self, handler, data):
        with self._lock:
            self._check_open()
            try:
                self._device.set_message_data(handler, data)
            except TarvelError as error:
                raise can_error(error) from error

    def _send_periodic_internal(self, msgs, period, duration=None, modifier_callback=None):
        if isinstance(msgs, can.Message):
            msgs = [msgs]
        if len(msgs) == 1 and modifier_callback is None:
            return DevicePeriodicTask(self, msgs, period, duration)
        # The device repeats one message as it is; a sequence, or data changed before
        # every frame (python-can 4.2's modifier_callback), is sent by python-can's thread.
        if modifier_callback is None:
            task = super()._send_periodic_internal(msgs, period, duration)
        else:
            task = super()._send_periodic_internal(msgs, period, duration, modifier_callback)
        return _joining_stop(task)

    # --- receiving -------------------------------------------------------------------

    def _apply_filters(self, filters):
        targets = request_targets(filters)  # everything checked before the device hears of it
        mask = sum(1 << channel for channel in self._channels)
        with self._lock:
            self._check_open()
            try:
                # Old requests go first: the device could not tell some new ones apart from them.
                while self._requests:
                    key = next(reversed(self._requests))
                    self._device.remove_request(key)
                    del self._requests[key]
                for can_id, extended in targets:
                    key = self._device.request_report(can_id, channel_mask=mask, extended=extended)
                    self._requests[key] = (can_id, extended)
            except TarvelError as error:
                raise can_error(error) from error

    @staticmethod
    def _ours(report, requests):
        """The report as a message of this bus's requests, or None."""
        if report.request_key in requests:
            return message_of(report)
        return None  # a request since removed, or another session's

    def _recv_internal(self, timeout):
        deadline = None if timeout is None else time.monotonic() + timeout
        with self._recv_lock:
            while True:
                requests = self._requests.copy()  # set_filters may change them meanwhile
                while self._pending:
                    msg = self._ours(self._pending.popleft(), requests)
                    if msg is not None:
                        return msg, True
                self._check_open()
                left = None if deadline is None else max(0.0, deadline - time.monotonic())
                try:
                    batch = self._device.wait_reports(BATCH, left)
                except TarvelError as error:
                    self._check_open()  # shut down while waiting: say that rather than the wait's code
                    raise can_error(error) from error
                if not batch:
                    return None, True
                self._pending.extend(batch)

    # --- the end --------------------------------------------------------------------------

    def shutdown(self):
        """Stops the periodic tasks, removes this bus's transmit messages and requests, disconnects."""
        if self._closed:
            return
        failures = []
        try:
            super().shutdown()
        except can.CanError as error:
            failures.append(error)
        with self._lock:
            for handler in self._sent.values():
                try:
                    self._device.remove_message(handler)
                except TarvelError as error:
                    failures.append(can_error(error))
            self._sent.clear()
            for key in list(self._requests):
                try:
                    self._device.remove_request(key)
                except TarvelError as error:
                    failures.append(can_error(error))
            self._requests.clear()
            self._closed = True
            try:
                # Also wakes a recv waiting in another thread (a Notifier's).
                self._device.disconnect()
            except TarvelError as error:
                failures.append(can_error(error))
        with self._recv_lock:
            self._device.close()
        if failures:
            raise failures[0]
