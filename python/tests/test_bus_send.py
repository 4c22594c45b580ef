"""can.Bus(interface="tarvel"): the entry point, and send putting exactly one frame on the bus."""

import pathlib
import re

import can
import pytest
from conftest import INSTALLED, SOURCE, bus_log, fence, msg

import tarvel
from tarvel.can import TarvelBus


# (message, the channel it goes out on)
SENDS = [
    (msg(0x123, bytes(range(8))), "can0"),
    (msg(0x123, bytes(range(8, 16))), "can0"),  # the same identifier again: its message's data is set
    (msg(0x123, bytes(range(8, 16))), "can0"),  # unchanged data: still one frame
    (msg(0x123, b"\x01\x02"), "can0"),  # another length: a message of its own
    (msg(0x18FEF100, b"\xaa\xbb\xcc", extended=True), "can0"),
    (msg(0x7FF, bytes(range(12)), fd=True), "can0"),
    (msg(0x1ABCDEF0, bytes(range(64)), extended=True, fd=True), "can0"),
    (msg(0x125, b"\x22", channel="can1"), "can1"),
    # More identifiers than the bus keeps messages for: older ones are removed without a frame.
    *[(msg(0x200 + i, bytes([i])), "can0") for i in range(10)],
    (msg(0x123, b"\x03\x04"), "can0"),
]
# What the device cannot send: refused with these words, and nothing goes out.
REFUSED = [
    (msg(0x800, b"\x00"), "standard identifier is at most 0x7FF"),
    (msg(0x123, bytes(10), fd=True), "not a CAN FD length"),
    (msg(0x123, b"\x00", channel=2), "this bus uses CAN channel(s) [0, 1]"),
    (can.Message(arbitration_id=0x123, is_remote_frame=True, is_extended_id=False), "remote frames"),
]


def test_send_puts_exactly_one_frame_for_each_message_and_none_for_a_refused_one(simulator, open_bus):
    sim = simulator()
    bus = open_bus(sim.port, can_channels="0,1")
    # Found through its entry point, and from the installed package rather than the checkout.
    assert type(bus) is TarvelBus
    assert not INSTALLED or SOURCE not in pathlib.Path(tarvel.__file__).resolve().parents
    for m, _ in SENDS:
        bus.send(m)
    for m, complaint in REFUSED:
        with pytest.raises(ValueError, match=re.escape(complaint)):
            bus.send(m)
    fence(bus, sim)
    logged = [(f.channel, f.arbitration_id, f.is_extended_id, f.is_fd, bytes(f.data)) for f in bus_log(sim)]
    expected = [(channel, m.arbitration_id, m.is_extended_id, m.is_fd, bytes(m.data)) for m, channel in SENDS]
    assert logged[:-1] == expected and len(logged) == len(SENDS) + 1  # the fence, and nothing else
