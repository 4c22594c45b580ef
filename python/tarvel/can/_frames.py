"""python-can messages to the device's frames and back; the bus's CAN channels."""

import can

from .._types import LENGTH_TO_DLC

STANDARD_MAX = 0x7FF
EXTENDED_MAX = 0x1FFFFFFF
CHANNELS = range(4)


def channel_number(value, name="channel"):
    """0..3 from an int, "2" or "can2"."""
    text = str(value).strip().lower()
    if isinstance(value, str) and text.startswith("can"):
        text = text[3:]
    if isinstance(value, bool) or not text.isdigit() or int(text) not in CHANNELS:
        raise ValueError(f"{name}: {value!r} is not a CAN channel of the device (0 to 3, or can0 to can3)")
    return int(text)


def parse_channels(value):
    """The bus's CAN channels, from an int, "can1", "0,1" or a sequence of those; the first is the default."""
    if isinstance(value, str):
        items = [item for item in value.replace(" ", ",").split(",") if item]
    elif isinstance(value, (list, tuple, set, frozenset, range)):
        items = list(value)
    else:
        items = [value]
    channels = []
    for item in items:
        number = channel_number(item, "can_channels")
        if number not in channels:
            channels.append(number)
    if not channels:
        raise ValueError("can_channels: give at least one CAN channel (0 to 3)")
    return tuple(channels)


def frame_of(msg, channels):
    """(channel, identifier, extended, data) of a message to send; ValueError for what the device can't send."""
    if msg.is_error_frame:
        raise ValueError("the Tarvel device does not send error frames")
    if msg.is_remote_frame:
        raise ValueError("the Tarvel device does not send remote frames")
    data = bytes(msg.data or b"")
    if not msg.is_fd and len(data) > 8:
        raise ValueError(f"a classic CAN frame carries at most 8 bytes, not {len(data)}; set is_fd=True for CAN FD")
    if len(data) not in LENGTH_TO_DLC:
        raise ValueError(f"{len(data)} bytes is not a CAN FD length (0 to 8, 12, 16, 20, 24, 32, 48 or 64)")
    limit = EXTENDED_MAX if msg.is_extended_id else STANDARD_MAX
    if not 0 <= msg.arbitration_id <= limit:
        kind = "an extended" if msg.is_extended_id else "a standard"
        raise ValueError(f"identifier 0x{msg.arbitration_id:X}: {kind} identifier is at most 0x{limit:X}")
    if msg.channel is None:
        channel = channels[0]
    else:
        channel = channel_number(msg.channel, "Message.channel")
        if channel not in channels:
            raise ValueError(f"Message.channel {msg.channel!r}: this bus uses CAN channel(s) {list(channels)}")
    return channel, msg.arbitration_id, bool(msg.is_extended_id), data


def message_of(report):
    """A received can.Message for a tarvel.Report."""
    return can.Message(
        timestamp=report.time_us / 1e6,
        arbitration_id=report.id,
        is_extended_id=report.extended,
        is_fd=len(report.data) > 8,
        is_rx=True,
        dlc=len(report.data),
        data=report.data,
        channel=report.channel,
        check=False,
    )
