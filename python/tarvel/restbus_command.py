"""The command ``python3 -m tarvel restbus MODEL.dbc --node NODE ...``: a rest-bus until Ctrl-C or a duration.

tarvel.restbus (and canmatrix) are imported only when the command runs, so that
``python3 -m tarvel --help`` works without them.
"""

import argparse
import contextlib
import os
import signal
import sys
import time

# Exit statuses, as the tarvel tool has them.
OK, FAILED, BAD_ARGUMENTS = 0, 1, 2
TICK = 0.1  # how often the running command looks at the clock

DESCRIPTION = """\
Plays whole nodes of a DBC file on a Tarvel device: every frame the nodes
send, at its cycle time (GenMsgCycleTime; none: sent once and on change),
with the signals' start values (GenSigStartValue), alive counters advanced
by the device. Prints what it set up, runs until Ctrl-C or --duration, and
then removes it all from the device. Without --port it runs on the built-in
simulated device (tarvel-sim)."""


def add_parser(subparsers):
    """Adds the restbus command to the parser of ``python3 -m tarvel``."""
    parser = subparsers.add_parser(
        "restbus",
        help="play nodes of a DBC file on the device",
        description=DESCRIPTION,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("database", metavar="MODEL.dbc", help="the CAN database (DBC file)")
    parser.add_argument(
        "--node", action="append", required=True, metavar="NODE", help="a node to play (repeat for more)"
    )
    parser.add_argument("-p", "--port", help="serial port of the device; default: the built-in simulated device")
    parser.add_argument("--channel", type=int, default=0, choices=range(4), metavar="N", help="CAN channel 0..3")
    parser.add_argument(
        "--set",
        action="append",
        default=[],
        type=assignment,
        metavar="SIGNAL=VALUE",
        help="start value instead of the database's, physical (or a value-table name); repeatable",
    )
    parser.add_argument(
        "--counter", action="append", default=[], metavar="SIGNAL", help="an alive counter (repeatable)"
    )
    patterns = parser.add_mutually_exclusive_group()
    patterns.add_argument(
        "--counter-pattern",
        action="append",
        metavar="PATTERN",
        help="alive counters by name pattern, case ignored (default: '*Counter*' and '*Alive*')",
    )
    patterns.add_argument(
        "--no-counter-patterns", action="store_true", help="only the --counter signals are alive counters"
    )
    parser.add_argument("-d", "--duration", type=seconds, metavar="S", help="run S seconds (default: until Ctrl-C)")
    parser.add_argument(
        "--read-timeout", type=seconds, default=1.0, metavar="S", help="time-out of the line (default 1)"
    )
    parser.add_argument(
        "--bus-log", metavar="FILE", help="built-in device only: write its bus to FILE in candump's log format"
    )
    parser.add_argument(
        "--inject",
        action="append",
        metavar="CH:ID#DATA@MS",
        help="built-in device only: another node's frame every MS ms (as tarvel-sim --inject)",
    )
    parser.set_defaults(run=run)
    return parser


def assignment(text):
    name, equals, value = text.partition("=")
    if not equals or not name.strip() or not value.strip():
        raise argparse.ArgumentTypeError(f"{text!r} is not SIGNAL=VALUE")
    return name.strip(), value.strip()


def seconds(text):
    try:
        value = float(text)
    except ValueError:
        value = -1.0
    if not value >= 0 or value == float("inf"):
        raise argparse.ArgumentTypeError(f"{text} is not a number of seconds >= 0")
    return value


def say(text):
    print(f"restbus: {text}", file=sys.stderr, flush=True)


def run(args, parser):
    """Runs the command; returns the exit status."""
    if args.port is not None and (args.bus_log or args.inject):
        parser.error("--bus-log and --inject belong to the built-in simulated device: leave out --port")
    if args.bus_log == "-":
        parser.error("--bus-log: give a file; standard output is the command's own")
    try:
        from .restbus import RestBus, SignalError
    except ImportError as error:
        say(str(error))
        return FAILED
    import tarvel

    patterns = () if args.no_counter_patterns else args.counter_pattern
    options = dict(channel=args.channel, counters=args.counter, values=dict(args.set))
    if patterns is not None:
        options["counter_patterns"] = patterns
    # Everything the database and the values can refuse is refused before a port is opened.
    try:
        rest = RestBus(None, args.database, args.node, **options)
    except (OSError, ValueError) as error:
        parser.error(str(error))

    with _interruptible():
        try:
            with _device_port(args) as port:
                with tarvel.Device(port, read_timeout=args.read_timeout) as device:
                    device.set_answer_wait(args.read_timeout)
                    rest.device = device
                    return _play(rest, args, port)
        except KeyboardInterrupt:
            return OK
        except (tarvel.TarvelError, tarvel.SimulatorError, SignalError) as error:
            say(str(error))
            return FAILED


def _play(rest, args, port):
    print(f"restbus: {' + '.join(rest.nodes)} of {os.path.basename(args.database)} on {port}, channel {rest.channel}")
    print(rest.table(), flush=True)
    removed = len(rest.frames)
    with rest:
        until = "until Ctrl-C" if args.duration is None else f"for {args.duration:g} s"
        say(f"running {until}")
        deadline = None if args.duration is None else time.monotonic() + args.duration
        try:
            while deadline is None or time.monotonic() < deadline:
                time.sleep(TICK if deadline is None else max(0.0, min(TICK, deadline - time.monotonic())))
        except KeyboardInterrupt:
            pass
    say(f"stopped; {removed} frame{'' if removed == 1 else 's'} removed from the device")
    return OK


@contextlib.contextmanager
def _device_port(args):
    """The port to use: --port, or a built-in simulated device started for the command."""
    if args.port is not None:
        yield args.port
        return
    import tarvel

    with tarvel.Simulator(bus_log=args.bus_log, inject=args.inject) as simulator:
        say(f"no --port: running on the built-in simulated device ({simulator.port})")
        yield simulator.port


class _interruptible:
    """SIGTERM ends the command as Ctrl-C does: everything set up is removed on the way out."""

    def __enter__(self):
        self.previous = None
        try:
            self.previous = signal.signal(signal.SIGTERM, _interrupt)
        except ValueError:  # not the main thread: leave the signal alone
            pass

    def __exit__(self, *exc):
        if self.previous is not None:
            signal.signal(signal.SIGTERM, self.previous)


def _interrupt(signum, frame):
    raise KeyboardInterrupt
