"""The python-can interface "tarvel": ``can.Bus(interface="tarvel", channel=PORT, can_filters=[...])``.

Registered under the entry point group ``can.interface``, so python-can finds
it once the package is installed. Needs python-can (Debian: python3-can).
"""

from .bus import TarvelBus

__all__ = ["TarvelBus"]
