"""Plays the Chassis node of vehicle.dbc and reads the Engine node's EngineData: tarvel.restbus in a test bench.

    python3 restbus_demo.py [PORT]

Without a port it starts the simulated device, with EngineData from the
other node on its bus (3000 rpm, 90 degC, 3.5 bar every 20 ms).
"""

import argparse
import contextlib
import pathlib
import time

import tarvel
from tarvel.restbus import RestBus, SignalError

DBC = pathlib.Path(__file__).with_name("vehicle.dbc")
ENGINE_DATA = "0:100#E02E8200015E0000@20"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("port", nargs="?", help="the device's serial port; default: the simulated device")
    args = parser.parse_args()

    with contextlib.ExitStack() as stack:
        port = args.port or stack.enter_context(tarvel.Simulator(inject=[ENGINE_DATA])).port
        device = stack.enter_context(tarvel.Device(port, read_timeout=0.5))
        device.set_answer_wait(0.5)  # read() starts the receiver: answers then come through it
        rest = stack.enter_context(RestBus(device, DBC, ["Chassis"]))
        print(rest.table())

        rest.set("VehicleSpeed", 120.5)  # km/h: one short command (a device signal)
        rest.set("GearLever", "D")  # by its value-table name
        rest.set_many({"BrakePressure": 42.5, "YawRate": -3.2})  # one update of VehicleDynamics
        rest.set("Odometer", 12400.3)  # 32 bits: encoded here, sent as a masked update
        try:
            rest.set("VehicleSpeed", 400)
        except SignalError as error:
            print("refused:", error)  # VehicleSpeed: 400 km/h is outside its range 0 to 320 km/h

        for name in ("EngineSpeed", "CoolantTemperature", "OilPressure"):
            print(rest.read(name))  # EngineSpeed = 3000 rpm, 4 ms ago
        time.sleep(0.5)  # the frames go on at their cycle times; the alive counter counts
    # Leaving: the frames and the request are removed from the device, the simulator stops.


if __name__ == "__main__":
    main()
