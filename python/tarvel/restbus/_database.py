"""Loading a CAN database (a DBC file) with canmatrix."""

import logging
import os

try:
    # canmatrix warns on the log, at import, about every optional format it
    # lacks (ldf, xlsx, ...); only DBC files are read here.
    _formats_log = logging.getLogger("canmatrix.formats")
    _level = _formats_log.level
    _formats_log.setLevel(logging.ERROR)
    try:
        import canmatrix
        import canmatrix.formats
    finally:
        _formats_log.setLevel(_level)
except ImportError as error:  # pragma: no cover - depends on the machine
    raise ImportError(
        "tarvel.restbus reads DBC files with canmatrix: install it (Debian: sudo apt-get install python3-canmatrix)"
    ) from error


def load(database):
    """The canmatrix.CanMatrix of a DBC file (a path), or ``database`` itself when it is one already.

    Any format canmatrix reads by its file name (.dbc, .arxml, .kcd, .sym, ...)
    is taken; the DBC attributes GenMsgCycleTime, GenSigStartValue and
    VFrameFormat are what the rest-bus uses.
    """
    if isinstance(database, canmatrix.CanMatrix):
        return database
    path = os.fspath(database)
    if not os.path.isfile(path):
        raise FileNotFoundError(f"{path}: no such file")
    matrix = canmatrix.formats.loadp_flat(path)
    if matrix is None:
        raise ValueError(f"{path}: canmatrix does not read this kind of file (a .dbc is expected)")
    return matrix


def cycle_time_ms(matrix, frame):
    """The frame's cycle time in ms (GenMsgCycleTime, else the attribute's default); 0: sent on change."""
    if frame.cycle_time:
        return int(frame.cycle_time)
    default = frame.attribute("GenMsgCycleTime", matrix)
    try:
        return int(float(default)) if default is not None else 0
    except ValueError:
        return 0


def start_raw(matrix, signal):
    """The signal's start value as a raw value (GenSigStartValue is raw; canmatrix keeps it physical).

    canmatrix turns the signal's own GenSigStartValue into the physical
    ``initial_value``; a signal without one takes the attribute's default
    (BA_DEF_DEF_), which canmatrix leaves aside.
    """
    if "GenSigStartValue" not in signal.attributes:
        default = signal.attribute("GenSigStartValue", matrix)
        if default not in (None, ""):
            return signal.float_factory(str(default))
    return (signal.initial_value - signal.offset) / signal.factor
