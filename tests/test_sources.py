"""The files of a repository: which are read, what comes of them, and what the system sees of it."""

from itertools import product
from pathlib import Path, PosixPath

import pytest
from harden.hostile import BEHIND_LOOPS, HARMLESS, HOSTILE, OUTSIDE, UNREADABLE, lay_out
from support import Text, agree, ended, odd, outcome

NEAR = [*map(Path, "repo link-to-repo link-to-link repo/. repo/src/.. repo/up/repo repo/here".split())]
FAR = [*map(Path, "repo/src link-to-src repo/f repo/a/b repo/loop nowhere a\0 \ud800".split(" "))]
PATHS = """src . missing f/more dangling /etc/passwd //etc/passwd /proc/self/environ loop loop/x loop/../f
to-f/ here/""".split() + ["", "src\0/f", "\ud800", Text("to-f"), Path("to-f"), 7, None, b"src"]
# A path that is no plain one, though what it finds is one.
Own = odd(PosixPath, truediv=lambda self, path: Path(str(self)) / path)


def test_reading(both, tmp_path, monkeypatch):
    """Each path below each root, as a text and as the root's own kind of path."""
    files = lay_out(tmp_path)
    monkeypatch.chdir(files.parent)
    named = [path.replace("@", str(files.parent)) for path in HOSTILE + HARMLESS]

    def read(one, root):
        sources = one.CitedSources(files)
        sources.root = root() if callable(root) else one.CitedSources(root).root
        return [outcome(sources._read, path) for path in named + PATHS]

    for root in [*NEAR, *FAR, *map(Path, "/."), files, Own(files), str(files), 7, None]:
        texts = agree(both, lambda one: outcome(read, one, root))
        assert "outside" not in texts or root in map(Path, "/.")
        assert texts.count("inside") > len(HARMLESS) or root not in NEAR
        agree(both, lambda one: read(one, lambda: root))
    read, trusting = (one.CitedSources(files)._read for one in both)
    assert {outcome(read, path)[:12] for path in UNREADABLE} == {"''", "RuntimeError"}
    assert [(read(path), trusting(path)) for path in BEHIND_LOOPS] == [("", OUTSIDE)] * len(BEHIND_LOOPS)


def test_bytes(one, repo):
    """What bytes become, wherever they stand in a file."""
    inserts = [b"\r", b"\r\n", b"\n\r", b"\r\r", b"\x80", "é".encode(), b"\xc3", "𝒳".encode(), b"\xff\r"]
    contents = [b"a" * place + insert + b"b" * (39 - place) for insert, place in product(inserts, range(40))]
    contents += [b"x" * size + b"\r\n" + b"\xe2\x82\xac" * 3 for size in (4095, 4096, 65535, 65536, 131071)]
    contents += [b"\xef\xbb\xbffirst\r\nsecond\rthird", b"a\xffb\xed\xa0\x80\xf0\x9f\x98c\x00", b"a\r\r\nb\r"]
    for at, content in enumerate(contents):
        (repo / str(at)).write_bytes(content)
    return [one.CitedSources(repo)._read(str(at)) for at in range(len(contents))]


START = """
import contextlib, ctypes, fcntl, os, resource, struct, subprocess, sys, threading
from pathlib import Path
from bench.load import load_module, load_plain
module, root, libc = load_module(), Path(sys.argv[1]), ctypes.CDLL(None)
sources, text = module.CitedSources(root), (root / "src/f").read_text()
def descriptors(): return sorted(os.listdir("/proc/self/fd"))
def stays(descriptor): return not fcntl.fcntl(int(descriptor), fcntl.F_GETFD) & fcntl.FD_CLOEXEC
LIMIT = resource.getrlimit(resource.RLIMIT_NOFILE)
"""
SCRIPTS = {
    "no FIFO or device is opened": """
watch = libc.inotify_init1(os.O_NONBLOCK)
for name in ("fifo", "zero", "src/f"):
    assert libc.inotify_add_watch(watch, os.fsencode(root / name), 0x20) > 0
assert sources._read("fifo") == sources._read("zero") == module.CitedSources(Path("/dev"))._read("zero") == ""
try: raise SystemExit(os.read(watch, 4096))
except BlockingIOError: assert sources._read("src/f") == text and os.read(watch, 4096)
""",
    "more in the path class, and libraries that the import does not find": """
from support import fail, fresh, odd
posixpath, _io = map(sys.modules.pop, ("posixpath", "io"))
missing, Path.ls = fresh(module).CitedSources(root), None
for one in (sources, missing):
    assert one._read("to-f") == text and one._read("away") == one._read("fifo") == ""
sys.modules[odd(str, eq=fail, hash=str.__hash__)("posixpath")] = posixpath
with contextlib.suppress(LookupError): sys.exit(repr(fresh(module)))
""",
    "a thread with files of its own": """
def read():
    assert libc.unshare(0x400) == 0
    for number in range(3, 40): libc.close(number)
    apart.set(); opened.wait(10)
    got.extend(map(sources._read, ["src/f", "away"]))
got, apart, opened = [], threading.Event(), threading.Event()
thread = threading.Thread(target=read); thread.start(); apart.wait(10)
kept = [os.open(root.parent / "secret", os.O_RDONLY) for _ in range(40)]
opened.set(); thread.join()
assert got == [text, ""], got
""",
    "descriptors are closed on exec, and closed": """
def check(event, given):
    if event == "open":
        kept = [name for name in descriptors() if int(name) > 2 and os.path.lexists(f"/proc/self/fd/{name}")]
        assert not any(map(stays, kept))
        seen.append(kept)
def poll():
    while not done.is_set():
        for name in descriptors():
            with contextlib.suppress(OSError):
                if os.readlink(f"/proc/self/fd/{name}") == str(root / "big"): polled.append(stays(name))
with open(root / "big", "wb") as big: big.truncate(50_000_000)
before, seen, polled, done = descriptors(), [], [], threading.Event()
sys.addaudithook(check)
for path in ("src/f", "to-f", "away", "gone", "src", "fifo", "zero"): sources._read(path)
assert len(seen) >= 2 and descriptors() == before
thread = threading.Thread(target=poll); thread.start()
while len(polled) < 5: sources._read("big")
done.set(); thread.join()
assert not any(polled) and descriptors() == before
""",
    "no descriptor is left to be had": """
for free in range(8):
    for path in ("src/f", "to-f", "nowhere/../src/f", "src", "away", "gone"):
        expected = sources._read(path)
        resource.setrlimit(resource.RLIMIT_NOFILE, (len(descriptors()) - 1 + free, LIMIT[1]))
        got = sources._read(path)
        resource.setrlimit(resource.RLIMIT_NOFILE, LIMIT)
        assert got == expected if free > 3 else got in (expected, ""), (free, path, got)
        assert free or not got
""",
    "a link into another mount namespace": """
steps = 'mount -t tmpfs none "$0" && echo from outside > "$0/hidden" && echo ready && cat'
with subprocess.Popen(["unshare", "-m", "sh", "-c", steps, root], stdin=-1, stdout=-1, stderr=-1) as child:
    if not child.stdout.readline(): sys.exit("not allowed here")
    hidden = f"/proc/{child.pid}/root{root}/hidden"
    (root / "across").symlink_to(hidden)
    assert sources._read("across") == sources._read(hidden) == "" and "outside" in Path(hidden).read_text()
""",
    "what an audit hook sees": """
plain, seen = load_plain().CitedSources(root), []
sys.addaudithook(lambda event, given: event == "open" and seen.append(given))
for one in (sources, plain):
    for path in ("src/f", "to-f", "gone", "src", "away"): one._read(path)
assert len(seen) == 8 and seen[:4] == seen[4:], seen
""",
    "a sandbox that refuses a system call": """
openat2, allow, eperm = 437, 0x7FFF0000, 0x50001
steps = (0x20, 0, 0, 0), (0x15, 0, 1, openat2), (6, 0, 0, eperm), (6, 0, 0, allow)
code = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *step) for step in steps))
assert libc.prctl(38, 1, 0, 0, 0) == 0
assert libc.prctl(22, 2, struct.pack("HP", len(steps), ctypes.addressof(code)), 0, 0) == 0
assert sources._read("to-f") == text and sources._read("away") == sources._read("fifo") == ""
""",
    "descriptor zero, and files that are longer than they say": """
os.close(0)
assert sources._read("to-f") == text and os.open("/dev/null", os.O_RDONLY) == 0
system, (readable, _writable) = module.CitedSources(Path("/proc")), os.pipe()
assert system._read("self/smaps").splitlines()[-1].startswith("VmFlags:")
assert system._read("self/mem") == system._read(f"self/fd/{readable}") == ""
""",
}


@pytest.mark.parametrize("name", SCRIPTS)
def test_system(tmp_path, name):
    got = ended("-c", START + SCRIPTS[name], lay_out(tmp_path))
    assert got == (0, "", "") or got[2] == "not allowed here\n" and pytest.skip(got[2])
