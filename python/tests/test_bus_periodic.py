"""send_periodic on the device's own periodic transmission (rate, modify_data, stop, duration), and of a sequence."""

import can
import pytest
from conftest import bus_log, exact, fence, frames_of, msg, receive_until, wait_for

PERIODIC, WITNESS, SEQUENCE, FENCE = 0x321, 0x322, 0x323, 0x7EE
A, B = bytes(range(8)), bytes(range(10, 18))


def assert_none_after_fence(bus, sim, *can_ids):
    """No frame of can_ids after a fence, while a witness task has sent 10 frames (100 ms of the device's time)."""
    fence(bus, sim, FENCE)
    witness = bus.send_periodic(msg(WITNESS, b"\x01"), 0.01)
    wait_for(lambda: len(frames_of(bus_log(sim), WITNESS)) >= 10, "10 witness frames")
    witness.stop()
    log = bus_log(sim)
    fenced = max(i for i, f in enumerate(log) if f.arbitration_id == FENCE)
    assert [f for f in log[fenced:] if f.arbitration_id in can_ids] == []


def test_send_periodic_at_10_ms_modify_data_and_stop(simulator, open_bus):
    sim = simulator()
    bus = open_bus(sim.port, can_filters=[exact(PERIODIC), exact(FENCE)])
    task = bus.send_periodic(msg(PERIODIC, A), 0.01)

    # About 10 frames per 100 ms: counted over a second of report time stamps, with wide bounds.
    received = receive_until(bus, lambda r: r and r[-1].timestamp - r[0].timestamp >= 1.0, "a second of frames")
    assert 40 <= len([m for m in received if m.timestamp < received[0].timestamp + 1.0]) <= 130
    assert all(bytes(m.data) == A and m.channel == 0 and not m.is_extended_id for m in received)

    task.modify_data(msg(PERIODIC, B))
    received += receive_until(bus, lambda r: len(r) >= 5 and bytes(r[-5].data) == B, "five frames of new data")
    assert all(bytes(m.data) == B for m in received[next(i for i, m in enumerate(received) if m.data == B) :])

    task.stop()
    assert_none_after_fence(bus, sim, PERIODIC)
    # Every frame the device sent was received, in order.
    received += receive_until(bus, lambda r: r and r[-1].arbitration_id == FENCE, "the fence")
    sent = [bytes(f.data) for f in frames_of(bus_log(sim), PERIODIC)]
    assert [bytes(m.data) for m in frames_of(received, PERIODIC)] == sent


def test_send_periodic_makes_room_among_sent_messages_and_reports_a_full_device(simulator, open_bus):
    sim = simulator(capacity=2)
    bus = open_bus(sim.port)
    bus.send(msg(0x100, b"\x01"))
    bus.send(msg(0x101, b"\x02"))  # the device is full of messages kept for send
    task = bus.send_periodic(msg(PERIODIC, A), 0.01)
    wait_for(lambda: frames_of(bus_log(sim), PERIODIC), "the periodic frame")
    bus.send_periodic(msg(SEQUENCE, A), 0.01)  # takes the last sent message's place
    with pytest.raises(can.CanOperationError, match="AddMessage.*out of memory for transmit messages") as caught:
        bus.send_periodic(msg(0x324, A), 0.01)
    assert caught.value.error_code == -23
    task.stop()
    bus.send(msg(0x100, b"\x03"))  # room again
    fence(bus, sim)
    assert bytes(frames_of(bus_log(sim), 0x100)[-1].data) == b"\x03"


def test_send_periodic_ends_after_its_duration_a_sequence_when_stopped_and_restarts(simulator, open_bus):
    sim = simulator()
    bus = open_bus(sim.port)
    task = bus.send_periodic(msg(PERIODIC, A), 0.01, duration=0.2)
    sequence = bus.send_periodic([msg(SEQUENCE, A), msg(SEQUENCE, B)], 0.01)  # sent in turn by python-can's thread
    wait_for(lambda: len(frames_of(bus_log(sim), SEQUENCE)) >= 6, "six frames of the sequence")
    sequence.stop()
    wait_for(lambda: not task.running, "the task to end after its duration")
    assert len(frames_of(bus_log(sim), PERIODIC)) >= 3
    assert_none_after_fence(bus, sim, PERIODIC, SEQUENCE)
    sent = [bytes(f.data) for f in frames_of(bus_log(sim), SEQUENCE)]
    assert sent == [A, B] * (len(sent) // 2) + [A] * (len(sent) % 2)

    before = len(frames_of(bus_log(sim), PERIODIC))
    task.start()
    wait_for(lambda: len(frames_of(bus_log(sim), PERIODIC)) >= before + 3, "frames after start()")
    task.stop()
