"""Attackers who swap files and folders while they are read: nothing from outside the repository ever is.

Each attack is shown to work on the plain form; otherwise it would prove nothing.
"""

import ctypes
import itertools
import multiprocessing
import os
import time
from collections import Counter
from pathlib import Path
from tempfile import TemporaryDirectory
from typing import Any

from bench.load import load_module, load_plain
from harden.hostile import INSIDE, OUTSIDE, lay_out


# While a path is read, a name and a link beside it change places all the time: path, name, link, target.
ATTACKS = {
    "a folder for a link": ("top/dir/f", "repo/top/dir", "repo/top/other", "tree"),
    "the file itself": ("top/dir/f", "repo/top/dir/f", "repo/top/dir/other", "secret"),
    "the parent renamed": ("top/dir/f", "repo/top", "repo/other", "tree"),
    "the root for a link": ("f", "repo", "other-root", "tree"),
    "behind a loop": ("loop/../top/dir/f", "repo/top/dir", "repo/top/other", "tree"),
}


def swap_for_ever(one: Path, link: Path, at_once: bool) -> None:
    renameat2, here, exchange = ctypes.CDLL(None).renameat2, -100, 2
    aside = one.with_name("aside")
    for pause in itertools.cycle(range(0, 2000, 17)):
        if at_once:
            renameat2(here, os.fsencode(one), here, os.fsencode(link), exchange)
        else:
            for old, new in ((one, aside), (link, one), (one, link), (aside, one)):
                os.rename(old, new)
        # Now and then both are as they were, or swapped, for a whole reading.
        for _ in range(pause):
            pass


def texts_of(sources: Any, path: str, reads: int, awaited: str) -> Counter[str]:
    """How often each text came, in so many reads, and in more where the awaited one is late."""
    texts = Counter[str]()
    end = time.monotonic() + 60
    while texts.total() < reads or (not texts[awaited] and time.monotonic() < end):
        try:
            texts[sources._read(path)] += 1
        except (OSError, RuntimeError) as error:
            texts[type(error).__name__] += 1
    return texts


def withstand(attack: str, reads: int) -> str:
    """Raises AssertionError when a text from outside is read, or when the plain form does not give one."""
    path, name, link, target = ATTACKS[attack]
    with TemporaryDirectory() as folder:
        repo = lay_out(Path(folder))
        module, plain = (load().CitedSources(repo) for load in (load_module, load_plain))
        (repo.parent / link).symlink_to(repo.parent / target)
        swapped = repo.parent / name, repo.parent / link, "renamed" not in attack
        attacker = multiprocessing.get_context("fork").Process(target=swap_for_ever, args=swapped)
        attacker.start()
        try:
            texts = texts_of(module, path, reads, INSIDE)
            leaks = texts_of(plain, path, min(reads, 20_000), OUTSIDE)
        finally:
            attacker.kill()
            attacker.join()
    # `pathlib` itself stumbles over a link that goes while it is resolved.
    allowed = {INSIDE, "", "RuntimeError", "FileNotFoundError", "OSError"}
    assert texts.keys() <= allowed, f"read from outside: {attack}: {texts}"
    assert texts[INSIDE] and leaks[OUTSIDE], f"no attack: {attack}: {texts} {leaks}"
    return f"{attack} {leaks[OUTSIDE]} of {leaks.total()}"


def run(short: bool) -> str:
    reads = 20_000 if short else 400_000
    attacks = [withstand(attack, reads) for attack in ATTACKS]
    return f"{len(attacks)} attackers of {reads} reads each: 0 from outside; plain form: {', '.join(attacks)}"
