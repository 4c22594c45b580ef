"""Checks and conversions of arguments before they cross into the library."""

import ctypes
import math

from ._types import LENGTH_TO_DLC

UINT32_MAX = 0xFFFFFFFF


def milliseconds(seconds, name, *, maximum=UINT32_MAX):
    """Seconds (int or float) as whole milliseconds, rounded up, within 0..maximum."""
    if isinstance(seconds, bool) or not isinstance(seconds, (int, float)) or math.isnan(seconds):
        raise TypeError(f"{name}: expected a number of seconds, got {seconds!r}")
    if seconds < 0:
        raise ValueError(f"{name}: {seconds} is not a number of seconds >= 0")
    ms = math.ceil(seconds * 1000 - 1e-9)
    if ms > maximum:
        raise ValueError(f"{name}: {seconds} s is more than the library takes ({maximum / 1000:g} s)")
    return ms


def whole(value, name, low, high):
    """An int within low..high (bools are refused: they are almost always a mistake here)."""
    if isinstance(value, bool) or not isinstance(value, int):
        raise TypeError(f"{name}: expected a whole number, got {value!r}")
    if not low <= value <= high:
        raise ValueError(f"{name}: {value} is not within {low}..{high} (0x{low:X}..0x{high:X})")
    return value


def data_bytes(data, name="data"):
    """bytes from bytes, bytearray, memoryview or a sequence of ints 0..255."""
    if isinstance(data, str):
        raise TypeError(f"{name}: expected bytes, got a str (use bytes.fromhex for hexadecimal text)")
    try:
        return bytes(data)
    except (TypeError, ValueError) as error:
        raise TypeError(f"{name}: expected bytes, got {data!r}") from error


def dlc_of_length(length, name="data"):
    """The data length code of a CAN FD length (0..8, 12, 16, 20, 24, 32, 48, 64)."""
    try:
        return LENGTH_TO_DLC[length]
    except KeyError:
        raise ValueError(
            f"{name}: {length} bytes is not a CAN FD length (0 to 8, 12, 16, 20, 24, 32, 48 or 64)"
        ) from None


def buffer(data):
    """A C array holding the bytes (None for None), for an unsigned char* argument."""
    if data is None:
        return None
    return (ctypes.c_ubyte * max(len(data), 1)).from_buffer_copy(data or b"\0")
