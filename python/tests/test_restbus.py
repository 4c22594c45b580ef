"""tarvel.restbus with the example DBC: frames, cycle times, start values, set, read, stop; decoded by canmatrix."""

import statistics
import time

import pytest
from conftest import DBC, bus_log, wait_for

import tarvel
from tarvel.restbus import RestBus, SignalError

NODE = "Chassis"
# EngineData as the other node sends it: EngineSpeed 3000 rpm (raw 12000 = 0x2EE0, little-endian),
# CoolantTemperature 90 degC (raw 130 = 0x82), OilPressure 3.5 bar (raw 350 = 0x015E, big-endian in bytes 4-5).
INJECT = ["0:100#E02E8200015E0000@20"]
COUNTER = "AliveCounter"


@pytest.fixture
def rest(device):
    with RestBus(device, DBC, [NODE]) as bus:
        yield bus


def frames(messages, frame):
    ident = frame.arbitration_id
    return [m for m in messages if (m.arbitration_id, m.is_extended_id) == (ident.id, ident.extended)]


def decoded(frame, message):
    """Physical values as canmatrix decodes them from a logged frame."""
    return {name: value.phys_value for name, value in frame.decode(bytes(message.data)).items()}


def own_frames(database):
    return [f for f in database.frames if NODE in f.transmitters]


def start_values(frame):
    return {s.name: s.initial_value for s in frame.signals if s.name != COUNTER}


def close(values, expected):
    """Physical values (but the counter's) equal, floats within float32 precision."""
    values = {name: float(value) for name, value in values.items() if name != COUNTER}
    return values == pytest.approx({k: float(v) for k, v in expected.items()}, abs=1e-6)


def test_every_frame_goes_out_at_its_cycle_time_with_its_start_values(rest, device, database):
    periodic = [f for f in own_frames(database) if f.cycle_time]
    # Six frames of the slowest (100 ms): the others had time for many more.
    slowest = max(periodic, key=lambda f: f.cycle_time)
    log = wait_for(lambda: (m := bus_log(device.sim)) and len(frames(m, slowest)) >= 6 and m, "6 slow frames")

    for frame in periodic:
        sent = frames(log, frame)
        gaps = [b.timestamp - a.timestamp for a, b in zip(sent, sent[1:])]
        assert len(gaps) >= 5, frame.name
        # Not timed tightly: the typical gap is the cycle time, give or take a loaded machine.
        assert 0.7 * frame.cycle_time <= 1000 * statistics.median(gaps) <= 1.5 * frame.cycle_time, frame.name
    for frame in own_frames(database):
        sent = frames(log, frame)
        kinds = {(len(m.data), m.channel, m.is_extended_id, m.is_fd) for m in sent}
        assert kinds == {(frame.size, "can0", frame.arbitration_id.extended, frame.size > 8)}, frame.name
        assert close(decoded(frame, sent[0]), start_values(frame)), frame.name
    assert len(frames(log, database.frame_by_name("DoorCommand"))) == 1  # when switched on; later only on a change

    # The alive counter steps by one at every transmission, from its start value (0) on.
    dynamics = database.frame_by_name("VehicleDynamics")
    counts = [int(decoded(dynamics, m)[COUNTER]) for m in frames(log, dynamics)]
    assert counts[0] == 1 and len(counts) >= 20 and all((b - a) % 16 == 1 for a, b in zip(counts, counts[1:])), counts


# One value per kind of signal, as given; canmatrix decodes GearLever "D" as 3.
SETS = {
    "YawRate": -10.1,  # device, signed 12 bits from bit 16, factor 0.1
    "GearLever": "D",  # device, big-endian within one byte, by its value-table name
    "BrakePressure": 55.5,  # host, big-endian across bytes
    "Odometer": 99999.9,  # host, 32 bits, extended identifier
    "BatteryVoltage": 12.25,  # host, float, CAN FD
    "CellTemperatureMax": -12.34,  # host, big-endian signed, beyond byte 8
    "ChargedEnergy": 1099511.627,  # host, 40 bits
    "InteriorLight": 80,  # device, a frame sent on change
}


def test_set_and_set_many_put_physical_values_on_the_bus_for_every_kind_of_signal(rest, device, database):
    expected = {f.name: start_values(f) for f in own_frames(database)}
    frame_of = {s.name: f.name for f in own_frames(database) for s in f.signals}
    door = database.frame_by_name("DoorCommand")

    def latest_all_as_expected():
        log = bus_log(device.sim)
        return all(close(decoded(f, frames(log, f)[-1]), expected[f.name]) for f in own_frames(database))

    for name, value in {**SETS, "GearLever": 3}.items():
        rest.set(name, SETS[name])
        expected[frame_of[name]][name] = value
        assert rest.get(name) == pytest.approx(value)
    # Each signal carries its new value and every other signal of its frame keeps its own.
    wait_for(latest_all_as_expected, "every frame to carry the values set")
    assert len(frames(bus_log(device.sim), door)) == 2  # on change: once more

    # VehicleDynamics: device signals only, staged and applied by one command; BatteryStatus: device and host
    # signals, one masked update; DoorCommand, sent on change: once for both.
    new = {"VehicleSpeed": 33.33, "YawRate": 5.5, "BatteryCurrent": 100, "BatteryVoltage": 48.0}
    stats = device.statistics()
    rest.set_many({**new, "DoorLockRequest": "Lock", "InteriorLight": 0})
    # 2 staged changes + their execution, one data update for the battery, 2 staged for the doors.
    assert device.statistics().frames_sent - stats.frames_sent == 6
    for name, value in {**new, "DoorLockRequest": 1, "InteriorLight": 0}.items():
        expected[frame_of[name]][name] = value
    wait_for(latest_all_as_expected, "every frame to carry the values set together")
    log = bus_log(device.sim)
    for frame in map(database.frame_by_name, ["VehicleDynamics", "BatteryStatus"]):
        for m in frames(log, frame):
            values = decoded(frame, m)
            carried = {float(values[name]) == pytest.approx(value) for name, value in new.items() if name in values}
            assert len(carried) == 1, f"{frame.name}: new and old values at once"
    assert len(frames(log, door)) == 3


# Values and names set_many refuses, and the words it says.
REFUSALS = [
    ({"VehicleSpeed": 1.005}, "VehicleSpeed: 1.005 km/h is not one of its values: it goes in steps of 0.01 from 0"),
    ({"OutsideTemperature": 20.2}, "(nearest 20 and 20.5 degC)"),
    ({"VehicleSped": 1}, "'VehicleSped': not in the frames of the simulated nodes; did you mean VehicleSpeed?"),
    ({COUNTER: 3}, "AliveCounter: an alive counter, advanced by the device at every transmission"),
    ({"EngineSpeed": 800}, "its frame EngineData is sent by Engine, not by the simulated nodes; read() reads it"),
    ({"GearLever": "X"}, "GearLever: 'X' is neither a number nor one of its values (P, R, N, D)"),
    ({"VehicleSpeed": 60, "YawRate": -204.9}, "YawRate: -204.9 deg/s is outside its range -204.8 to 204.7 deg/s"),
]


@pytest.mark.parametrize("values, message", REFUSALS)
def test_values_and_names_are_refused_with_nothing_sent(rest, device, values, message):
    before = device.statistics().frames_sent
    with pytest.raises(SignalError) as caught:
        rest.set_many(values)
    assert message in str(caught.value)
    assert device.statistics().frames_sent == before
    assert rest.get("VehicleSpeed") == 50  # its start value: one given beside a refused value is not applied either


def test_read_returns_what_another_nodes_frame_carries_and_stop_leaves_the_device_empty(device, database):
    with RestBus(device, DBC, [NODE]) as rest:
        speed = rest.read("EngineSpeed")
        assert (speed.name, speed.value, speed.unit, speed.raw) == ("EngineSpeed", 3000, "rpm", 12000)
        assert 0 <= speed.age < 5 and str(speed).startswith("EngineSpeed = 3000 rpm, ")
        assert rest.read("EngineData.CoolantTemperature")[:3] == ("EngineData.CoolantTemperature", 90, "degC")
        # The request stays: a later read is of a newer frame.
        wait_for(lambda: rest.read("EngineSpeed").age < 0.5, "a fresh EngineData")
        misspelt = "unknown signal 'EngineSped': not in the database; did you mean EngineSpeed"
        with pytest.raises(SignalError, match=misspelt):
            rest.read("EngineSped")
        signal_handler = max(rest._signals.values())
    stopped = time.time()
    assert not rest.running and not device.receiver_running
    for frame in own_frames(database):
        with pytest.raises(tarvel.TarvelError, match="failed: -21:"):
            device.get_handler(frame.arbitration_id.id, extended=frame.arbitration_id.extended)
    with pytest.raises(tarvel.TarvelError):
        device.signal_change_value(signal_handler, 1)
    # EngineData goes on; the request for it is gone, and none of the node's frames is sent any more.
    device.start_receiver()
    reports = device.statistics().reports_received
    engine = database.frame_by_name("EngineData")
    seen = len(frames(bus_log(device.sim), engine))
    wait_for(lambda: len(frames(bus_log(device.sim), engine)) >= seen + 5, "five more EngineData")
    assert device.statistics().reports_received == reports
    assert [m for f in own_frames(database) for m in frames(bus_log(device.sim), f) if m.timestamp > stopped] == []
    rest.stop()  # again: nothing to do


# A frame of two pages, and a frame of another node that never comes.
MULTIPLEXED = """\
BU_: Tester Engine
BO_ 1536 Multiplexed: 8 Tester
 SG_ Page M : 0|8@1+ (1,0) [0|1] "" Vector__XXX
 SG_ Pressure m0 : 8|16@1+ (0.5,0) [0|1000] "bar" Vector__XXX
 SG_ Temperature m1 : 8|16@1+ (0.5,0) [0|1000] "degC" Vector__XXX
BO_ 256 Engine: 8 Engine
 SG_ Speed : 0|16@1+ (1,0) [0|65535] "rpm" Tester
BA_DEF_ BO_ "GenMsgCycleTime" INT 0 65535;
BA_ "GenMsgCycleTime" BO_ 1536 10;
"""


def test_a_read_times_out_and_a_multiplexed_frame_carries_the_page_of_the_signal_set_last(simulator, database):
    import canmatrix.formats  # (quietly imported by the database fixture)

    matrix = canmatrix.formats.loads_flat(MULTIPLEXED, import_type="dbc")
    frame, sim = matrix.frame_by_name("Multiplexed"), simulator()
    with tarvel.Device(sim.port) as device, RestBus(device, matrix, ["Tester"]) as rest:
        with pytest.raises(TimeoutError, match=r"read Speed: no frame Engine \(0x100\) on channel 0 in 0.2 s"):
            rest.read("Speed", timeout=0.2)
        for name, value, page in [("Temperature", 21.5, 1), ("Pressure", 2.5, 0)]:
            rest.set(name, value)

            def latest_on_page():
                sent = frames(bus_log(sim), frame)
                return sent and (values := decoded(frame, sent[-1]))["Page"] == page and values

            assert wait_for(latest_on_page, f"page {page}") == {"Page": page, name: value}
