"""Shared fixtures: simulated devices (tarvel-sim on a pseudo-terminal), python-can buses, waiting helpers.

The tests drive the installed package: scripts/run-tests.sh python installs it
into a virtual environment and runs pytest from outside the source tree, with
TARVEL_LIBRARY and TARVEL_SIM pointing at the build.
"""

import io
import os
import pathlib
import time

import can
import pytest

import tarvel

SOURCE = pathlib.Path(__file__).resolve().parent.parent  # python/ of the checkout
EXAMPLES = SOURCE / "examples"


def wait_for(condition, what, timeout=10.0):
    """Polls until condition() is truthy and returns its value; fails after a generous deadline."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out after {timeout} s waiting for {what}")
        time.sleep(0.005)


def bus_log(sim):
    """Every frame on the simulator's bus so far, from its bus log (candump format) read by python-can."""
    text = pathlib.Path(sim.options["bus_log"]).read_text()
    complete = text[: text.rfind("\n") + 1]  # the simulator may be writing the last line
    return list(can.CanutilsLogReader(io.StringIO(complete)))


def frames_of(messages, can_id):
    return [m for m in messages if m.arbitration_id == can_id]


def fence(bus, sim, can_id=0x7EE):
    """Sends a frame and waits until it is in the bus log: every frame sent before it is there too."""
    bus.send(can.Message(arbitration_id=can_id, is_extended_id=False, data=b"\xfe"))
    return wait_for(lambda: frames_of(bus_log(sim), can_id), f"fence 0x{can_id:X} in the bus log")


def receive_until(bus, condition, what, timeout=10.0):
    """Messages received, in order, until condition(received) holds."""
    received = []
    deadline = time.monotonic() + timeout
    while not condition(received):
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out after {timeout} s waiting for {what}; got {len(received)} messages")
        msg = bus.recv(timeout=0.2)
        if msg is not None:
            received.append(msg)
    return received


def exact(can_id, extended=None):
    """A python-can filter for one identifier (standard up to 0x7FF unless told)."""
    extended = can_id > 0x7FF if extended is None else extended
    return {"can_id": can_id, "can_mask": 0x1FFFFFFF if extended else 0x7FF, "extended": extended}


@pytest.fixture
def simulator(tmp_path):
    """Starts simulated devices with tarvel-sim's options as keyword arguments, each with a bus log."""
    started = []

    def start(**options):
        options.setdefault("bus_log", tmp_path / f"bus{len(started)}.log")
        sim = tarvel.Simulator(**options)
        started.append(sim)
        sim.start()
        return sim

    yield start
    for sim in started:
        sim.stop()


@pytest.fixture
def open_bus():
    """Opens python-can buses through the entry point ("tarvel"); shuts down those still open at the end."""
    buses = []

    def open_(port, **kwargs):
        kwargs.setdefault("read_timeout", 1.0)
        bus = can.Bus(interface="tarvel", channel=port, **kwargs)
        buses.append(bus)
        return bus

    yield open_
    for bus in buses:
        if not bus._closed:
            bus.shutdown()


@pytest.fixture
def installed():
    """True when the package under test is an installed one (the suite's normal run)."""
    return os.environ.get("TARVEL_TEST_INSTALLED") == "1"
