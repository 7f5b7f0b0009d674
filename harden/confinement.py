"""Hostile paths, layouts and attackers: nothing from outside the repository is ever read.

Each attack is shown to work on a reading that is not confined; otherwise it would prove nothing.
"""

import ctypes
import itertools
import multiprocessing
import os
import socket
import sys
import time
from collections import Counter
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from tempfile import TemporaryDirectory
from types import ModuleType
from typing import NamedTuple

from bench.load import load_module, load_plain

INSIDE, OUTSIDE = "inside\n", "outside\n"

# Below the repository unless it says otherwise; what starts with "/" is put behind the folder that holds everything.
FILES = {
    INSIDE: "f src/f a/b/f top/dir/f /other/named",
    OUTSIDE: "/f /secret /src/f /tree/f /tree/dir/f /repo-evil/f /repo2/f /rep/f /repo.py /out/f /tree/repo/f",
}
LINKS = {
    "away": "../secret", "away-absolute": "/secret", "chain": "chain1", "chain1": "src/chain2", "src/chain2": "../away",
    "src/away": "../../secret", "tree": "../tree", "tree-absolute": "/tree", "up": "..", "src/up": "../..",
    "root": "//", "evil": "../repo-evil", "twin": "../repo2/f", "back": "../repo/../secret", "double": "..//secret",
    "dot": "./.././secret", "process": "/proc/self/root", "here": ".", "f\n": "../secret", "f (deleted)": "../secret",
    "\udcff": "../secret", "loop": "loop", "loop1": "loop2", "loop2": "loop1", "to-f": "f", "to-src": "src",
    "to-f-absolute": "/repo/f", "out-and-in": "../repo/src", "src/to-a": "../a", "long" * 60: "../secret",
    "/link-to-repo": "repo", "/link-to-link": "link-to-repo", "/link-to-src": "repo/src", "/in-between": "repo",
}  # fmt: skip

# What stands for the folder that holds everything is "@"; in a link, a leading "/" does.
HOSTILE = [
    *"../secret ./../secret .././secret ..//secret src/../../secret src//..//..//secret src/./../../secret".split(),
    *"a/b/../../../secret ../repo/../secret ../repo/src/../../secret ../tree/../secret ../tree/f ../tree/./dir/f".split(),
    *"to-src/../../secret here/../secret here/here/../secret here/./here/../secret src/to-a/../../secret".split(),
    *"@/secret /@/secret //@/secret ///@/secret /.@/secret @/repo/../secret @/./secret @/repo/src/../../secret".split(),
    *"/proc/self/root@/secret /proc/self/cwd/secret /proc/thread-self/root@/secret /dev/fd/../cwd/secret".split(),
    *"/proc/self/../self/root@/secret /proc/self/task/../root@/secret process@/secret root@/secret".split(),
    *"away away-absolute chain chain1 src/chain2 src/away tree/f tree/dir/f tree-absolute/f up/secret".split(),
    *"src/up/secret evil/f twin back double dot here/away here/here/tree/f to-src/away up/repo/away".split(),
    *"../repo-evil/f ../repo2/f ../rep/f ../repo.py up/repo-evil/f ../repo/../repo2/f src/../../repo-evil/f".split(),
    *"loop/../away loop/../tree/f loop1/../chain loop/../up/secret loop/x/../../src/away".split(),
    "f\n", "f (deleted)", "\udcff", "long" * 60, "away\0", "../secret\0.py", "@/secret\0/../repo/f", "src/away\0\0",
    "../" * 40 + "@/secret", "src/../" * 800 + "../secret", "./" * 2500 + "away", "here/" * 30 + "away",
]  # fmt: skip
HARMLESS = [
    *"f ./f src/f src/../f here/f here/here/f to-f to-src/f to-f-absolute out-and-in/f up/repo/f ../repo/f @/repo/f".split(),
    *"src/to-a/b/f nowhere/../f //@/repo/f a/b/../../src/f".split(),
]  # fmt: skip
# What could keep a reader for ever, or is no file; and what no reading can find.
UNREADABLE = [
    *"fifo socket zero random terminal processes src . .. / nowhere f/f dangling loop/f to-fifo".split(),
    *("", "x" * 5000, "x/" * 2500, "/proc/self/environ", "/proc/self/mem", "/dev/stdin"),
]  # fmt: skip
NEAR_ROOTS = ["repo", "link-to-repo", "link-to-link", "repo/.", "repo/src/..", "repo/up/repo", "in-between/../repo"]
FAR_ROOTS = ["repo/src", "link-to-src", "repo/f", "repo/a/b", "nowhere"]


class Layout:
    """A repository with its hostile surroundings."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder.resolve()
        self.repo = self.folder / "repo"
        self.repo.mkdir()
        for text, names in FILES.items():
            for name in names.split():
                self._place(name).write_text(text)
        for name, target in LINKS.items():
            outer = target.startswith("/") and not target.startswith(("/proc", "//"))
            self._place(name).symlink_to(f"{self.folder}{target}" if outer else target)
        os.mkfifo(self.repo / "fifo")
        with socket.socket(socket.AF_UNIX) as endless:
            endless.bind(str(self.repo / "socket"))
        for name in ("zero /dev/zero", "random /dev/urandom", "terminal /dev/tty", "processes /proc/self/environ",
                     "dangling ../nowhere", "to-fifo fifo"):  # fmt: skip
            link, target = name.split()
            (self.repo / link).symlink_to(target)

    def _place(self, name: str) -> Path:
        place = self.folder / name[1:] if name.startswith("/") else self.repo / name
        place.parent.mkdir(parents=True, exist_ok=True)
        return place

    def path(self, name: str) -> str:
        return name.replace("@", str(self.folder))


def read(module: ModuleType, root: Path, path: str) -> str:
    """A file's text as the module reads it; the documented errors of a path that cannot be."""
    try:
        return module.CitedSources(root)._read(path)
    except (RuntimeError, ValueError, OSError) as error:
        return f"{type(error).__name__}"


def unconfined(root: Path, path: str) -> set[str]:
    """What readings that trust the path get: the system's own, and `pathlib`'s."""

    def by_system() -> str:
        with open(os.fsencode(f"{root}/{path}" if path[:1] != "/" else path).split(b"\0")[0]) as file:
            return file.read()

    texts = set()
    for reading in (by_system, lambda: (root / path).resolve().read_text()):
        try:
            texts.add(reading())
        except (OSError, RuntimeError, ValueError):
            pass
    return texts


def check_paths(module: ModuleType, layout: Layout) -> int:
    """Raises AssertionError when a path gives what it must not; gives the number of hostile readings."""
    roots = [layout.folder / name for name in NEAR_ROOTS]
    before = os.getcwd()
    os.chdir(layout.folder)
    try:
        for hostile in HOSTILE:
            path = layout.path(hostile)
            assert OUTSIDE in unconfined(layout.repo, path), f"no attack: {path!a:.200}"
            for root in roots + [layout.folder / name for name in FAR_ROOTS]:
                assert OUTSIDE not in read(module, root, path), f"read from outside {root}: {path!a:.200}"
        for path in map(layout.path, HARMLESS):
            for root in [*roots, Path("repo"), Path("link-to-repo")]:
                assert read(module, root, path) == INSIDE, f"not read in {root}: {path}"
        for path in UNREADABLE:
            assert read(module, layout.repo, path) in ("", "RuntimeError"), f"read: {path!a:.200}"
    finally:
        os.chdir(before)
    return len(HOSTILE) * (len(roots) + len(FAR_ROOTS))


class Attack(NamedTuple):
    """`one` and a link beside it change places all the time, while somebody reads `path`."""

    name: str
    path: str
    one: str
    link: str
    target: str


ATTACKS = [
    Attack("a folder for a link", "top/dir/f", "repo/top/dir", "repo/top/other", "tree"),
    Attack("the file itself", "top/dir/f", "repo/top/dir/f", "repo/top/dir/other", "secret"),
    Attack("the parent renamed", "top/dir/f", "repo/top", "repo/other", "tree"),
    Attack("the root for a link", "f", "repo", "other-root", "tree"),
    Attack("behind a loop", "loop/../top/dir/f", "repo/top/dir", "repo/top/other", "tree"),
]


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


@contextmanager
def attacked(layout: Layout, attack: Attack) -> Iterator[None]:
    one, link = layout.folder / attack.one, layout.folder / attack.link
    link.symlink_to(layout.folder / attack.target)
    swapped = one, link, "renamed" not in attack.name
    attacker = multiprocessing.get_context("fork").Process(target=swap_for_ever, args=swapped, daemon=True)
    attacker.start()
    try:
        yield
    finally:
        attacker.kill()
        attacker.join()


def read_under_attack(reading: Callable[[str], str], attack: Attack, reads: int, awaited: str) -> Counter[str]:
    """How often each text came, in so many reads, and in more where a busy machine lets the awaited one be late."""
    texts: Counter[str] = Counter()
    end = time.monotonic() + 60
    while texts.total() < reads or (not texts[awaited] and time.monotonic() < end):
        try:
            texts[reading(attack.path)] += 1
        except (OSError, RuntimeError) as error:
            texts[type(error).__name__] += 1
    return texts


def withstand(module: ModuleType, plain: ModuleType, attack: Attack, reads: int) -> str:
    """Raises AssertionError when a text from outside is read, or when the plain reading does not give one."""
    with TemporaryDirectory() as folder:
        layout = Layout(Path(folder))
        sources, careless = (one.CitedSources(layout.repo) for one in (module, plain))
        with attacked(layout, attack):
            texts = read_under_attack(sources._read, attack, reads, INSIDE)
            leaks = read_under_attack(careless._read, attack, min(reads, 20_000), OUTSIDE)
    # `pathlib` itself stumbles over a link that goes while it is resolved.
    assert texts.keys() <= {INSIDE, "", "RuntimeError", "FileNotFoundError", "OSError"}, f"read from outside: {attack.name}: {texts}"
    assert texts[INSIDE] and leaks[OUTSIDE], f"no attack: {attack.name}: {texts} {leaks}"
    return f"{attack.name} {texts[INSIDE]} inside (plain {leaks[OUTSIDE]} of {leaks.total()} outside)"


def run(short: bool) -> str:
    module, plain = load_module(), load_plain()
    with TemporaryDirectory() as folder:
        hostile = check_paths(module, Layout(Path(folder)))
    reads = 20_000 if short else 400_000
    attacks = [withstand(module, plain, attack, reads) for attack in ATTACKS]
    return f"{len(HOSTILE)} hostile paths, {hostile} readings; {reads} reads an attacker: " + ", ".join(attacks)


if __name__ == "__main__":
    print(run("--short" in sys.argv))
