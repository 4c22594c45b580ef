"""python3 -m tarvel restbus: the set-up table, the frames on the built-in simulated device, Ctrl-C, refusals."""

import signal
import subprocess
import sys
import threading

import can
import pytest
from conftest import DBC, EXAMPLES, run_python, wait_for

RESTBUS = ["-m", "tarvel", "restbus"]
SUMMARY = "4 frames: 9 device signals, 1 alive counter, 6 host-encoded signals"


def test_the_command_prints_its_set_up_and_runs_the_frames(tmp_path, database):
    bus_log = tmp_path / "bus.log"
    set_up = ["--node", "Chassis", "--set", "VehicleSpeed=88", "--set", "GearLever=N", "-d", "0.5"]
    run = run_python([*RESTBUS, DBC, *set_up, "--bus-log", str(bus_log)])
    assert run.returncode == 0, run.stderr
    lines = [line.split() for line in run.stdout.splitlines()]
    assert lines[0][:3] == ["restbus:", "Chassis", "of"]
    for row in [
        "FRAME ID BYTES CYCLE SIGNAL SENT AS VALUE",
        "VehicleDynamics 120 8 10 ms VehicleSpeed device 88 km/h",
        "BrakePressure host (big-endian across bytes) 10 bar",
        "AliveCounter counter 0, +1 per frame",
        "VehicleInfo 18FEF100 8 100 ms Odometer host (32 bits) 12345.6 km",
        "BatteryStatus 310 16 FD 50 ms BatteryVoltage host (float) 400.5 V",
        "ChargedEnergy host (40 bits) 4321 kWh",
        "DoorCommand 500 2 on change DoorLockRequest device 0 (None)",
    ]:
        assert row.split() in lines, row
    assert lines[-1] == SUMMARY.split()
    for said in ["no --port: running on the built-in simulated device", "running for 0.5 s", "stopped; 4 frames"]:
        assert f"restbus: {said}" in run.stderr

    dynamics = database.frame_by_name("VehicleDynamics")
    sent = [m for m in can.LogReader(str(bus_log)) if m.arbitration_id == dynamics.arbitration_id.id]
    assert len(sent) >= 10  # 10 ms frames for half a second, on however loaded a machine
    values = dynamics.decode(bytes(sent[0].data))
    assert (values["VehicleSpeed"].phys_value, values["GearLever"].raw_value) == (88, 2)


def test_ctrl_c_stops_the_command_cleanly():
    command = [sys.executable, *RESTBUS, DBC, "--node", "Chassis"]
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    said = []
    reader = threading.Thread(target=lambda: said.extend(process.stderr), daemon=True)
    reader.start()
    try:
        wait_for(lambda: any("running until Ctrl-C" in line for line in said), "the command to run", timeout=30)
        process.send_signal(signal.SIGINT)
        process.wait(30)  # a failure rather than a hang if it does not stop (its output fits the pipe)
        out = process.stdout.read()  # standard error is the reader's
    finally:
        if process.poll() is None:
            process.kill()
    reader.join(10)
    assert process.returncode == 0 and "Traceback" not in "".join(said), "".join(said)
    assert "restbus: stopped; 4 frames removed from the device\n" in said and out.splitlines()[-1] == SUMMARY


# Arguments the command refuses: its exit status and what it says.
REFUSALS = [
    ([DBC, "--node", "Chassis", "--set", "VehicleSpeed"], 2, "'VehicleSpeed' is not SIGNAL=VALUE"),
    ([DBC, "--node", "Gateway"], 2, "node 'Gateway' is not in the database; its nodes are: Chassis, Engine"),
    ([DBC, "--node", "Chassis", "--counter", "Odometer"], 2, "Odometer: the device advances counters of up to 16"),
    ([DBC, "--node", "Chassis", "--port", "/dev/null", "--bus-log", "x"], 2, "belong to the built-in simulated"),
    ([DBC, "--node", "Chassis", "--port", "/nonexistent/tty"], 1, "Connect to /nonexistent/tty failed"),
    (["missing.dbc", "--node", "X"], 2, "missing.dbc: no such file"),
]


@pytest.mark.parametrize("args, status, message", REFUSALS)
def test_refusals_name_the_problem(args, status, message):
    run = run_python([*RESTBUS, *args])
    assert run.returncode == status, run.stderr
    assert message in run.stderr and "Traceback" not in run.stderr


def test_the_example_program_runs_on_the_simulated_device():
    run = run_python([str(EXAMPLES / "restbus_demo.py")])
    assert run.returncode == 0, run.stderr
    lines = run.stdout.splitlines()
    assert "refused: VehicleSpeed: 400 km/h is outside its range 0 to 320 km/h" in lines
    reads = [line.split(",")[0] for line in lines[-3:]]
    assert reads == ["EngineSpeed = 3000 rpm", "CoolantTemperature = 90 degC", "OilPressure = 3.5 bar"]
