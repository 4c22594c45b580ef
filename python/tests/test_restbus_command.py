"""python3 -m tarvel restbus: the set-up table, the frames on the built-in simulated device, Ctrl-C, refusals."""

import logging
import signal
import subprocess
import sys
import threading

import can
import pytest
from conftest import EXAMPLES, wait_for

logging.getLogger("canmatrix.formats").setLevel(logging.ERROR)  # its import warns about formats it lacks
import canmatrix.formats  # noqa: E402  (after the log level)

DBC = str(EXAMPLES / "vehicle.dbc")
COMMAND = [sys.executable, "-m", "tarvel", "restbus", DBC]


def restbus(*args, timeout=60, database=DBC):
    return subprocess.run([*COMMAND[:-1], database, *args], capture_output=True, text=True, timeout=timeout)


def test_the_command_prints_its_set_up_and_runs_the_frames(tmp_path):
    bus_log = tmp_path / "bus.log"
    run = restbus(
        "--node", "Chassis", "--set", "VehicleSpeed=88", "--set", "GearLever=N", "-d", "0.5", "--bus-log", str(bus_log)
    )
    assert run.returncode == 0, run.stderr
    lines = [line.split() for line in run.stdout.splitlines()]
    assert lines[0][:3] == ["restbus:", "Chassis", "of"]
    assert lines[1] == ["FRAME", "ID", "BYTES", "CYCLE", "SIGNAL", "SENT", "AS", "VALUE"]
    assert lines[2] == ["VehicleDynamics", "120", "8", "10", "ms", "VehicleSpeed", "device", "88", "km/h"]
    assert ["BrakePressure", "host", "(big-endian", "across", "bytes)", "10", "bar"] in lines
    assert ["AliveCounter", "counter", "0,", "+1", "per", "frame"] in lines
    assert ["GearLever", "device", "2", "(N)"] in lines
    assert ["DoorCommand", "500", "2", "on", "change", "DoorLockRequest", "device", "0", "(None)"] in lines
    assert lines[-1] == "4 frames: 9 device signals, 1 alive counter, 6 host-encoded signals".split()
    assert "restbus: no --port: running on the built-in simulated device" in run.stderr
    assert "restbus: running for 0.5 s" in run.stderr
    assert "restbus: stopped; 4 frames removed from the device" in run.stderr

    database = canmatrix.formats.loadp_flat(DBC)
    dynamics = database.frame_by_name("VehicleDynamics")
    sent = [m for m in can.LogReader(str(bus_log)) if m.arbitration_id == dynamics.arbitration_id.id]
    assert len(sent) >= 10  # 10 ms frames for half a second, on however loaded a machine
    values = dynamics.decode(bytes(sent[0].data))
    assert (values["VehicleSpeed"].phys_value, values["GearLever"].raw_value) == (88, 2)


def test_ctrl_c_stops_the_command_cleanly():
    process = subprocess.Popen(
        [*COMMAND, "--node", "Chassis"], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    )
    said = []
    reader = threading.Thread(target=lambda: said.extend(process.stderr), daemon=True)
    reader.start()
    try:
        wait_for(lambda: any("running until Ctrl-C" in line for line in said), "the command to run", timeout=30)
        process.send_signal(signal.SIGINT)
        out = process.stdout.read()  # standard error is the reader's
        process.wait(30)
    finally:
        if process.poll() is None:
            process.kill()
    reader.join(10)
    assert process.returncode == 0, "".join(said)
    assert "restbus: stopped; 4 frames removed from the device\n" in said
    assert "Traceback" not in "".join(said)
    assert out.splitlines()[-1] == "4 frames: 9 device signals, 1 alive counter, 6 host-encoded signals"


REFUSED = [
    (["--node", "Chassis", "--set", "VehicleSpeed=999"], 2, "VehicleSpeed: 999 km/h is outside its range"),
    (["--node", "Chassis", "--set", "VehicleSpeed"], 2, "'VehicleSpeed' is not SIGNAL=VALUE"),
    (["--node", "Gateway"], 2, "node 'Gateway' is not in the database; its nodes are: Chassis, Engine"),
    (["--node", "Chassis", "--counter", "Odometer"], 2, "Odometer: the device advances counters of up to 16 bits"),
    (["--node", "Chassis", "--duration", "-1"], 2, "--duration: -1 is not a number of seconds >= 0"),
    (["--node", "Chassis", "--port", "/dev/null", "--bus-log", "x"], 2, "belong to the built-in simulated device"),
    (["--node", "Chassis", "--port", "/nonexistent/tty"], 1, "Connect to /nonexistent/tty failed"),
]


@pytest.mark.parametrize("args, status, message", REFUSED)
def test_refusals_name_the_problem(args, status, message):
    run = restbus(*args)
    assert run.returncode == status, run.stderr
    assert message in run.stderr
    assert "Traceback" not in run.stderr


def test_a_missing_database_is_named():
    run = restbus("--node", "X", database="missing.dbc")
    assert run.returncode == 2 and "missing.dbc: no such file" in run.stderr


def test_the_example_program_runs_on_the_simulated_device():
    run = subprocess.run(
        [sys.executable, str(EXAMPLES / "restbus_demo.py")], capture_output=True, text=True, timeout=60
    )
    assert run.returncode == 0, run.stderr
    lines = run.stdout.splitlines()
    assert "refused: VehicleSpeed: 400 km/h is outside its range 0 to 320 km/h" in lines
    assert [line.split(",")[0] for line in lines[-3:]] == [
        "EngineSpeed = 3000 rpm",
        "CoolantTemperature = 90 degC",
        "OilPressure = 3.5 bar",
    ]
