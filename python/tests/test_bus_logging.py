"""Receiving with python-can's Notifier and log writers; the files read back as what was received."""

import can
import pytest
from conftest import EXAMPLES, exact, run_python, wait_for

# Other nodes on the bus: standard and extended, CAN FD, on two channels.
INJECT = ["0:123#1122334455667788@10", "1:123#99AABB@15", "0:18DA00F1#0102030405060708@20"]
INJECT += ["1:7FF#000102030405060708090A0B@25"]
FILTERS = [exact(0x123), exact(0x18DA00F1), exact(0x7FF)]


@pytest.mark.parametrize("suffix", [".asc", ".blf"])
def test_notifier_and_logger_write_a_file_that_reads_back_as_received(simulator, open_bus, tmp_path, suffix):
    sim = simulator(inject=INJECT)
    bus = open_bus(sim.port, can_channels=[0, 1], can_filters=FILTERS)
    path = tmp_path / f"bus{suffix}"
    received = []
    notifier = can.Notifier(bus, [can.Logger(path), received.append], timeout=0.1)
    wait_for(lambda: len(received) >= 40, "40 received messages")
    notifier.stop()  # stops the logger too: the file is complete

    assert {(m.arbitration_id, m.channel) for m in received} == {(0x123, 0), (0x123, 1), (0x18DA00F1, 0), (0x7FF, 1)}
    fd = next(m for m in received if m.arbitration_id == 0x7FF)
    assert (fd.is_fd, fd.dlc, bytes(fd.data), fd.is_extended_id) == (True, 12, bytes(range(12)), False)
    assert next(m for m in received if m.arbitration_id == 0x18DA00F1).is_extended_id

    def fields(m):
        return m.arbitration_id, m.is_extended_id, m.is_fd, m.dlc, bytes(m.data), m.channel, m.is_rx

    read = list(can.LogReader(path))
    assert [fields(m) for m in read] == [fields(m) for m in received]


def test_the_example_logs_the_bus_to_an_asc_file(simulator, tmp_path):
    sim = simulator(inject=["0:123#DEADBEEF@10"])
    path = tmp_path / "example.asc"
    run = run_python([str(EXAMPLES / "log_to_asc.py"), sim.port, str(path), "--seconds", "0.5"])
    assert run.returncode == 0, run.stderr
    read = list(can.LogReader(path))
    # Another node's frame and the example's own periodic one.
    assert {0x123, 0x456} <= {m.arbitration_id for m in read} and len(read) >= 10
