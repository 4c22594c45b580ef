"""A Python program outside the tree: one session through the installed
package tarvel, run against the simulator. Exit status 0 when it connected,
the device answered a ping and its version query (feature level 100), the
library is the expected version and file (Linux: read from /proc), and the
package and its metadata (python-can's entry point) are the installed ones.

    consumer.py <port> <library version> <library file> <site directory>
"""

import os
import sys
from importlib.metadata import distribution, entry_points

import tarvel


def loaded_library():
    """The library file this process mapped (the package may have named only a soname)."""
    with open("/proc/self/maps") as maps:
        for line in maps:
            if "libTarvelAPI" in line:
                return os.path.realpath(line.split(None, 5)[5].strip())
    return None


def main():
    port, version, library, site = sys.argv[1:5]
    with tarvel.Device(port) as device:
        ping = device.ping()
        level = device.get_version()
    loaded = loaded_library()
    interface = [e.value for e in entry_points(group="can.interface") if e.name == "tarvel"]
    package_site = os.path.dirname(os.path.dirname(os.path.realpath(tarvel.__file__)))
    metadata_site = os.path.realpath(distribution("tarvel").locate_file(""))
    print(f"consumer.py: ping {ping}, device version {level}, library {tarvel.library_version()} "
          f"({loaded}), package {os.path.dirname(tarvel.__file__)}")
    checks = {
        "device version 100": level == 100,
        f"library version {version}": tarvel.library_version() == version,
        f"library file {library}": loaded == os.path.realpath(library),
        f"package and metadata in {site}": package_site == metadata_site == os.path.realpath(site),
        "python-can entry point tarvel.can:TarvelBus": interface == ["tarvel.can:TarvelBus"],
    }
    failed = [what for what, held in checks.items() if not held]
    for what in failed:
        print(f"consumer.py: expected {what}", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
