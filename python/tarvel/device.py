"""tarvel.Device: a session of the library with one Tarvel device."""

import ctypes

from . import _library, _types
from ._control import ControlOperations
from ._convert import milliseconds
from ._reception import ReceptionOperations
from ._transmit import TransmitOperations
from .errors import TarvelError
from .records import LogLevel


def result_text(code, operation=None):
    """The library's words for a result code (ResultTextTarvel / OperationResultTextTarvel).

    ``operation`` is the name of the operation that returned it ("Connect",
    "ReadEeprom", ...), since some codes mean different things to different
    operations; None gives the common meaning.
    """
    library = _library.load()
    if operation is None:
        text = library.ResultTextTarvel(code)
    else:
        text = library.OperationResultTextTarvel(operation.encode(), code)
    return text.decode("utf-8", "replace")


def library_version():
    """The library's version, "major.minor.patch"."""
    return _library.load().LibraryVersionTarvel().decode()


def library_path():
    """The file the library was loaded from (see tarvel._library for where it is looked for)."""
    return _library.path()


class Device(ControlOperations, TransmitOperations, ReceptionOperations):
    """A session with one Tarvel device, over the library's C interface.

    Every operation of the library is a method named after it in snake_case
    (``AddMessageTarvel`` is ``add_message``, ``WaitReportTarvel`` is
    ``wait_report``). Data goes in and out as ``bytes``; durations are in
    seconds (``float``). A negative result raises :class:`tarvel.TarvelError`
    with the operation, the code and the library's words for it; results that
    are not errors but "nothing yet" (no report came in time, no report of a
    request yet) return None.

    As a context manager it connects (when a port was given) and always
    disconnects on leaving; the session itself lives until :meth:`close` or
    garbage collection, so its statistics can still be read afterwards::

        with tarvel.Device("/dev/ttyUSB0", read_timeout=0.5) as device:
            key = device.request_report(0x123)
            device.start_receiver()
            for report in device.reports(timeout=1.0):
                print(report.id, report.data.hex())

    The session is thread-safe as the library is: one command exchange at a
    time, reports handed out in order to whichever thread waits for them.

    Library messages on the error channel go to the process's standard error
    (the library's default) and to the sinks added with :meth:`add_log_sink`.
    """

    def __init__(self, port=None, *, read_timeout=1.0, write_timeout=1.0):
        """Makes a session (NewTarvel); connects only in ``with`` or :meth:`connect`.

        Args:
            port: the serial port ("/dev/ttyUSB0", "COM3", the path tarvel-sim prints).
            read_timeout, write_timeout: the line's time-outs in seconds.
        """
        self._lib = _library.load()
        self.port = port
        self.read_timeout = read_timeout
        self.write_timeout = write_timeout
        self._connected = False
        self._sinks = {}  # (callable, level) -> ctypes thunk, kept alive while attached
        self._report_callback = None  # (callable, thunk)
        self._message_lengths = {}  # handler -> data length, for set_message_data
        self._last_report = None
        self._reports_seen = 0
        handle = self._lib.NewTarvel()
        if not handle:
            raise MemoryError("NewTarvel returned no session")
        self._handle = handle
        # The library's own explanation of a failure, kept for the error raised.
        self._error_thunk = _types.PRINT_FUNCTION(self._keep_report)
        self._lib.SetPrintFunctionTarvel(handle, self._error_thunk, LogLevel.ERR)

    # --- life -------------------------------------------------------------------

    def __enter__(self):
        if self.port is not None and not self._connected:
            self.connect()
        return self

    def __exit__(self, exc_type, exc, tb):
        try:
            self.disconnect()
        except TarvelError:
            if exc_type is None:
                raise

    def __del__(self):
        try:
            self.close()
        except Exception:
            pass

    def close(self):
        """Stops the receiver, disconnects and destroys the session (DeleteTarvel). Idempotent."""
        handle = getattr(self, "_handle", None)
        if not handle:
            return
        self._handle = None
        self._connected = False
        # The library calls no sink or callback once the session is gone;
        # only then may their thunks be freed.
        self._lib.DeleteTarvel(handle)
        self._sinks.clear()
        self._report_callback = None

    @property
    def handle(self):
        """The C session handle (``Tarvel*``) as an int, for calling entry points this class doesn't wrap."""
        if not self._handle:
            raise ValueError("the session is closed")
        return self._handle

    @property
    def connected(self):
        """True between a successful connect() and disconnect()."""
        return self._connected

    # --- calling the library ------------------------------------------------------

    def _keep_report(self, text):
        self._last_report = text.decode("utf-8", "replace").strip()
        self._reports_seen += 1

    def _call(self, operation, function, *args, detail="", allowed=()):
        """Calls an int entry point on the session; a negative result not in ``allowed`` raises TarvelError."""
        seen = self._reports_seen
        code = function(self.handle, *args)
        if code < 0 and code not in allowed:
            report = self._last_report if self._reports_seen != seen else None
            raise TarvelError(operation, code, result_text(code, operation), report=report, detail=detail)
        return code

    # --- connection -----------------------------------------------------------------

    def connect(self, port=None, *, read_timeout=None, write_timeout=None):
        """Opens the port and asks the device for its version (ConnectTarvel).

        Returns 0 when connected (1 when already connected to that port).
        Raises TarvelError: -1 another port is open, -2 cannot open the port,
        -3/-4 line settings, -314 the device did not answer the version query, ...
        """
        port = self.port if port is None else port
        if port is None:
            raise ValueError("connect: no port given")
        read_timeout = self.read_timeout if read_timeout is None else read_timeout
        write_timeout = self.write_timeout if write_timeout is None else write_timeout
        read_ms = milliseconds(read_timeout, "read_timeout")
        write_ms = milliseconds(write_timeout, "write_timeout")
        name = str(port)
        code = self._call("Connect", self._lib.ConnectTarvel, name.encode(), read_ms, write_ms, detail=f"to {name}")
        self.port, self.read_timeout, self.write_timeout = port, read_timeout, write_timeout
        self._connected = True
        return code

    def disconnect(self):
        """Stops the receiver and closes the port (DisconnectTarvel). Returns 0."""
        if not self._handle:
            return 0
        self._connected = False
        self._lib.StopReceiverTarvel(self._handle)
        return self._call("Disconnect", self._lib.DisconnectTarvel)

    def set_timeout(self, read_timeout, write_timeout):
        """Sets the line's time-outs in seconds (SetTimeoutTarvel)."""
        self.read_timeout, self.write_timeout = read_timeout, write_timeout
        return self._call(
            "SetTimeout",
            self._lib.SetTimeoutTarvel,
            milliseconds(read_timeout, "read_timeout"),
            milliseconds(write_timeout, "write_timeout"),
        )

    def get_timeout(self):
        """The line's (read, write) time-outs in seconds (GetTimeoutTarvel)."""
        read, write = ctypes.c_uint(), ctypes.c_uint()
        self._call("GetTimeout", self._lib.GetTimeoutTarvel, ctypes.byref(read), ctypes.byref(write))
        return read.value / 1000, write.value / 1000

    def set_answer_wait(self, seconds):
        """How long a command waits for its answer while the receiver runs (default 0.05 s, at most 65.535 s)."""
        ms = milliseconds(seconds, "answer wait", maximum=65535)
        return self._call("SetAnswerWait", self._lib.SetAnswerWaitTarvel, ms)

    def set_receiver_error_counting(self, consecutive):
        """True: the receiver ends itself only after more than 10 read faults in a row (default: in its life)."""
        return self._call("SetReceiverErrorCounting", self._lib.SetReceiverErrorCountingTarvel, bool(consecutive))

    # --- receiver thread --------------------------------------------------------------

    def start_receiver(self):
        """Starts the receiver thread, which files the device's reports (StartReceiverTarvel).

        Returns 0 when started, 1 when it was already running.
        """
        return self._call("StartReceiver", self._lib.StartReceiverTarvel)

    def stop_receiver(self):
        """Stops the receiver thread; waiters on the report queue wake up (StopReceiverTarvel)."""
        self._lib.StopReceiverTarvel(self.handle)

    def internal_thread_status(self):
        """GetInternalThreadStatus: bit 0 receiver running; 0x10 sender serving; 0x20 sender starting or failed."""
        return self._call("GetInternalThreadStatus", self._lib.GetInternalThreadStatus)

    @property
    def receiver_running(self):
        """True while the receiver thread runs."""
        return bool(self.internal_thread_status() & 0x01)

    # --- logging ------------------------------------------------------------------------

    def add_log_sink(self, sink, level=LogLevel.ERR):
        """Calls ``sink(text: str)`` for every message the session prints on a channel (SetPrintFunctionTarvel).

        The sink runs on whichever thread prints (the receiver's too) and must
        return quickly; exceptions it raises are printed and dropped. The
        session keeps the sink alive while it is attached. A channel holds a
        few sinks (TarvelError -2 when full); the same sink is attached once
        per channel.
        """
        level = LogLevel(level)
        if not callable(sink):
            raise TypeError("add_log_sink: the sink must be callable")
        key = (sink, level)
        if key in self._sinks:
            return 0

        def thunk(text):
            sink(text.decode("utf-8", "replace"))

        c_thunk = _types.PRINT_FUNCTION(thunk)
        code = self._call("SetPrintFunction", self._lib.SetPrintFunctionTarvel, c_thunk, int(level))
        self._sinks[key] = c_thunk
        return code

    def remove_log_sink(self, sink, level=None):
        """Detaches a sink from one channel, or from every channel it is on (level None).

        Once this returns the sink is not running and is not called again.
        """
        levels = [LogLevel(level)] if level is not None else list(LogLevel)
        for lv in levels:
            c_thunk = self._sinks.get((sink, lv))
            if c_thunk is None:
                continue
            self._call("ClearPrintFunction", self._lib.ClearPrintFunctionTarvel, c_thunk, int(lv))
            del self._sinks[(sink, lv)]
        return 0

    def print_error(self, text):
        """Prints ``text`` on the session's error channel (PrintfErrTarvel)."""
        self._lib.PrintfErrTarvel(self.handle, str(text).replace("%", "%%").encode())

    def print_info(self, text):
        """Prints ``text`` on the session's information channel (PrintfInfTarvel)."""
        self._lib.PrintfInfTarvel(self.handle, str(text).replace("%", "%%").encode())

    def debug_comm(self, path):
        """Writes the communication trace to a file, started afresh (DebugCommTarvel); None switches it off."""
        self._lib.DebugCommTarvel(self.handle, None if path is None else str(path).encode())
