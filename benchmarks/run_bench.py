#!/usr/bin/python3
"""Measures the helper against floors and peers, all in one run, and prints one table."""

import argparse
import os
import platform
import sys
import time
from pathlib import Path

_ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(_ROOT / "tests/desktop"))

import measures  # noqa: E402
import network  # noqa: E402
import report  # noqa: E402
from private_world import PrivateWorld  # noqa: E402
from tray_host import TrayHost  # noqa: E402


def main():
    options = _parse_options()
    if not network.enter_private_network() and not network.port_is_free():
        sys.exit(f"bench: port {network.HELPER_PORT} is in use, probably by a helper that is running. Quit it first.")
    chosen = measures.QUICK if options.quick else measures.ALL
    if options.only:
        chosen = [measure for measure in measures.ALL if measure.__name__ in options.only]
    rows = []
    with PrivateWorld() as world, TrayHost() as tray:
        subject = measures.Subject(_ROOT, options.bin, world, tray, options.quick)
        for measure in chosen:
            started = time.monotonic()
            for row in _rows_of(measure, subject):
                rows.append(row)
                print(f"{row.verdict:12} {row.what}{f', against {row.against}' if row.against else ''}", flush=True)
                if row.note:
                    print(f"             {row.note}", flush=True)
            print(f"             [{measure.__name__}: {time.monotonic() - started:.0f} s]", flush=True)
    options.output.mkdir(parents=True, exist_ok=True)
    report.write_json(rows, _machine(), options.output / "bench.json")
    report.write_picture(rows, options.output / "bench.svg")
    print()
    print(report.table(rows))
    print(f"\nAs JSON and as a picture: {options.output}")
    return 0 if all(row.is_met for row in rows) else 1


def _rows_of(measure, subject):
    """A measure that breaks is a goal that is not shown to be met, and the others go on."""
    try:
        yield from measure(subject)
    except Exception as error:
        yield report.Row(measure.__name__, "", 0, note=f"{type(error).__name__}: {error}")


def _machine():
    """Its kind alone, never its name."""
    return {"system": platform.freedesktop_os_release().get("PRETTY_NAME", platform.system()),
            "processor": platform.machine(), "cores": len(os.sched_getaffinity(0)),
            "load": [round(load, 2) for load in os.getloadavg()]}


def _parse_options():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=Path, required=True, help="the folder of the built programs")
    parser.add_argument("--output", type=Path, required=True, help="the folder of the record")
    parser.add_argument("--quick", action="store_true", help="fewer rounds, and nothing that takes minutes")
    parser.add_argument("--only", nargs="+", choices=[measure.__name__ for measure in measures.ALL],
                        help="these measures alone")
    options = parser.parse_args()
    options.bin, options.output = options.bin.resolve(), options.output.resolve()
    return options


if __name__ == "__main__":
    sys.exit(main())
