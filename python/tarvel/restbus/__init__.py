"""tarvel.restbus: rest-bus simulation from a DBC file.

A Tarvel device plays whole nodes (ECUs) of a CAN database: every frame they
send at its cycle time with the signals' start values, signals set by name
in physical units, alive counters advanced by the device, and signals of the
other nodes' frames read by name::

    import tarvel
    from tarvel.restbus import RestBus

    with tarvel.Device("/dev/ttyUSB0") as device:
        with RestBus(device, "vehicle.dbc", ["Chassis"]) as rest:
            print(rest.table())
            rest.set("VehicleSpeed", 120.5)
            print(rest.read("EngineSpeed"))

The database is read with canmatrix (Debian: python3-canmatrix). The
command ``python3 -m tarvel restbus MODEL.dbc --node NODE`` does the same
from the shell.
"""

from ._database import load
from ._plan import DEFAULT_COUNTER_PATTERNS, FramePlan, SignalPlan
from ._restbus import COUNTER_STEP, RestBus, SignalReading
from ._values import SignalError

__all__ = [
    "COUNTER_STEP",
    "DEFAULT_COUNTER_PATTERNS",
    "FramePlan",
    "RestBus",
    "SignalError",
    "SignalPlan",
    "SignalReading",
    "load",
]
