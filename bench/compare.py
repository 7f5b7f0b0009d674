"""The module against its plain Python form on random and hostile input: same results, types and errors.

    python3.11 -m bench.compare --cases 1000000 --seed 7
"""

from __future__ import annotations

import argparse
import sys
import time
from random import Random
from types import ModuleType

from bench.cases import random_case
from bench.load import load_module, load_plain


def compare(plain: ModuleType, module: ModuleType, cases: int, seed: int) -> None:
    """Raise AssertionError at the first case on which the two differ."""
    for number in range(cases):
        case = random_case(Random(seed * 1_000_003 + number))
        expected, got = case(plain), case(module)
        assert got == expected, f"case {number} of seed {seed}:\n  plain  {expected!r}\n  module {got!r}"


if __name__ == "__main__":
    parser = argparse.ArgumentParser(prog="bench.compare", description=__doc__.splitlines()[0])
    parser.add_argument("--cases", type=int, default=100_000)
    parser.add_argument("--seed", type=int, default=0)
    options = parser.parse_args()
    begin = time.perf_counter()
    try:
        compare(load_plain(), load_module(), options.cases, options.seed)
    except AssertionError as difference:
        sys.exit(str(difference))
    print(f"{options.cases} cases agree ({options.cases / (time.perf_counter() - begin):.0f} a second)")
