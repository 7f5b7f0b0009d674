"""Hostile paths, layouts and attackers: nothing from outside the repository is ever read.

Each attack is shown to work on a reading that is not confined; otherwise it would prove nothing.
"""

import ctypes
import itertools
import multiprocessing
import os
import socket
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

# Below the repository; what starts with "/" lies beside it.
FILES = {
    INSIDE: "f src/f a/b/f top/dir/f",
    OUTSIDE: "/f /secret /src/f /tree/f /tree/dir/f /repo-evil/f /repo2/f /rep/f /repo.py",
}
# A target with "@" is absolute.
LINKS = {
    "away": "../secret", "away-absolute": "@/secret", "chain": "chain1", "chain1": "src/chain2",
    "src/chain2": "../away", "src/away": "../../secret", "tree": "../tree", "tree-absolute": "@/tree",
    "up": "..", "src/up": "../..", "root": "/", "evil": "../repo-evil", "twin": "../repo2/f",
    "back": "../repo/../secret", "double": "..//secret", "dot": "./.././secret",
    "process": "/proc/self/root", "here": ".", "f\n": "../secret", "f (deleted)": "../secret",
    "\udcff": "../secret", "loop": "loop", "loop1": "loop2", "loop2": "loop1", "to-f": "f", "to-src": "src",
    "to-f-absolute": "@/repo/f", "out-and-in": "../repo/src", "src/to-a": "../a", "long" * 60: "../secret",
    "zero": "/dev/zero", "terminal": "/dev/tty", "environment": "/proc/self/environ",
    "dangling": "../nowhere", "to-fifo": "fifo", "/link-to-repo": "repo", "/link-to-link": "link-to-repo",
    "/link-to-src": "repo/src",
}  # fmt: skip
HOSTILE = """
../secret ./../secret .././secret ..//secret src/../../secret src//..//..//secret src/./../../secret
a/b/../../../secret ../repo/../secret ../repo/src/../../secret ../tree/../secret ../tree/f ../tree/./dir/f
to-src/../../secret here/../secret here/here/../secret here/./here/../secret src/to-a/../../secret @/secret
/@/secret //@/secret ///@/secret /.@/secret @/repo/../secret @/./secret @/repo/src/../../secret
/proc/self/root@/secret /proc/self/cwd/secret /proc/thread-self/root@/secret /dev/fd/../cwd/secret
/proc/self/../self/root@/secret /proc/self/task/../root@/secret process@/secret root@/secret away
away-absolute chain chain1 src/chain2 src/away tree/f tree/dir/f tree-absolute/f up/secret src/up/secret
evil/f twin back double dot here/away here/here/tree/f to-src/away up/repo/away ../repo-evil/f ../repo2/f
../rep/f ../repo.py up/repo-evil/f ../repo/../repo2/f src/../../repo-evil/f loop/../away loop/../tree/f
loop1/../chain loop/../up/secret
""".split()
HOSTILE += [
    *("loop/x/../../src/away", "f\n", "f (deleted)", "\udcff", "long" * 60, "away\0", "../secret\0.py"),
    *("@/secret\0/../repo/f", "src/away\0\0", "../" * 40 + "@/secret", "src/../" * 800 + "../secret"),
    *("./" * 2500 + "away", "here/" * 30 + "away"),
]
HARMLESS = [
    *"f ./f src/f src/../f here/f here/here/f to-f to-src/f to-f-absolute out-and-in/f up/repo/f".split(),
    *"../repo/f @/repo/f src/to-a/b/f nowhere/../f //@/repo/f a/b/../../src/f".split(),
]
# No files, or what could keep a reader for ever.
UNREADABLE = [
    *"fifo to-fifo socket zero terminal environment dangling src . .. / nowhere f/f loop/f".split(),
    *("", "x" * 5000, "x/" * 2500, "/proc/self/environ", "/proc/self/mem", "/dev/stdin"),
]
NEAR_ROOTS = ["repo", "link-to-repo", "link-to-link", "repo/.", "repo/src/..", "repo/up/repo"]
FAR_ROOTS = ["repo/src", "link-to-src", "repo/f", "repo/a/b", "nowhere"]


class Layout:
    """A repository with its hostile surroundings."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder.resolve()
        self.repo = self.folder / "repo"
        for text, names in FILES.items():
            for name in names.split():
                self._place(name).write_text(text)
        for name, target in LINKS.items():
            self._place(name).symlink_to(self.path(target))
        os.mkfifo(self.repo / "fifo")
        with socket.socket(socket.AF_UNIX) as endless:
            endless.bind(str(self.repo / "socket"))

    def _place(self, name: str) -> Path:
        place = self.folder / name[1:] if name.startswith("/") else self.repo / name
        place.parent.mkdir(parents=True, exist_ok=True)
        return place

    def path(self, name: str) -> str:
        """A path with the folder that holds everything in the place of "@"."""
        return name.replace("@", str(self.folder))


def read(module: ModuleType, root: Path, path: str) -> str:
    """A file's text as the module reads it, or the kind of error of a path that cannot be."""
    try:
        return module.CitedSources(root)._read(path)
    except (RuntimeError, ValueError, OSError) as error:
        return type(error).__name__


def read_trustingly(root: Path, path: str) -> set[str]:
    """What readings that trust the path get: the system's own, which sees no NUL, and `pathlib`'s."""
    texts = set()
    for file in (os.fsencode(root / path).split(b"\0")[0], os.fsencode(f"{root}/{path}"), root / path):
        try:
            texts.add((file.resolve() if isinstance(file, Path) else Path(os.fsdecode(file))).read_text())
        except (OSError, RuntimeError, ValueError):
            continue
    return texts


def check_paths(module: ModuleType, layout: Layout) -> int:
    """Raises AssertionError when a path gives what it must not; gives the number of hostile readings."""
    near, far = ([layout.folder / name for name in names] for names in (NEAR_ROOTS, FAR_ROOTS))
    before = os.getcwd()
    os.chdir(layout.folder)
    try:
        for path in map(layout.path, HOSTILE):
            assert OUTSIDE in read_trustingly(layout.repo, path), f"no attack: {path!a:.200}"
            for root in near + far:
                assert OUTSIDE not in read(module, root, path), f"read from outside {root}: {path!a:.200}"
        for path in map(layout.path, HARMLESS):
            for root in [*near, Path("repo"), Path("link-to-repo")]:
                assert read(module, root, path) == INSIDE, f"not read in {root}: {path}"
        for path in UNREADABLE:
            assert read(module, layout.repo, path) in ("", "RuntimeError"), f"read: {path!a:.200}"
    finally:
        os.chdir(before)
    return len(HOSTILE) * len(near + far)


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


def read_under_attack(
    reading: Callable[[str], str], attack: Attack, reads: int, awaited: str
) -> Counter[str]:
    """How often each text came, in so many reads, and in more where the awaited one is late."""
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
    allowed = {INSIDE, "", "RuntimeError", "FileNotFoundError", "OSError"}
    assert texts.keys() <= allowed, f"read from outside: {attack.name}: {texts}"
    assert texts[INSIDE] and leaks[OUTSIDE], f"no attack: {attack.name}: {texts} {leaks}"
    return f"{attack.name} {leaks[OUTSIDE]} of {leaks.total()}"


def run(short: bool) -> str:
    module, plain = load_module(), load_plain()
    with TemporaryDirectory() as folder:
        hostile = check_paths(module, Layout(Path(folder)))
    reads = 20_000 if short else 400_000
    attacks = [withstand(module, plain, attack, reads) for attack in ATTACKS]
    return (
        f"{len(HOSTILE)} hostile paths, {hostile} readings, {len(attacks)} attackers of {reads} reads each:"
        f" 0 from outside; from the plain form: {', '.join(attacks)}"
    )
