"""Logs a CAN bus to a file with python-can's Notifier and Logger while sending a frame every 100 ms.

Plain python-can: only interface="tarvel" and the channel (the device's serial
port) are Tarvel's; with interface="socketcan" and channel="vcan0" it runs the same.

    python3 log_to_asc.py PORT [FILE] [--seconds S]

PORT is the device's serial port, e.g. /dev/ttyUSB0 or the path tarvel-sim
prints; FILE (default bus.asc) takes any suffix python-can writes: .asc,
.blf, .log, .csv.
"""

import argparse
import time

import can


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("port", help="the device's serial port")
    parser.add_argument("file", nargs="?", default="bus.asc", help="log file (default: bus.asc)")
    parser.add_argument("--seconds", type=float, default=5.0, help="how long to log (default: 5)")
    args = parser.parse_args()

    # The device reports only the identifiers asked for: one filter per identifier.
    filters = [
        {"can_id": 0x123, "can_mask": 0x7FF, "extended": False},
        {"can_id": 0x456, "can_mask": 0x7FF, "extended": False},
    ]
    with can.Bus(interface="tarvel", channel=args.port, can_filters=filters) as bus:
        logger = can.Logger(args.file)
        notifier = can.Notifier(bus, [logger, can.Printer()])
        task = bus.send_periodic(can.Message(arbitration_id=0x456, data=[1, 2, 3, 4], is_extended_id=False), 0.1)
        try:
            time.sleep(args.seconds)
        finally:
            task.stop()
            notifier.stop()  # also stops the logger, which closes the file


if __name__ == "__main__":
    main()
