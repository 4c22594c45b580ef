"""send_periodic on the device's own periodic transmission."""

import threading

from can.broadcastmanager import (
    LimitedDurationCyclicSendTaskABC,
    ModifiableCyclicTaskABC,
    RestartableCyclicTaskABC,
)

PERIOD_MAX_MS = 0xFFFF


def period_ms(period):
    """The period in whole milliseconds (1 to 65535), as the device keeps it."""
    ms = round(period * 1000)
    if not 1 <= ms <= PERIOD_MAX_MS:
        raise ValueError(f"period {period} s: the Tarvel device sends every 0.001 to 65.535 s")
    return ms


class DevicePeriodicTask(ModifiableCyclicTaskABC, LimitedDurationCyclicSendTaskABC, RestartableCyclicTaskABC):
    """A message the device itself sends every ``period`` (a transmit message with its period).

    The timing is the device's: no Python thread sends the frames. ``stop``
    removes the message from the device, ``start`` adds it again (it goes out
    at once, then every period), ``modify_data`` replaces its data without
    changing the timing (same identifier, channel and length). ``duration``
    stops the task by itself after that many seconds.
    """

    def __init__(self, bus, messages, period, duration=None):
        super().__init__(messages, period, duration)
        self._bus = bus
        self._period_ms = period_ms(period)
        self._frame = bus._frame(self.messages[0])
        self._handler = None
        self._timer = None
        self._lock = threading.Lock()
        self.start()

    @property
    def running(self):
        """True while the device sends the message."""
        return self._handler is not None

    def start(self):
        """Adds the message to the device again if the task was stopped."""
        with self._lock:
            if self._handler is not None:
                return
            self._handler = self._bus._add_message(self._frame, self._period_ms / 1000)
            if self.duration:
                self._timer = threading.Timer(self.duration, self._expire)
                self._timer.daemon = True
                self._timer.start()

    def _expire(self):
        # Through the instance's own stop: the bus's wrapper also drops the task from its list.
        self.stop()

    def stop(self):
        """Removes the message from the device: no frame of it after this returns."""
        with self._lock:
            timer, self._timer = self._timer, None
            if timer is not None and timer is not threading.current_thread():
                timer.cancel()
            handler, self._handler = self._handler, None
        if handler is not None:
            self._bus._remove_message(handler)

    def modify_data(self, messages):
        """Replaces the data the device sends, keeping its timing."""
        messages = self._check_and_convert_messages(messages)
        self._check_modified_messages(messages)
        frame = self._bus._frame(messages[0])
        if frame[:3] != self._frame[:3] or len(frame[3]) != len(self._frame[3]):
            raise ValueError(
                "modify_data keeps the identifier, its format, the channel and the data length of the task"
            )
        with self._lock:
            self.messages = messages
            self._frame = frame
            if self._handler is not None:
                self._bus._set_data(self._handler, frame[3])
