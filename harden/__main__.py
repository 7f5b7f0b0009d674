"""Runs the rows one after the other: scripts/harden [--short] [ROW...]"""

import argparse
import importlib
import sys
import time

from harden.builds import Failed

# Each row is a function that gives its figures, and raises Failed or AssertionError when it does not hold.
ROWS = {
    "confinement": "confinement.run", "allocations": "allocations.run", "valgrind": "memory.valgrind",
    "asan": "sanitizers.asan", "tsan": "sanitizers.tsan", "random": "random_input.run",
    "static": "static.run",
}  # fmt: skip

parser = argparse.ArgumentParser(prog="scripts/harden", description=__doc__.splitlines()[0])
parser.add_argument("--short", action="store_true", help="less of everything: what fits into a few minutes")
parser.add_argument("rows", metavar="ROW", nargs="*", help=f"one of {', '.join(ROWS)}; all without one")
options = parser.parse_args()
if unknown := set(options.rows) - ROWS.keys():
    parser.error(f"no such row: {', '.join(sorted(unknown))}")
failed = 0
for name in options.rows or ROWS:
    begin, verdict = time.monotonic(), "holds"
    try:
        module, function = ROWS[name].split(".")
        figures = getattr(importlib.import_module(f"harden.{module}"), function)(options.short)
    except (Failed, AssertionError) as failure:
        verdict, figures, failed = "FAILS", str(failure), 1
    print(f"{name:<12} {verdict}  {time.monotonic() - begin:5.0f} s  {figures}", flush=True)
sys.exit(failed)
