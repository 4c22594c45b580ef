"""python3 -m tarvel COMMAND ...: the package's commands (restbus)."""

import argparse
import sys

from . import restbus_command


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m tarvel", description="Commands of the tarvel package.")
    commands = parser.add_subparsers(title="commands", metavar="COMMAND", required=True)
    command_parsers = {"restbus": restbus_command.add_parser(commands)}
    args = parser.parse_args(argv)
    return args.run(args, command_parsers["restbus"])


if __name__ == "__main__":
    sys.exit(main())
