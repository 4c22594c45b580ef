"""Physical values and raw values of a signal: ranges, steps, where its bits are."""

import decimal
import math
from decimal import Decimal

FLOAT_MAX = {32: Decimal("3.4028234663852886e38"), 64: Decimal("1.7976931348623157e308")}
# How far from a whole raw value a physical value may land and still be one
# of the signal's steps (in raw units): room for binary floats such as 0.1 * 3.
STEP_TOLERANCE = Decimal("1e-6")
LARGE = Decimal("1e15")  # written with an exponent from here on


class SignalError(ValueError):
    """A signal name or value the rest-bus refuses; nothing was sent.

    ``signal`` is the name as given, when there is one.
    """

    def __init__(self, message, signal=None):
        super().__init__(message)
        self.signal = signal


def number_text(value):
    """A physical value as people write it: 50, -2.5, 12345.6 (no exponent, no trailing zeros)."""
    if isinstance(value, float):
        return repr(value) if not value.is_integer() or abs(value) >= 1e16 else str(int(value))
    value = Decimal(value)
    if abs(value) >= LARGE:
        return format(float(value), "g")
    if value == value.to_integral_value():
        return str(int(value))
    return format(value.normalize(), "f")


def with_unit(value, unit):
    text = number_text(value)
    return f"{text} {unit}" if unit else text


def field_bits(signal):
    """The signal's bit numbers in the frame, least significant first (bit b is bit b % 8 of byte b // 8)."""
    if signal.is_little_endian:
        return [signal.start_bit + i for i in range(signal.size)]
    # canmatrix keeps a big-endian signal's start as the position of its most
    # significant bit counted from bit 7 of byte 0 downwards.
    positions = range(signal.start_bit, signal.start_bit + signal.size)
    return [(p // 8) * 8 + 7 - p % 8 for p in reversed(positions)]


def bit_mask(bits, length):
    """The frame-sized mask with the given bits set."""
    mask = bytearray(length)
    for b in bits:
        mask[b // 8] |= 1 << (b % 8)
    return bytes(mask)


def raw_range(signal):
    """The raw values the signal's bits hold: (low, high)."""
    if signal.is_float:
        limit = FLOAT_MAX[signal.size]
        return -limit, limit
    if signal.is_signed:
        return -(1 << (signal.size - 1)), (1 << (signal.size - 1)) - 1
    return 0, (1 << signal.size) - 1


def physical(signal, raw):
    """raw × factor + offset, as a Decimal."""
    return Decimal(raw) * signal.factor + signal.offset


def physical_range(signal):
    """The physical values the signal takes: its DBC range [min|max] within what its bits hold.

    A DBC range of [0|0] means "not given": then the bits alone decide.
    """
    low, high = (physical(signal, r) for r in raw_range(signal))
    low, high = min(low, high), max(low, high)
    given_low, given_high = signal.min, signal.max
    if given_low is None or given_high is None or given_low == given_high == 0:
        return low, high
    return max(low, Decimal(given_low)), min(high, Decimal(given_high))


def as_decimal(signal, value, name):
    """A value given for a signal as a Decimal: a number, a numeric text, or a name of its value table."""
    if isinstance(value, str):
        for raw, label in signal.values.items():
            if label == value:
                return physical(signal, raw)
        try:
            number = Decimal(value.strip())
        except decimal.InvalidOperation:
            choices = ", ".join(str(label) for label in signal.values.values())
            what = f"neither a number nor one of its values ({choices})" if choices else "not a number"
            raise SignalError(f"{name}: {value!r} is {what}", name) from None
    elif isinstance(value, bool) or not isinstance(value, (int, float, Decimal)):
        raise SignalError(f"{name}: expected a number, got {value!r}", name)
    else:
        number = Decimal(str(value)) if isinstance(value, float) else Decimal(value)
    if not number.is_finite():
        raise SignalError(f"{name}: {value} is not a finite number", name)
    return number


def to_raw(signal, value, name):
    """The raw value that carries a physical value; SignalError when the signal can't carry it.

    Refused: values outside the signal's range (its DBC range within what its
    bits hold) and values between two of its steps (offset + n × factor).
    """
    number = as_decimal(signal, value, name)
    low, high = physical_range(signal)
    if not low <= number <= high:
        raise SignalError(
            f"{name}: {with_unit(number, signal.unit)} is outside its range "
            f"{number_text(low)} to {with_unit(high, signal.unit)}",
            name,
        )
    exact = (number - signal.offset) / signal.factor
    if signal.is_float:
        raw = float(exact)
        if math.isinf(raw) or abs(Decimal(raw)) > FLOAT_MAX[signal.size]:
            raise SignalError(f"{name}: {number_text(number)} does not fit a {signal.size}-bit float", name)
        return raw
    raw = int(exact.to_integral_value(rounding=decimal.ROUND_HALF_EVEN))
    if abs(exact - raw) > STEP_TOLERANCE:
        below = physical(signal, math.floor(exact))
        above = physical(signal, math.ceil(exact))
        raise SignalError(
            f"{name}: {with_unit(number, signal.unit)} is not one of its values: it goes in steps of "
            f"{number_text(signal.factor)} from {number_text(signal.offset)} "
            f"(nearest {number_text(below)} and {with_unit(above, signal.unit)})",
            name,
        )
    raw_low, raw_high = raw_range(signal)
    if not raw_low <= raw <= raw_high:  # a range given wider than the bits was cut above; kept as a guard
        raise SignalError(f"{name}: {number_text(number)} does not fit its {signal.size} bits", name)
    return raw


def field_value(raw, size):
    """A whole raw value as the unsigned content of its bits (two's complement for negative values)."""
    return int(raw) & ((1 << size) - 1)


def reading_value(signal, raw):
    """The physical value of a raw one, as a Python number: int for whole-number signals, else float."""
    if signal.is_float:
        return float(raw) * float(signal.factor) + float(signal.offset)
    value = physical(signal, raw)
    whole = signal.factor == signal.factor.to_integral_value() and signal.offset == signal.offset.to_integral_value()
    return int(value) if whole else float(value)
