"""Receiving with python-can's Notifier and log writers; the files read back as what was received."""

import os
import subprocess
import sys

import can
import pytest
from conftest import EXAMPLES, exact, wait_for

# Other nodes on the bus: standard and extended, CAN FD, on two channels.
INJECT = [
    "0:123#1122334455667788@10",
    "1:123#99AABB@15",
    "0:18DA00F1#0102030405060708@20",
    "1:7FF#000102030405060708090A0B@25",
]
FILTERS = [exact(0x123), exact(0x18DA00F1), exact(0x7FF)]


@pytest.mark.parametrize("suffix", [".asc", ".blf", ".log"])
def test_notifier_and_logger_write_a_file_that_reads_back_as_received(simulator, open_bus, tmp_path, suffix):
    sim = simulator(inject=INJECT)
    bus = open_bus(sim.port, can_channels=[0, 1], can_filters=FILTERS)
    path = tmp_path / f"bus{suffix}"
    received = []
    logger = can.Logger(path)
    notifier = can.Notifier(bus, [logger, received.append], timeout=0.1)
    wait_for(lambda: len(received) >= 40, "40 received messages")
    notifier.stop()  # stops the logger too: the file is complete

    assert {(m.arbitration_id, m.channel) for m in received} == {(0x123, 0), (0x123, 1), (0x18DA00F1, 0), (0x7FF, 1)}
    fd = next(m for m in received if m.arbitration_id == 0x7FF)
    assert fd.is_fd and fd.dlc == 12 and bytes(fd.data) == bytes(range(12)) and not fd.is_extended_id
    assert next(m for m in received if m.arbitration_id == 0x18DA00F1).is_extended_id

    read = list(can.LogReader(path))
    assert len(read) == len(received)
    for got, want in zip(read, received):
        assert (got.arbitration_id, got.is_extended_id, got.is_fd, got.dlc, bytes(got.data), got.is_rx) == (
            want.arbitration_id,
            want.is_extended_id,
            want.is_fd,
            want.dlc,
            bytes(want.data),
            want.is_rx,
        )
        # The .log format names the channel as candump does.
        assert got.channel == (f"can{want.channel}" if suffix == ".log" else want.channel)
        # Time stamps relative to the first message: .asc keeps microseconds, .blf nanoseconds.
        assert abs((got.timestamp - read[0].timestamp) - (want.timestamp - received[0].timestamp)) < 2e-6


def test_the_example_logs_the_bus_to_an_asc_file(simulator, tmp_path):
    sim = simulator(inject=["0:123#DEADBEEF@10"])
    path = tmp_path / "example.asc"
    run = subprocess.run(
        [sys.executable, str(EXAMPLES / "log_to_asc.py"), sim.port, str(path), "--seconds", "0.5"],
        capture_output=True,
        text=True,
        timeout=60,
        env=os.environ,
    )
    assert run.returncode == 0, run.stderr
    read = list(can.LogReader(path))
    ids = {m.arbitration_id for m in read}
    assert 0x123 in ids and 0x456 in ids  # another node's frame and the example's own periodic one
    assert len(read) >= 10
