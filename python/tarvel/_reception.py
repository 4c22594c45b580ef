"""Reception requests, reports, signal reading and statistics: operations of tarvel.Device."""

import ctypes
import time

from . import _types
from ._convert import buffer, data_bytes, dlc_of_length, milliseconds, whole
from .records import AsyncMessage, Report, SignalValue, Statistics

# Long waits are cut into slices so that Ctrl-C is seen between two of them.
WAIT_SLICE = 0.25
NO_REPORT_YET = -1


class ReceptionOperations:
    """Requests, the report queue and callback, signal reading, statistics (mixed into tarvel.Device)."""

    # --- requests -----------------------------------------------------------------------

    def request_report(
        self, can_id, *, channel_mask=0x01, extended=False, tail_flag=False, dlc=8, flag7=False, flag6=False, data=None
    ):
        """Asks the device to report frames of one identifier (RequestReportTarvel, the checked request).

        Returns the request key (channel_mask << 16 | can_id & 0xFFFF).
        ``channel_mask``: bit n asks for CAN channel n. The device reports only
        the low 16 bits of an identifier, so a request it could not tell apart
        from a live one of this session (a shared channel and the same low 16
        bits, another identifier or format) is refused before anything is sent
        (TarvelError -31), as is an identifier too large for its format.

        The library records the request when the device's answer is in: with
        the receiver running, a frame reported just before may come with
        request_key 0 and only the low 16 bits as its identifier. Requests
        made before start_receiver() don't meet that.
        """
        return self._request(
            "RequestReport",
            self._lib.RequestReportTarvel,
            can_id,
            channel_mask,
            bool(extended),
            bool(tail_flag),
            dlc,
            flag7,
            flag6,
            data,
        )

    def request_message(
        self, can_id, *, channel_mask=0x01, tail_flag=False, id_flag=False, dlc=8, flag7=False, flag6=False, data=None
    ):
        """The unchecked request (RequestMessageTarvel); see request_report. Returns the request key."""
        return self._request(
            "RequestMessage",
            self._lib.RequestMessageTarvel,
            can_id,
            channel_mask,
            bool(tail_flag),
            bool(id_flag),
            dlc,
            flag7,
            flag6,
            data,
        )

    def _request(self, operation, function, can_id, channel_mask, first, second, dlc, flag7, flag6, data):
        whole(can_id, "can_id", 0, 0xFFFFFFFF)
        whole(channel_mask, "channel_mask", 0, 255)
        whole(dlc, "dlc", 0, 15)
        if data is not None:
            data = data_bytes(data)
            if dlc_of_length(len(data)) != dlc:
                raise ValueError(f"{operation}: {len(data)} bytes of data do not match dlc {dlc}")
        return self._call(
            operation,
            function,
            channel_mask,
            can_id,
            first,
            second,
            dlc,
            bool(flag7),
            bool(flag6),
            buffer(data),
            detail=f"0x{can_id:X} (channel mask 0x{channel_mask:02X})",
        )

    def enable_request(self, key):
        """Switches a request on again (EnableRequestTarvel); ``key``: the request key or its handler."""
        return self._call("EnableRequest", self._lib.EnableRequestTarvel, key & 0xFFFF)

    def disable_request(self, key):
        """Switches a request off (DisableRequestTarvel); ``key``: the request key or its handler."""
        return self._call("DisableRequest", self._lib.DisableRequestTarvel, key & 0xFFFF)

    def remove_request(self, key):
        """Removes a request from the device (RemoveRequestTarvel); ``key``: the request key or its handler."""
        return self._call("RemoveRequest", self._lib.RemoveRequestTarvel, key & 0xFFFF)

    # --- signal reading ---------------------------------------------------------------

    def request_signal(self, request_key, start_bit, stop_bit):
        """Registers bits start_bit..stop_bit (at most 64) of a request's reports (RequestSignalTarvel).

        Returns the handle for signal_read_value.
        """
        return self._call(
            "RequestSignal",
            self._lib.RequestSignalTarvel,
            request_key,
            whole(start_bit, "start_bit", 0, 0xFFFF),
            whole(stop_bit, "stop_bit", 0, 0xFFFF),
        )

    def signal_read_value(self, handle, *, do_read=True):
        """The signal's value in the latest report, and that report's age (SignalReadValue64Tarvel).

        Returns a SignalValue(value, age in seconds), or None when no report of
        the request has come yet. Needs the receiver running (TarvelError -3).
        """
        value, age = ctypes.c_ulonglong(), ctypes.c_uint()
        code = self._call(
            "SignalReadValue",
            self._lib.SignalReadValue64Tarvel,
            whole(handle, "handle", 0, 0xFFFF),
            ctypes.byref(value),
            ctypes.byref(age),
            bool(do_read),
            allowed=(NO_REPORT_YET,),
        )
        if code == NO_REPORT_YET:
            return None
        return SignalValue(value.value, age.value / 1000)

    # --- reports ------------------------------------------------------------------------

    def set_report_queue(self, capacity):
        """The report queue's capacity in reports (default 4096; 0 switches it off) (SetReportQueueTarvel)."""
        return self._call("SetReportQueue", self._lib.SetReportQueueTarvel, whole(capacity, "capacity", 0, 0xFFFFFFFF))

    def wait_report(self, timeout=0.0):
        """The oldest queued report, waiting up to ``timeout`` seconds (None: no limit) (WaitReportTarvel).

        Returns a Report, or None when none came in time. Raises TarvelError
        -2 when the queue is switched off, -3 when the receiver is not running
        and the queue is empty.
        """
        reports = self.wait_reports(1, timeout)
        return reports[0] if reports else None

    def wait_reports(self, max_count=256, timeout=0.0):
        """Up to ``max_count`` queued reports at once, waiting up to ``timeout`` for the first (WaitReportsTarvel).

        Returns a list of Reports in arrival order (empty when none came in time).
        """
        whole(max_count, "max_count", 1, 0xFFFFFFFF)
        array = (_types.Report * max_count)()
        if timeout is not None:
            milliseconds(timeout, "timeout")  # checks it before any wait
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            left = WAIT_SLICE if deadline is None else min(WAIT_SLICE, max(0.0, deadline - time.monotonic()))
            n = self._call("WaitReports", self._lib.WaitReportsTarvel, array, max_count, milliseconds(left, "timeout"))
            if n > 0:
                return [Report.from_c(array[i]) for i in range(n)]
            if deadline is not None and time.monotonic() >= deadline:
                return []

    def reports(self, timeout=1.0):
        """Yields every report in arrival order until none comes for ``timeout`` seconds (None: never ends)."""
        while True:
            batch = self.wait_reports(256, timeout)
            if not batch:
                return
            yield from batch

    def set_report_callback(self, callback):
        """Calls ``callback(report: Report)`` for every report, in order, on the session's delivery thread.

        None removes it (SetReportCallbackTarvel). Once this returns, the old
        callback is not running and is not called again. The callback may call
        any operation of the session; exceptions it raises are printed and dropped.
        The session keeps it alive while it is set.
        """
        if callback is None:
            self._call("SetReportCallback", self._lib.SetReportCallbackTarvel, _types.REPORT_FUNCTION(), None)
            self._report_callback = None
            return 0
        if not callable(callback):
            raise TypeError("set_report_callback: the callback must be callable or None")

        def thunk(report, _user):
            callback(Report.from_c(report.contents))

        c_thunk = _types.REPORT_FUNCTION(thunk)
        code = self._call("SetReportCallback", self._lib.SetReportCallbackTarvel, c_thunk, None)
        self._report_callback = (callback, c_thunk)  # the old thunk may go: it is no longer called
        return code

    def read_report(self, request_key):
        """The latest report of a request, or None when none has come yet (ReadReportTarvel)."""
        report = _types.Report()
        code = self._call(
            "ReadReport", self._lib.ReadReportTarvel, request_key, ctypes.byref(report), allowed=(NO_REPORT_YET,)
        )
        return None if code == NO_REPORT_YET else Report.from_c(report)

    def read_async_message(self, request_key):
        """The latest report of a request in the original form (ReadAsyncMsgTarvel), or None when none yet."""
        message = _types.AsyncMessage()
        data = (ctypes.c_ubyte * 64)()
        n = self._call(
            "ReadAsyncMsg",
            self._lib.ReadAsyncMsgTarvel,
            request_key,
            ctypes.byref(message),
            data,
            64,
            allowed=(NO_REPORT_YET,),
        )
        if n == NO_REPORT_YET:
            return None
        return AsyncMessage(
            key=message.key,
            handler=message.handler,
            channel=message.channel,
            dlc=message.dlc,
            flag7=bool(message.flag7),
            flag6=bool(message.flag6),
            flag5=bool(message.flag5),
            flag4=bool(message.flag4),
            timestamp=message.timestamp,
            data=bytes(data[:n]),
        )

    # --- statistics ---------------------------------------------------------------------

    def statistics(self):
        """What the session has counted (GetStatisticsTarvel), as a Statistics dataclass."""
        counters = _types.Statistics()
        self._call("GetStatistics", self._lib.GetStatisticsTarvel, ctypes.byref(counters))
        return Statistics.from_c(counters)

    def reset_statistics(self):
        """Sets every counter back to 0 (ResetStatisticsTarvel)."""
        return self._call("ResetStatistics", self._lib.ResetStatisticsTarvel)
