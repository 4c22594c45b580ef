"""tarvel.restbus against tarvel-sim with the example DBC: frames, cycle times, start values, set, read, stop.

What goes on the bus is read back from the simulator's bus log with
python-can's can.LogReader and decoded with canmatrix itself, so that the
placement of every kind of signal is checked by another implementation.
"""

import logging
import statistics
import time

import can
import pytest
from conftest import EXAMPLES, wait_for

import tarvel
from tarvel.restbus import RestBus, SignalError

logging.getLogger("canmatrix.formats").setLevel(logging.ERROR)  # its import warns about formats it lacks
import canmatrix.formats  # noqa: E402  (after the log level)

DBC = EXAMPLES / "vehicle.dbc"
NODE = "Chassis"
# EngineData as the other node sends it: EngineSpeed 3000 rpm (raw 12000 = 0x2EE0, little-endian),
# CoolantTemperature 90 degC (raw 130 = 0x82), OilPressure 3.5 bar (raw 350 = 0x015E, big-endian in bytes 4-5).
ENGINE_DATA = "0:100#E02E8200015E0000@20"
COUNTER = "AliveCounter"


@pytest.fixture(scope="module")
def database():
    return canmatrix.formats.loadp_flat(str(DBC))


@pytest.fixture
def device(simulator):
    sim = simulator(inject=[ENGINE_DATA])
    with tarvel.Device(sim.port, read_timeout=1.0) as dev:
        dev.set_answer_wait(1.0)  # with the receiver running; a loaded machine may answer late
        dev.sim = sim
        yield dev


@pytest.fixture
def rest(device):
    with RestBus(device, DBC, [NODE]) as bus:
        yield bus


def logged(sim, tmp_path):
    """Every frame on the bus so far: the complete lines of the bus log, read by can.LogReader."""
    text = sim.options["bus_log"].read_text()
    snapshot = tmp_path / "snapshot.log"
    snapshot.write_text(text[: text.rfind("\n") + 1])  # the simulator may be writing the last line
    return list(can.LogReader(str(snapshot)))


def frames(messages, frame):
    return [
        m
        for m in messages
        if m.arbitration_id == frame.arbitration_id.id and m.is_extended_id == frame.arbitration_id.extended
    ]


def decoded(frame, message):
    """Physical values as canmatrix decodes them from a logged frame."""
    return {name: value.phys_value for name, value in frame.decode(bytes(message.data)).items()}


def own_frames(database):
    return [f for f in database.frames if NODE in f.transmitters]


def start_values(frame):
    return {s.name: s.initial_value for s in frame.signals if s.name != COUNTER}


def without_counter(values):
    return {name: value for name, value in values.items() if name != COUNTER}


def close(values, expected):
    """Physical values equal, floats within float32 precision."""
    return values.keys() == expected.keys() and all(
        abs(float(values[k]) - float(expected[k])) <= 1e-6 * max(1.0, abs(float(expected[k]))) for k in expected
    )


def test_every_frame_goes_out_at_its_cycle_time_with_its_start_values(rest, device, database, tmp_path):
    periodic = [f for f in own_frames(database) if f.cycle_time]
    on_change = [f for f in own_frames(database) if not f.cycle_time]
    assert {f.name for f in periodic} == {"VehicleDynamics", "VehicleInfo", "BatteryStatus"}
    assert [f.name for f in on_change] == ["DoorCommand"]
    # Six frames of the slowest (100 ms): the others had time for many more.
    slowest = max(periodic, key=lambda f: f.cycle_time)
    log = wait_for(lambda: (m := logged(device.sim, tmp_path)) and len(frames(m, slowest)) >= 6 and m, "6 slow frames")

    for frame in periodic:
        sent = frames(log, frame)
        gaps = [b.timestamp - a.timestamp for a, b in zip(sent, sent[1:])]
        assert len(gaps) >= 5, frame.name
        # Not timed tightly: the typical gap is the cycle time, give or take a loaded machine.
        assert 0.7 * frame.cycle_time <= 1000 * statistics.median(gaps) <= 1.5 * frame.cycle_time, frame.name
    for frame in own_frames(database):
        sent = frames(log, frame)
        assert all(len(m.data) == frame.size and m.channel == "can0" for m in sent), frame.name
        assert sent[0].is_extended_id == frame.arbitration_id.extended
        assert sent[0].is_fd == (frame.size > 8)
        assert close(without_counter(decoded(frame, sent[0])), start_values(frame)), frame.name
    assert len(frames(log, on_change[0])) == 1  # once when switched on, and only on a change after that

    # The alive counter steps by one at every transmission, from its start value (0) on.
    dynamics = database.frame_by_name("VehicleDynamics")
    counts = [int(decoded(dynamics, m)[COUNTER]) for m in frames(log, dynamics)]
    assert counts[0] == 1 and len(counts) >= 20
    assert all((b - a) % 16 == 1 for a, b in zip(counts, counts[1:])), counts


def test_the_set_up_says_how_each_signal_is_sent(rest):
    kinds = {s.name: (s.kind, s.why) for s in rest.signals()}
    assert kinds == {
        "VehicleSpeed": ("device", ""),
        "YawRate": ("device", ""),
        "BrakeActive": ("device", ""),
        "BrakePressure": ("host", "big-endian across bytes"),
        COUNTER: ("counter", ""),
        "GearLever": ("device", ""),  # big-endian within one byte: the device's order too
        "Odometer": ("host", "32 bits"),
        "OutsideTemperature": ("device", ""),
        "FuelLevel": ("host", "big-endian across bytes"),
        "BatteryVoltage": ("host", "float"),
        "BatteryCurrent": ("device", ""),
        "StateOfCharge": ("device", ""),
        "CellTemperatureMax": ("host", "big-endian across bytes"),
        "ChargedEnergy": ("host", "40 bits"),
        "DoorLockRequest": ("device", ""),
        "InteriorLight": ("device", ""),
    }
    # The table's lines: python -m tarvel restbus prints it (test_restbus_command.py).
    assert rest.table().splitlines()[-1] == "4 frames: 9 device signals, 1 alive counter, 6 host-encoded signals"


# One value per kind of signal: (signal, physical value given, value canmatrix decodes).
SETS = [
    ("VehicleSpeed", 120.5, 120.5),  # device, unsigned 16 bits, factor 0.01
    ("YawRate", -10.1, -10.1),  # device, signed 12 bits from bit 16
    ("BrakeActive", 1, 1),  # device, one bit
    ("GearLever", "D", 3),  # device, big-endian within one byte, by its value-table name
    ("BrakePressure", 55.5, 55.5),  # host, big-endian across bytes
    ("Odometer", 99999.9, 99999.9),  # host, 32 bits, extended identifier
    ("OutsideTemperature", -40, -40),  # device, offset -40
    ("FuelLevel", 12.3, 12.3),  # host, big-endian 10 bits
    ("BatteryVoltage", 12.25, 12.25),  # host, float, CAN FD
    ("BatteryCurrent", -2999.9, -2999.9),  # device, signed 16 bits
    ("CellTemperatureMax", -12.34, -12.34),  # host, big-endian signed, beyond byte 8
    ("ChargedEnergy", 1099511.627, 1099511.627),  # host, 40 bits
    ("InteriorLight", 80, 80),  # device, a frame sent on change
]


def test_set_puts_physical_values_on_the_bus_for_every_kind_of_signal(rest, device, database, tmp_path):
    expected = {f.name: start_values(f) for f in own_frames(database)}
    for name, value, physical in SETS:
        rest.set(name, value)
        frame = next(f for f in own_frames(database) if f.signal_by_name(name))
        expected[frame.name][name] = physical
        assert rest.get(name) == pytest.approx(physical)

    def latest_all_as_expected():
        log = logged(device.sim, tmp_path)
        latest = {f.name: frames(log, f)[-1] for f in own_frames(database)}
        return all(close(without_counter(decoded(f, latest[f.name])), expected[f.name]) for f in own_frames(database))

    # Each signal carries its new value and every other signal of its frame keeps its own.
    wait_for(latest_all_as_expected, "every frame to carry the values set")
    door = database.frame_by_name("DoorCommand")
    assert len(frames(logged(device.sim, tmp_path), door)) == 2  # on change: once more


def test_set_many_changes_the_signals_of_a_frame_together(rest, device, database, tmp_path):
    door = database.frame_by_name("DoorCommand")
    dynamics = database.frame_by_name("VehicleDynamics")
    battery = database.frame_by_name("BatteryStatus")
    wait_for(lambda: frames(logged(device.sim, tmp_path), door), "DoorCommand switched on")
    stats = device.statistics()
    new = {
        "VehicleSpeed": 33.33,  # device signals only: staged, applied by one command
        "YawRate": 5.5,
        "BrakeActive": 1,
        "BatteryCurrent": 100,  # device and host signals in one frame: one masked update
        "BatteryVoltage": 48.0,
        "CellTemperatureMax": 99.99,
        "DoorLockRequest": "Lock",  # a frame sent on change: once for both
        "InteriorLight": 0,
    }
    rest.set_many(new)
    # 3 staged changes + their execution, one data update for the battery, 2 staged for the doors.
    assert device.statistics().frames_sent - stats.frames_sent == 7

    expected = {**new, "DoorLockRequest": 1}

    def new_in(frame, message):
        """For each signal set of the frame: does the frame carry its new value?"""
        values = decoded(frame, message)
        return {name: float(values[name]) == pytest.approx(expected[name]) for name in expected if name in values}

    def all_new_on_bus():
        log = logged(device.sim, tmp_path)
        return all(all(new_in(f, frames(log, f)[-1]).values()) for f in (dynamics, battery, door))

    wait_for(all_new_on_bus, "the new values on the bus")
    log = logged(device.sim, tmp_path)
    for frame in (dynamics, battery):
        seen = [set(new_in(frame, m).values()) for m in frames(log, frame)]
        assert {True, False} not in seen, f"{frame.name}: a frame carried some new values and some old"
    assert len(frames(log, door)) == 2


REFUSED = [
    ({"YawRate": -204.9}, "YawRate: -204.9 deg/s is outside its range -204.8 to 204.7 deg/s"),
    ({"OutsideTemperature": 87.6}, "OutsideTemperature: 87.6 degC is outside its range -40 to 87.5 degC"),
    ({"BatteryVoltage": 1000.5}, "BatteryVoltage: 1000.5 V is outside its range 0 to 1000 V"),
    ({"VehicleSpeed": 1.005}, "VehicleSpeed: 1.005 km/h is not one of its values: it goes in steps of 0.01 from 0"),
    ({"OutsideTemperature": 20.2}, "(nearest 20 and 20.5 degC)"),
    (
        {"VehicleSped": 1},
        "unknown signal 'VehicleSped': not in the frames of the simulated nodes; did you mean VehicleSpeed?",
    ),
    ({COUNTER: 3}, "AliveCounter: an alive counter, advanced by the device at every transmission"),
    (
        {"EngineSpeed": 800},
        "EngineSpeed: its frame EngineData is sent by Engine, not by the simulated nodes; read() reads it",
    ),
    ({"GearLever": "X"}, "GearLever: 'X' is neither a number nor one of its values (P, R, N, D)"),
    ({"VehicleSpeed": None}, "VehicleSpeed: expected a number, got None"),
    ({"VehicleSpeed": float("nan")}, "VehicleSpeed: nan is not a finite number"),
    ({"VehicleSpeed": 50, "BrakePressure": 250.1}, "BrakePressure: 250.1 bar is outside its range 0 to 250 bar"),
]


@pytest.mark.parametrize("values, message", REFUSED)
def test_values_and_names_are_refused_with_nothing_sent(rest, device, values, message):
    before = device.statistics().frames_sent
    with pytest.raises(SignalError) as caught:
        rest.set_many(values)
    assert message in str(caught.value)
    assert device.statistics().frames_sent == before
    assert rest.get("VehicleSpeed") == 50  # a valid value given beside a refused one is not applied either


def test_read_returns_what_another_nodes_frame_carries(rest, device):
    speed = rest.read("EngineSpeed")
    assert (speed.name, speed.value, speed.unit, speed.raw) == ("EngineSpeed", 3000, "rpm", 12000)
    assert 0 <= speed.age < 5
    assert str(speed).startswith("EngineSpeed = 3000 rpm, ")
    assert rest.read("EngineData.CoolantTemperature")[:3] == ("EngineData.CoolantTemperature", 90, "degC")
    assert rest.read("OilPressure").value == pytest.approx(3.5)  # big-endian
    # The request stays: a later read is of a newer frame.
    wait_for(lambda: rest.read("EngineSpeed").age < 0.5, "a fresh EngineData")
    assert device.receiver_running
    with pytest.raises(SignalError, match="unknown signal 'EngineSped': not in the database; did you mean EngineSpeed"):
        rest.read("EngineSped")


def test_read_of_a_frame_that_does_not_come_times_out(simulator):
    sim = simulator()  # no other node
    with tarvel.Device(sim.port) as device, RestBus(device, DBC, [NODE]) as rest:
        device.set_answer_wait(1.0)
        timed_out = r"read EngineSpeed: no frame EngineData \(0x100\) on channel 0 in 0.2 s"
        with pytest.raises(TimeoutError, match=timed_out):
            rest.read("EngineSpeed", timeout=0.2)


def test_stop_leaves_the_device_empty(device, database, tmp_path):
    rest = RestBus(device, DBC, [NODE])
    with rest:
        rest.read("EngineSpeed")
        signal_handler = max(rest._signals.values())
    stopped = time.time()
    assert not rest.running and not device.receiver_running
    for frame in own_frames(database):
        with pytest.raises(tarvel.TarvelError) as caught:
            device.get_handler(frame.arbitration_id.id, extended=frame.arbitration_id.extended)
        assert caught.value.code == -21, frame.name
    with pytest.raises(tarvel.TarvelError):
        device.signal_change_value(signal_handler, 1)
    # EngineData goes on; the request for it is gone, and none of the node's frames is sent any more.
    device.start_receiver()
    reports = device.statistics().reports_received
    engine = database.frame_by_name("EngineData")
    seen = len(frames(logged(device.sim, tmp_path), engine))
    wait_for(lambda: len(frames(logged(device.sim, tmp_path), engine)) >= seen + 5, "five more EngineData")
    assert device.statistics().reports_received == reports
    log = logged(device.sim, tmp_path)
    assert [m for f in own_frames(database) for m in frames(log, f) if m.timestamp > stopped] == []
    rest.stop()  # again: nothing to do


def test_a_multiplexed_frame_carries_the_page_of_the_signal_set(simulator, tmp_path):
    matrix = canmatrix.formats.loads_flat(MULTIPLEXED, import_type="dbc")
    sim = simulator()
    with tarvel.Device(sim.port) as device, RestBus(device, matrix, ["Tester"]) as rest:
        assert {s.name: s.kind for s in rest.signals()} == {"Page": "host", "Pressure": "host", "Temperature": "host"}
        rest.set("Temperature", 21.5)
        frame = matrix.frame_by_name("Multiplexed")

        def latest():
            sent = frames(logged(sim, tmp_path), frame)
            return sent and decoded(frame, sent[-1])

        assert wait_for(lambda: (v := latest()) and v["Page"] == 1 and v, "page 1") == {"Page": 1, "Temperature": 21.5}
        rest.set("Pressure", 2.5)
        assert wait_for(lambda: (v := latest()) and v["Page"] == 0 and v, "page 0") == {"Page": 0, "Pressure": 2.5}


MULTIPLEXED = """\
VERSION ""
NS_ :
BS_:
BU_: Tester
BO_ 1536 Multiplexed: 8 Tester
 SG_ Page M : 0|8@1+ (1,0) [0|1] "" Vector__XXX
 SG_ Pressure m0 : 8|16@1+ (0.5,0) [0|1000] "bar" Vector__XXX
 SG_ Temperature m1 : 8|16@1+ (0.5,0) [0|1000] "degC" Vector__XXX
BA_DEF_ BO_ "GenMsgCycleTime" INT 0 65535;
BA_ "GenMsgCycleTime" BO_ 1536 10;
"""
