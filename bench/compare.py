"""The module against its plain Python form on random and hostile input: same results, types and errors.

    python3.11 -m bench.compare --cases 1000000 --seed 7
"""

from __future__ import annotations

import argparse
import sys
import tempfile
import time
from random import Random
from types import ModuleType

from bench.cases import OUTSIDE, Repository, clean_case
from bench.load import load_module, load_plain
from bench.meddle import meddled_case

MEDDLED_SHARE = 0.1


def confined(value: object) -> object:
    """What plain shows, without what it read outside the repository: a path through a loop of links may lead
    it there, since its target is resolved no further than the loop."""
    if isinstance(value, (list, tuple)):
        return type(value)(map(confined, value))
    return "" if isinstance(value, str) and value.strip("\n").strip(OUTSIDE) == "" else value


def compare(plain: ModuleType, module: ModuleType, cases: int, seed: int = 0, first: int = 0) -> None:
    """Raise AssertionError at the first case on which the two differ."""
    with tempfile.TemporaryDirectory() as folder:
        repository = Repository(folder)
        # The meddled ones run last: a class that was once patched may be treated with care for good.
        clean = round(cases * (1 - MEDDLED_SHARE))
        for number in range(first, cases):
            rng = Random(seed * 1_000_003 + number)
            case = clean_case(rng, repository) if number < clean else meddled_case(rng, repository)
            expected, got = case(plain), case(module)
            same = got in (expected, confined(expected))
            assert same, f"case {number} of seed {seed}:\n  plain  {expected!r}\n  module {got!r}"


def main() -> None:
    parser = argparse.ArgumentParser(prog="bench.compare", description=__doc__.splitlines()[0])
    parser.add_argument("--cases", type=int, default=100_000)
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument("--first", type=int, default=0, help="begin at this case (to see a difference again)")
    options = parser.parse_args()
    begin = time.perf_counter()
    try:
        compare(load_plain(), load_module(), options.cases, options.seed, options.first)
    except AssertionError as difference:
        sys.exit(str(difference))
    cases = options.cases - options.first
    print(f"{cases} cases agree ({cases / (time.perf_counter() - begin):.0f} a second)")


if __name__ == "__main__":
    main()
