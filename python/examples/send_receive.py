"""Sends a frame, then prints every frame of two identifiers for a while: python-can's send, recv and iteration.

    python3 send_receive.py PORT [--seconds S]

With the simulator, another node's frame to print:
    tarvel-sim --inject 0:18DA00F1#0102030405060708@100
"""

import argparse
import time

import can


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("port", help="the device's serial port, e.g. /dev/ttyUSB0 or the path tarvel-sim prints")
    parser.add_argument("--seconds", type=float, default=2.0, help="how long to print frames (default: 2)")
    args = parser.parse_args()

    filters = [
        {"can_id": 0x123, "can_mask": 0x7FF, "extended": False},
        {"can_id": 0x18DA00F1, "can_mask": 0x1FFFFFFF, "extended": True},
    ]
    with can.Bus(interface="tarvel", channel=args.port, can_filters=filters, read_timeout=0.5) as bus:
        bus.send(can.Message(arbitration_id=0x123, data=b"\xde\xad\xbe\xef", is_extended_id=False))
        print(bus.recv(timeout=1.0))  # the device reports the frames it sends too, when asked for
        end = time.monotonic() + args.seconds
        for msg in bus:  # waits for each frame
            print(msg)
            if time.monotonic() > end:
                break


if __name__ == "__main__":
    main()
