"""What a bus sets up on the device: filters as requests, python-can's exceptions, and shutdown leaving nothing."""

import can
import pytest
from conftest import bus_log, exact, frames_of, msg, receive_until, wait_for

import tarvel


def test_a_connect_failure_raises_an_initialization_error_with_the_code_in_words(tmp_path):
    port = str(tmp_path / "no-such-port")
    with pytest.raises(can.CanInitializationError) as caught:
        can.Bus(interface="tarvel", channel=port)
    assert caught.value.error_code == -2
    assert f"Connect to {port} failed: -2: cannot open the port" in str(caught.value)


def test_a_lost_answer_raises_a_timeout_and_the_bus_goes_on(simulator, open_bus):
    sim = simulator(drop_every=2)  # the version query is answered, the next answer (AddMessage) is lost
    bus = open_bus(sim.port, read_timeout=0.3)
    with pytest.raises(can.CanTimeoutError) as caught:
        bus.send(msg(0x123, b"\x01"))
    assert caught.value.error_code == -15
    assert "AddMessage" in str(caught.value) and "no answer from the device in time" in str(caught.value)
    bus.send(msg(0x124, b"\x02"))  # answered
    wait_for(lambda: frames_of(bus_log(sim), 0x124), "0x124 on the bus")
    with pytest.raises(can.CanTimeoutError, match="RemoveMessage"):
        bus.shutdown()  # the next answer is lost too: said, and the bus is closed all the same
    bus.shutdown()
    with pytest.raises(can.CanOperationError, match="shut down"):
        bus.send(msg(0x124, b"\x02"))


# Filters the device cannot express, and how they are refused.
REFUSED = [
    ([{"can_id": 0x123, "can_mask": 0x7FF}, {"can_id": 0x100, "can_mask": 0}], "partial mask"),
    ([{"can_id": 0x800, "can_mask": 0x7FF, "extended": False}], "standard identifier is at most 0x7FF"),
    ([exact(0x123), exact(0x18DA0123)], "could not tell the two apart"),
]


def test_filters_become_requests_set_filters_replaces_them_and_shutdown_leaves_nothing(simulator, open_bus):
    sim = simulator(inject=["0:123#01@5", "0:456#02@5"])
    for filters, complaint in REFUSED:
        with pytest.raises(ValueError, match=complaint):
            open_bus(sim.port, can_filters=filters)
    bus = open_bus(sim.port, can_filters=[exact(0x123)])  # the failed buses let go of the port
    for filters, complaint in REFUSED:
        with pytest.raises(ValueError, match=complaint):
            bus.set_filters(filters)
    receive_until(bus, lambda r: len(r) >= 3, "frames of 0x123")  # the refused filters left the requests alone
    bus.set_filters([exact(0x456)])
    assert {m.arbitration_id for m in receive_until(bus, lambda r: len(r) >= 10, "frames of 0x456")} == {0x456}
    bus.set_filters(None)
    assert bus.recv(timeout=0.3) is None

    # Requests, a periodic task and a sent message: shutdown removes them all.
    bus.set_filters([exact(0x123), exact(0x321), exact(0x18DA00F1)])
    bus.send_periodic(msg(0x321, b"\x04"), 0.01)
    bus.send(msg(0x18DA00F1, b"\x05", extended=True))
    receive_until(bus, lambda r: {0x123, 0x321, 0x18DA00F1} <= {m.arbitration_id for m in r}, "all three identifiers")
    bus.shutdown()

    with tarvel.Device(sim.port) as device:
        device.set_answer_wait(1.0)  # a loaded machine may answer late
        device.start_receiver()
        for can_id, extended in [(0x321, False), (0x18DA00F1, True)]:  # no transmit message is left...
            with pytest.raises(tarvel.TarvelError) as caught:
                device.get_handler(can_id, extended=extended)
            assert caught.value.code == -21
        # ...and no request: 0x123 goes on on the bus, and nothing is reported.
        seen = len(frames_of(bus_log(sim), 0x123))
        wait_for(lambda: len(frames_of(bus_log(sim), 0x123)) >= seen + 5, "five more frames of 0x123")
        assert device.wait_report(timeout=0) is None and device.statistics().reports_received == 0
    assert frames_of(bus_log(sim), 0x321)[-1].timestamp < frames_of(bus_log(sim), 0x123)[-5].timestamp

