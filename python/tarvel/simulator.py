"""tarvel.Simulator: the project's simulated device (the program tarvel-sim) on a pseudo-terminal."""

import collections
import os
import shutil
import subprocess
import sys
import threading

from .errors import SimulatorError

ENVIRONMENT_VARIABLE = "TARVEL_SIM"
PROGRAM = "tarvel-sim.exe" if sys.platform == "win32" else "tarvel-sim"
READY = "Simulated device ready on "

_PACKAGE_DIR = os.path.dirname(os.path.abspath(__file__))


def find_program():
    """The path of tarvel-sim: TARVEL_SIM, else next to the package, else the checkout's build tree, else PATH.

    Raises SimulatorError naming every place looked at.
    """
    explicit = os.environ.get(ENVIRONMENT_VARIABLE)
    if explicit:
        if os.path.isfile(explicit) and os.access(explicit, os.X_OK):
            return explicit
        raise SimulatorError(f"{ENVIRONMENT_VARIABLE}={explicit}: no such program")
    tried = []
    places = [("next to the package", os.path.join(_PACKAGE_DIR, PROGRAM))]
    root = os.path.dirname(os.path.dirname(_PACKAGE_DIR))
    if os.path.isfile(os.path.join(root, "include", "TarvelAPI.h")):
        places.append(("the build tree of the checkout", os.path.join(root, "build", "default", "sim", PROGRAM)))
    for description, path in places:
        if os.path.isfile(path) and os.access(path, os.X_OK):
            return path
        tried.append(f"{path} ({description})")
    found = shutil.which(PROGRAM)
    if found:
        return found
    tried.append("PATH")
    raise SimulatorError(
        f"cannot find the simulator program {PROGRAM}; looked at:\n  "
        + "\n  ".join(tried)
        + f"\nBuild it (cmake --build build/default --target tarvel-sim) or set {ENVIRONMENT_VARIABLE}."
    )


def arguments(options):
    """The command-line options of tarvel-sim for keyword arguments.

    ``drop_every=2`` gives ``--drop-every 2``; ``silent=True`` gives
    ``--silent`` (False or None: left out); a list or tuple repeats the option
    (``inject=["0:123#11@10", "1:456#22@20"]``); paths become strings.
    """
    args = []
    for name, value in options.items():
        option = "--" + name.replace("_", "-")
        if value is None or value is False:
            continue
        if value is True:
            args.append(option)
            continue
        for item in value if isinstance(value, (list, tuple)) else [value]:
            args += [option, os.fspath(item) if isinstance(item, os.PathLike) else str(item)]
    return args


class Simulator:
    """The simulated Tarvel device, run as the program tarvel-sim on a pseudo-terminal.

    A context manager: it starts the program, waits until the device is ready
    and gives the terminal's path as ``port``; on leaving it stops the program
    (SIGTERM), which closes the terminal::

        with tarvel.Simulator(inject=["0:123#DEADBEEF@10"], bus_log="bus.log") as sim:
            with can.Bus(interface="tarvel", channel=sim.port, can_filters=[...]) as bus:
                ...

    Every option of tarvel-sim (sim/README.md) is a keyword argument with
    ``_`` for ``-``: ``drop_every=2`` (--drop-every 2), ``delay_ms=5``,
    ``silent=True``, ``inject=[...]`` (repeated), ``bus_log=path`` (every
    frame on the virtual bus in candump's log format), ``link=path``,
    ``eeprom=path``, ``version_status=0xFFFF``, ...

    Args:
        program: the tarvel-sim to run (default: find_program()).
        start_timeout: seconds to wait for the device to be ready.
    """

    def __init__(self, *, program=None, start_timeout=10.0, **options):
        self.program = os.fspath(program) if program else find_program()
        self.options = dict(options)
        self.arguments = arguments(options)
        self.start_timeout = start_timeout
        self.port = None
        self.process = None
        self._output = collections.deque(maxlen=1000)
        self._ready = threading.Event()
        self._readers = []

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, exc_type, exc, tb):
        self.stop()

    def __del__(self):
        try:
            self.stop()
        except Exception:
            pass

    def __repr__(self):
        return f"<tarvel.Simulator {self.port or 'not running'} {' '.join(self.arguments)}>"

    @property
    def running(self):
        """True while the program runs."""
        return self.process is not None and self.process.poll() is None

    def output(self):
        """The program's latest lines of output (standard output and error), oldest first."""
        return list(self._output)

    def start(self):
        """Starts the program and returns the terminal's path once the device is ready."""
        if self.running:
            return self.port
        self._output.clear()
        self._ready.clear()
        self.port = None
        try:
            self.process = subprocess.Popen(
                [self.program, *self.arguments],
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=subprocess.PIPE,
                text=True,
                errors="replace",
            )
        except OSError as error:
            raise SimulatorError(f"cannot run {self.program}: {error}") from error
        # Both streams are read all the time: a full pipe would stall the device.
        self._readers = [
            threading.Thread(target=self._read, args=(stream,), daemon=True)
            for stream in (self.process.stdout, self.process.stderr)
        ]
        for reader in self._readers:
            reader.start()
        if not self._ready.wait(self.start_timeout) or self.port is None:
            try:  # its output ended: it has ended, or is about to be reaped
                status = self.process.wait(1) if self._ready.is_set() else self.process.poll()
            except subprocess.TimeoutExpired:
                status = None
            self.stop()
            said = "\n".join(self._output) or "(nothing)"
            why = f"ended with status {status}" if status is not None else f"was not ready in {self.start_timeout} s"
            raise SimulatorError(f"{self.program} {why}; it said:\n{said}")
        return self.port

    def _read(self, stream):
        for line in stream:
            line = line.rstrip("\n")
            self._output.append(line)
            if self.port is None and line.startswith(READY):
                self.port = line[len(READY) :].strip()
                self._ready.set()
        self._ready.set()  # ended: start() stops waiting

    def stop(self):
        """Stops the program (SIGTERM, then SIGKILL after 5 s) and waits for it. Idempotent."""
        process, self.process = self.process, None
        if process is None:
            return
        if process.poll() is None:
            process.terminate()
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        for reader in self._readers:
            reader.join(5)
        for stream in (process.stdout, process.stderr):
            stream.close()
