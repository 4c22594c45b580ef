"""tarvel: Python access to the Tarvel CAN-bus simulator device, over the TarvelAPI library.

- :class:`Device`: every operation of the library (a session with one device);
- :class:`Simulator`: the project's simulated device (tarvel-sim) on a pseudo-terminal;
- ``tarvel.can.TarvelBus``: the python-can interface, ``can.Bus(interface="tarvel", channel=PORT)``.

The library (libTarvelAPI.so, TarvelAPI.dll) is loaded through ctypes when
first needed; set TARVEL_LIBRARY to its path when it is not found by itself.
"""

from ._transmit import SIGNAL_CUMULATIVE
from ._types import DLC_TO_LENGTH
from .device import Device, library_path, library_version, result_text
from .errors import LibraryNotFoundError, SimulatorError, TarvelError
from .records import AsyncMessage, LogLevel, Report, SignalValue, Statistics
from .simulator import Simulator

__version__ = "1.0.0"

__all__ = [
    "AsyncMessage",
    "DLC_TO_LENGTH",
    "Device",
    "LibraryNotFoundError",
    "LogLevel",
    "Report",
    "SIGNAL_CUMULATIVE",
    "SignalValue",
    "Simulator",
    "SimulatorError",
    "Statistics",
    "TarvelError",
    "library_path",
    "library_version",
    "result_text",
]
