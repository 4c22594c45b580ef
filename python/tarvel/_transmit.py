"""Transmit messages, signals, checksums and the gateway: operations of tarvel.Device."""

import ctypes

from . import _types
from ._convert import buffer, data_bytes, dlc_of_length, milliseconds, whole

CAN_ID_MAX = 0x1FFFFFFF
CRC_BLOCK = 16
SIGNAL_CUMULATIVE = 0x80  #: flags bit 7 of add_signal: a counter advanced at every transmission


class TransmitOperations:
    """Messages the device sends by itself, their signals, checksums, gateway (mixed into tarvel.Device)."""

    # --- transmit messages ---------------------------------------------------------

    def add_message(
        self,
        can_id,
        data=None,
        *,
        channel=0,
        extended=False,
        period=0.0,
        enabled=True,
        dlc=None,
        selector2=0,
        flag6=False,
        flag5=False,
        flag4=False,
        extra_flag=False,
        fast_slow_send=False,
        param2=0,
        param3=0,
    ):
        """Adds a message the device transmits by itself (AddMessageTarvel); returns its handler.

        Args:
            can_id: the CAN identifier (the low 29 bits are sent).
            data: its bytes, of a CAN FD length; None: zero bytes of length ``dlc``.
            channel: the CAN channel (``selector1``; the device sends on it modulo 4).
            extended: a 29-bit identifier (``idFlag``, bit 31 of the identifier word).
            period: seconds between transmissions (``param1`` in milliseconds,
                at most 65.535 s); 0 sends it once when it is enabled and again
                whenever its data or signals change.
            enabled: switched on at once.
            dlc: the data length code; taken from ``data`` when given.
            selector2, flag6, flag5, flag4, extra_flag, fast_slow_send, param2,
            param3: passed on to the device as they are (``fast_slow_send``: no
                cumulative signal allowed in it).

        Raises TarvelError: -21 invalid message, -22 length refused, -23 the
        device is out of memory for transmit messages.
        """
        whole(can_id, "can_id", 0, CAN_ID_MAX)
        if data is not None:
            data = data_bytes(data)
            length_dlc = dlc_of_length(len(data))
            if dlc is not None and dlc != length_dlc:
                raise ValueError(f"add_message: dlc {dlc} does not match {len(data)} bytes of data (dlc {length_dlc})")
            dlc = length_dlc
        elif dlc is None:
            raise ValueError("add_message: give the data or the dlc")
        whole(dlc, "dlc", 0, 15)
        message = _types.CanMessage(
            dlc=dlc,
            selector1=whole(channel, "channel", 0, 255),
            selector2=whole(selector2, "selector2", 0, 255),
            id=can_id,
            idFlag=bool(extended),
            flag6=bool(flag6),
            flag5=bool(flag5),
            flag4=bool(flag4),
            extraFlag=bool(extra_flag),
            enabled=bool(enabled),
            fastSlowSend=bool(fast_slow_send),
            param1=milliseconds(period, "period", maximum=0xFFFF),
            param2=whole(param2, "param2", 0, 0xFFFF),
            param3=whole(param3, "param3", 0, 0xFFFF),
        )
        handler = self._call(
            "AddMessage",
            self._lib.AddMessageTarvel,
            ctypes.byref(message),
            buffer(data),
            detail=f"0x{can_id:X} on channel {channel}",
        )
        self._message_lengths[handler] = _types.DLC_TO_LENGTH[dlc]
        return handler

    def remove_message(self, handler):
        """Removes a transmit message and its signals (RemoveMessageTarvel)."""
        code = self._call("RemoveMessage", self._lib.RemoveMessageTarvel, _handler(handler))
        self._message_lengths.pop(handler, None)
        return code

    def enable_message(self, handler):
        """Switches a transmit message on (EnableMessageTarvel); one with period 0 is sent once more."""
        return self._call("EnableMessage", self._lib.EnableMessageTarvel, _handler(handler))

    def disable_message(self, handler):
        """Switches a transmit message off (DisableMessageTarvel)."""
        return self._call("DisableMessage", self._lib.DisableMessageTarvel, _handler(handler))

    def set_message_data(self, handler, data, mask=None, *, flag=False, tracked=True):
        """Replaces the bits of a message's data whose ``mask`` bits are set (SetMessageDataTarvel).

        ``data`` and ``mask`` have the message's length; ``mask`` None replaces
        every bit. A message with period 0 is sent again. ``tracked`` False
        does not wait for the device's answer.
        Raises TarvelError -31 for a handler this session did not add.
        """
        data = data_bytes(data)
        mask = b"\xff" * len(data) if mask is None else data_bytes(mask, "mask")
        length = self._message_lengths.get(handler)
        if length is not None and (len(data) != length or len(mask) != length):
            raise ValueError(
                f"set_message_data: message {handler} has {length} data bytes; "
                f"got {len(data)} bytes of data and {len(mask)} of mask"
            )
        return self._call(
            "SetMessageData",
            self._lib.SetMessageDataTarvel,
            _handler(handler),
            buffer(data),
            buffer(mask),
            bool(flag),
            bool(tracked),
        )

    def get_handler(self, can_id, *, channel=0, selector2=0, extended=False, fast_slow_send=False, flag6=False):
        """The handler of the device's message with these keys (GetHandlerTarvel); TarvelError -21 when none."""
        return self._call(
            "GetHandler",
            self._lib.GetHandlerTarvel,
            whole(channel, "channel", 0, 255),
            whole(selector2, "selector2", 0, 255),
            whole(can_id, "can_id", 0, 0xFFFFFFFF),
            bool(extended),
            bool(fast_slow_send),
            bool(flag6),
            detail=f"0x{can_id:X} on channel {channel}",
        )

    # --- signals ----------------------------------------------------------------------

    def add_signal(self, message_handler, start_bit, stop_bit, *, group=0, cumulative=False, flags=0):
        """Adds a signal on bits start_bit..stop_bit (at most 16) of a message (AddSignalTarvel); returns its handler.

        Bit b is bit b % 8 of byte b // 8. ``cumulative`` (flags bit 7) makes
        it a counter advanced by its value at every transmission.
        """
        flags = whole(flags, "flags", 0, 255) | (SIGNAL_CUMULATIVE if cumulative else 0)
        return self._call(
            "AddSignal",
            self._lib.AddSignalTarvel,
            _handler(message_handler),
            whole(group, "group", 0, 255),
            whole(start_bit, "start_bit", 0, 0xFFFF),
            whole(stop_bit, "stop_bit", 0, 0xFFFF),
            flags,
        )

    def remove_signal(self, handler):
        """Removes a signal (RemoveSignalTarvel)."""
        return self._call("RemoveSignal", self._lib.RemoveSignalTarvel, _handler(handler))

    def signal_change_value(self, handler, value, *, immediate=True, tracked=True):
        """Gives a signal a value (SignalChangeValueTarvel).

        The value fits the signal's bits (a cumulative signal: the increment).
        ``immediate`` False stages it until execute_signal_change().
        """
        return self._call(
            "SignalChangeValue",
            self._lib.SignalChangeValueTarvel,
            _handler(handler),
            whole(value, "value", 0, 0xFFFF),
            bool(immediate),
            bool(tracked),
        )

    def change_signal_group(self, group, value):
        """Gives every signal of a group a value at once (ChangeSignalSgroupTarvel)."""
        return self._call(
            "ChangeSignalSgroup",
            self._lib.ChangeSignalSgroupTarvel,
            whole(group, "group", 0, 255),
            whole(value, "value", 0, 0xFFFF),
        )

    def execute_signal_change(self, *, tracked=True):
        """Applies every staged signal value (ExecuteSignalChangeTarvel)."""
        return self._call("ExecuteSignalChange", self._lib.ExecuteSignalChangeTarvel, bool(tracked))

    def set_signal_control(self, handler, control_mode, arg1=0, arg2=0, arg3=0):
        """Sets a signal's control mode and its three arguments (SetSignalControlTarvel)."""
        return self._call(
            "SetSignalControl",
            self._lib.SetSignalControlTarvel,
            _handler(handler),
            whole(control_mode, "control_mode", 0, 255),
            whole(arg1, "arg1", 0, 0xFFFFFFFF),
            whole(arg2, "arg2", 0, 0xFFFFFFFF),
            whole(arg3, "arg3", 0, 0xFFFFFFFF),
        )

    # --- checksums, gateway, blob ---------------------------------------------------

    def add_crc(self, block):
        """Adds a checksum configuration of 16 bytes (AddCrcTarvel); returns its handler."""
        return self._call("AddCrc", self._lib.AddCrcTarvel, buffer(_crc_block(block)))

    def change_crc(self, handler, block):
        """Replaces a checksum configuration (ChangeCrcTarvel)."""
        return self._call("ChangeCrc", self._lib.ChangeCrcTarvel, _handler(handler), buffer(_crc_block(block)))

    def disable_crc(self, handler):
        """Switches a checksum configuration off (DisableCrcTarvel)."""
        return self._call("DisableCrc", self._lib.DisableCrcTarvel, _handler(handler))

    def blob_remove(self):
        """BlobRemoveTarvel."""
        return self._call("BlobRemove", self._lib.BlobRemoveTarvel)

    def gateway_id(self, target, can_id):
        """Sets the gateway identifier of a target (GatewayIDTarvel)."""
        target = whole(target, "target", 0, 255)
        return self._call("GatewayID", self._lib.GatewayIDTarvel, target, whole(can_id, "can_id", 0, 0xFFFFFFFF))


def _handler(handler):
    return whole(handler, "handler", 0, 0xFFFF)


def _crc_block(block):
    block = data_bytes(block, "block")
    if len(block) != CRC_BLOCK:
        raise ValueError(f"a checksum block has {CRC_BLOCK} bytes, got {len(block)}")
    return block
