"""The rest-bus's set-up as a table: frames, cycle times and how each signal is sent."""

from . import _values
from ._plan import COUNTER, DEVICE, HOST

HEADINGS = ("FRAME", "ID", "BYTES", "CYCLE", "SIGNAL", "SENT AS", "VALUE")


def identifier_text(frame):
    """As candump writes it: 3 hex digits for a standard identifier, 8 for an extended one."""
    return f"{frame.can_id:08X}" if frame.extended else f"{frame.can_id:03X}"


def sent_as(signal):
    if signal.kind == DEVICE:
        return "device"
    if signal.kind == COUNTER:
        return "counter"
    return f"host ({signal.why})"


def value_text(rest, signal):
    """The value the rest-bus gives the signal now, with its unit and value-table name."""
    if signal.kind == COUNTER:
        return f"{_values.number_text(signal.start_raw)}, +1 per frame"
    raw = rest._current[signal]
    text = _values.with_unit(_values.reading_value(signal.signal, raw), signal.unit)
    label = None if signal.signal.is_float else signal.signal.values.get(raw)
    return f"{text} ({label})" if label is not None else text


def rows(rest):
    """One row per signal; the frame's columns only on its first row."""
    for frame in rest.frames:
        cycle = f"{frame.cycle_ms} ms" if frame.cycle_ms else "on change"
        length = f"{frame.length}{' FD' if frame.fd else ''}"
        head = (frame.name, identifier_text(frame), length, cycle)
        if not frame.signals:
            yield (*head, "", "", "")
        for i, signal in enumerate(frame.signals):
            yield (*(head if i == 0 else ("",) * 4), signal.name, sent_as(signal), value_text(rest, signal))


def table(rest):
    """The set-up as aligned text, a line per signal, with a summary line."""
    lines = [HEADINGS, *rows(rest)]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEADINGS))]
    text = ["  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines]
    counts = {kind: len(rest.signals(kind)) for kind in (DEVICE, COUNTER, HOST)}
    text.append(
        f"{counted(len(rest.frames), 'frame')}: {counted(counts[DEVICE], 'device signal')}, "
        f"{counted(counts[COUNTER], 'alive counter')}, {counted(counts[HOST], 'host-encoded signal')}"
    )
    return "\n".join(text)


def counted(n, thing):
    return f"{n} {thing}{'' if n == 1 else 's'}"
