"""A repository in hostile surroundings, and paths that would lead out of it."""

import os
import socket
from pathlib import Path

INSIDE, OUTSIDE = "inside\n", "outside\n"

# Below the repository; what starts with "/" lies beside it, and "@" repeats the path of both below it.
FILES = {
    INSIDE: "f src/f a/b/f top/dir/f \udcfe",
    OUTSIDE: "@/repo/f /f /secret /src/f /tree/f /tree/dir/f /repo-evil/f /repo2/f /rep/f /repo.py",
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
../rep/f ../repo.py up/repo-evil/f ../repo/../repo2/f src/../../repo-evil/f
""".split()
HOSTILE += [
    *("f\n", "f (deleted)", "\udcff", "long" * 60, "away\0", "../secret\0.py"),
    *("@/secret\0/../repo/f", "src/away\0\0", "../" * 40 + "@/secret", "src/../" * 800 + "../secret"),
    *("./" * 2500 + "away", "here/" * 30 + "away"),
]
# Behind a loop `pathlib` resolves no more links: the plain form reads what is outside.
BEHIND_LOOPS = "loop/../away loop/../tree/f loop1/../chain loop/../up/secret loop/x/../../src/away".split()
HARMLESS = [
    *"f ./f src/f src/../f here/f here/here/f to-f to-src/f to-f-absolute out-and-in/f up/repo/f".split(),
    *"../repo/f @/repo/f src/to-a/b/f nowhere/../f //@/repo/f a/b/../../src/f \udcfe".split(),
]
# No files, or what could keep a reader for ever.
UNREADABLE = [
    *"fifo to-fifo socket zero terminal environment dangling src . .. / nowhere f/f loop/f".split(),
    *("", "x" * 5000, "x/" * 2500, "/proc/self/environ", "/proc/self/mem", "/dev/stdin"),
]


def lay_out(folder: Path) -> Path:
    """The repository, in a folder that holds nothing yet but what is hostile."""
    repo = folder.resolve() / "repo"

    def place(name: str) -> Path:
        place = (repo.parent if name[0] == "/" else repo) / name.replace("@", str(repo.parent)).lstrip("/")
        place.parent.mkdir(parents=True, exist_ok=True)
        return place

    for text, names in FILES.items():
        for name in names.split():
            place(name).write_text(text)
    for name, target in LINKS.items():
        place(name).symlink_to(target.replace("@", str(repo.parent)))
    os.mkfifo(repo / "fifo")
    with socket.socket(socket.AF_UNIX) as endless:
        endless.bind(str(repo / "socket"))
    return repo
