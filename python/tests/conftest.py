"""Fixtures (tarvel-sim on a pseudo-terminal, buses, devices, the example DBC) and helpers for python/run-tests.sh."""

import contextlib
import io
import itertools
import logging
import os
import pathlib
import subprocess
import sys
import time

import can
import pytest

import tarvel

SOURCE = pathlib.Path(__file__).resolve().parent.parent  # python/ of the checkout
EXAMPLES = SOURCE / "examples"
DBC = EXAMPLES / "vehicle.dbc"  # the rest-bus example
INSTALLED = os.environ.get("TARVEL_TEST_INSTALLED") == "1"


def wait_for(condition, what, timeout=10.0):
    """Polls until condition() is truthy and returns its value; fails after a generous deadline."""
    deadline = time.monotonic() + timeout
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out after {timeout} s waiting for {what}")
        time.sleep(0.005)
    return value


def bus_log(sim):
    """Every frame on the simulator's bus so far, from its bus log (candump format) read by python-can."""
    text = pathlib.Path(sim.options["bus_log"]).read_text()
    return list(can.CanutilsLogReader(io.StringIO(text[: text.rfind("\n") + 1])))  # the last line may be partial


def frames_of(messages, can_id):
    return [m for m in messages if m.arbitration_id == can_id]


def fence(bus, sim, can_id=0x7EE):
    """Sends a frame and waits until it is in the bus log: every frame sent before it is there too."""
    bus.send(msg(can_id, b"\xfe"))
    return wait_for(lambda: frames_of(bus_log(sim), can_id), f"fence 0x{can_id:X} in the bus log")


def receive_until(bus, condition, what):
    """Messages received, in order, until condition(received) holds."""
    received = []

    def more():
        if (msg := bus.recv(timeout=0.2)) is not None:
            received.append(msg)
        return condition(received)

    wait_for(more, what)
    return received


def msg(can_id, data, extended=False, fd=False, channel=None):
    return can.Message(arbitration_id=can_id, data=data, is_extended_id=extended, is_fd=fd, channel=channel)


def exact(can_id):
    """A python-can filter for one identifier (extended above 0x7FF)."""
    return {"can_id": can_id, "can_mask": 0x1FFFFFFF if can_id > 0x7FF else 0x7FF, "extended": can_id > 0x7FF}


def run_python(code, **env):
    """Runs code in a fresh interpreter with env changed (None: unset)."""
    environment = {k: v for k, v in os.environ.items() if k not in env}
    environment.update({k: str(v) for k, v in env.items() if v is not None})
    return subprocess.run([sys.executable, *code], capture_output=True, text=True, env=environment, timeout=60)


@pytest.fixture
def simulator(tmp_path):
    """Starts simulated devices with tarvel-sim's options as keyword arguments, each with a bus log."""
    logs = (tmp_path / f"bus{n}.log" for n in itertools.count())
    with contextlib.ExitStack() as started:
        yield lambda **options: started.enter_context(tarvel.Simulator(bus_log=next(logs), **options))


@pytest.fixture(scope="session")
def database():
    """The example DBC as canmatrix reads it."""
    logging.getLogger("canmatrix.formats").setLevel(logging.ERROR)  # its import warns about formats it lacks
    import canmatrix.formats

    return canmatrix.formats.loadp_flat(str(DBC))


@pytest.fixture
def device(simulator, request):
    """A tarvel.Device (dev.sim its simulator) with the frames of the test module's INJECT on the bus."""
    sim = simulator(inject=request.module.INJECT)
    with tarvel.Device(sim.port) as dev:
        dev.set_answer_wait(1.0)  # with the receiver running; a loaded machine may answer late
        dev.sim = sim
        yield dev


@pytest.fixture
def open_bus():
    """Opens python-can buses through the entry point ("tarvel"); shuts down those still open at the end."""
    with contextlib.ExitStack() as opened:
        yield lambda port, **kwargs: opened.enter_context(can.Bus(interface="tarvel", channel=port, **kwargs))
