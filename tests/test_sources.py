"""Cited sources: the lines of a text, and the files of a repository."""

import os
import sys
from contextlib import contextmanager
from itertools import product
from pathlib import Path
from resource import RLIMIT_NOFILE, getrlimit, setrlimit
from types import SimpleNamespace

import pytest
from support import Text, agree, fail, outcome, traced

FOUR = "one\r\ntwo\rthree\nfour"
NINE = "".join(f"line {number}\n" for number in range(1, 10))


@pytest.mark.parametrize(
    "text, start, end, passage",
    [
        (FOUR, 2, 3, "two\nthree"), (FOUR, 1, 99, "one\ntwo\nthree\nfour"), (FOUR, -1, 4, "three\nfour"),
        (FOUR, 0, 4, "four"), (FOUR, 0, 0, ""), (FOUR, 1, -1, "one\ntwo\nthree"), (FOUR, 3, 2, ""),
        (FOUR, 10**30, 10**31, ""), (FOUR, -(10**30), 10**30, "one\ntwo\nthree\nfour"), (FOUR, 1, 1, "one"),
        ("one\n", 1, 5, "one"), ("one\n", 2, 2, ""), ("a\n\nc", 1, 3, "a\n\nc"), ("\n\n", 1, 9, "\n"),
        ("x" * 3000, 1, 1, "x" * 2200), (Text("a\x0bb\x0cc\x1cd\x1de\x1ef"), 1, 99, "a\nb\nc\nd\ne\nf"),
        ("\U0001f600" * 1100 + "\r\n" + "\ud800" * 1200, 1, 2, "\U0001f600" * 1100 + "\n" + "\ud800" * 1099),
        ("f\x85g\u2028h\u2029i\x1fj\x00", 1, 99, "f\ng\nh\ni\x1fj\x00"),
    ],
)
def test_cited_lines(module, text, start, end, passage):
    assert module.cited_lines(text, start, end) == passage


class Index:
    def __init__(self, value):
        self.value = value

    def __index__(self):
        return self.value

    def __sub__(self, other):
        return Index(self.value - other)


class Lines(str):
    def splitlines(self):
        return [Text("own"), "lines"]


def test_cited_lines_of_odd_values(both):
    numbers = [1, True, None, 1.0, "1", 2**64, -(2**64), Index(2), Index("1"), [1]]
    made = [SimpleNamespace(splitlines=lambda lines=lines: lines) for lines in ("ab", ("a", "b"), 7)]
    for text, start, end in product([FOUR, Lines("x"), b"a\nb", None, *made], numbers, numbers):
        agree(both, lambda one: one.cited_lines(text, start, end))


def test_cited_lines_of_every_boundary(both):
    ranges = (1, 9), (2, 3), (0, 9), (-2, -1), (3, 3), (1, 1)
    for one in both:
        one._PASSAGE_CHARS = 4
    for parts in product(["", "ab", "\n", "\r", "\x85", "\u2028é", "\x1f", "\x1e\U0001f600"], repeat=4):
        agree(both, lambda one: [one.cited_lines("".join(parts), *lines) for lines in ranges])


def test_every_line_of_uneven_texts(module):
    lines = ["é" * (number * 7 % 31) for number in range(200)]
    for end, number in product(["\n", "\r\n", "\u2028"], range(1, 200)):
        assert module.cited_lines(end.join(lines), number, number + 1) == "\n".join(lines[number - 1 : number + 1])


@pytest.fixture
def files(repo):
    (repo.parent / "repo-evil").mkdir()
    for outside in (repo.parent / "secret", repo.parent / "repo-evil/secret"):
        outside.write_text("secret\n")
    (repo / "bom").write_bytes(b"\xef\xbb\xbffirst\r\nsecond\rthird")
    (repo / "crs").write_bytes(b"a\r\r\nb\r")
    (repo / "bad").write_bytes(b"a\xffb\xed\xa0\x80\xf0\x9f\x98c\x00")
    (repo / os.fsdecode(b"\xff")).write_text("odd")
    links = {"inside": "src/app.py", "absolute": repo / "src/app.py", "folder": "src", "loop": "loop",
             "up": "..", "away": "../secret", "dangling": "nowhere", "chain": "away", "evil": "../repo-evil"}
    for link, target in links.items():
        (repo / link).symlink_to(target)
    return repo


TEXTS = {
    NINE: ["src/app.py", "./src//app.py", "src/../src/app.py", "nowhere/../src/app.py", "inside", "absolute",
           Text("inside"), "folder/app.py", "folder/../src/app.py", "up/repo/src/app.py"],
    "": ["src", ".", "", "missing", "src/app.py/more", "dangling", "../secret", "away", "chain", "up/secret",
         "evil/secret", "../repo-evil/secret", "/etc/passwd", "//etc/passwd", "/proc/self/environ"],
    "\ufefffirst\nsecond\nthird": ["bom"], "a\n\nb\n": ["crs"], "a\ufffdb" + "\ufffd" * 4 + "c\x00": ["bad"], "odd": ["\udcff"],
    None: ["loop", "loop/x", "src\x00/app.py", "\ud800", "x" * 5000, 7, None, b"src"],
}


@pytest.mark.parametrize("text, path", [(text, path) for text, paths in TEXTS.items() for path in paths])
def test_reading(both, files, text, path):
    read = agree(both, lambda one: one.CitedSources(files)._read(path))
    if text is not None:
        assert read == repr(text) == repr(both[0].CitedSources(files / "src/..")._read(files / path))


def test_roots(module, files, monkeypatch):
    monkeypatch.chdir(files.parent)
    for root in (Path("repo"), Path("repo/folder/.."), Path("repo/up/repo"), files):
        sources = module.CitedSources(root)
        assert vars(sources) == {"root": files, "_texts": {}}
        assert sources._read("inside") == NINE and sources._read("away") == ""
    assert module.CitedSources(Path("nowhere"))._read("secret") == ""


def test_each_file_is_read_once(module, files):
    class Counted(module.CitedSources):
        reads = ()

        def _read(self, path):
            self.reads += (path,)
            return super()._read(path)

    sources = Counted(files)
    for path, start, text in ("src/app.py", 2, "line 2\nline 3"), ("gone", 1, ""), ("./src/app.py", 3, "3"):
        assert sources.passage(module.CitedClaim("claim", path, start, 3)) == text
        (files / "src/app.py").write_text("changed\n\n3")
        assert sources.passage(SimpleNamespace(path=path, start=start, end=3)) == text
    for path, error in (("loop", RuntimeError), ("src\x00", ValueError), ([], TypeError)):
        with pytest.raises(error):
            sources.passage(SimpleNamespace(path=path, start=1, end=1))
    assert list(sources._texts) == ["src/app.py", "gone", "./src/app.py"]
    assert sources.reads == (*sources._texts, "loop", "src\x00")


def test_system_files(module):
    sources, (readable, writable) = module.CitedSources(Path("/proc")), os.pipe()
    # They say that they are empty; one is long, one cannot be read, and one is nowhere in the tree.
    assert sources._read("self/smaps").splitlines()[-1].startswith("VmFlags:")
    assert sources._read("self/mem") == sources._read(f"self/fd/{readable}") == ""
    os.close(readable), os.close(writable)


LIMIT = getrlimit(RLIMIT_NOFILE)


@contextmanager
def at_next_open(change):
    def hook(event, _given):
        if event == "open" and changes:
            changes.pop()()

    changes = [change]
    sys.addaudithook(hook)
    yield
    assert not changes


@pytest.mark.parametrize("change, text", [
    (lambda file: file.write_text("longer\n" * 9), "longer\n" * 9), (lambda file: file.write_text("short"), "short"),
    (lambda file: file.write_text(""), ""), (lambda _file: setrlimit(RLIMIT_NOFILE, (0, LIMIT[1])), ""),
    (lambda _file: os.open("/nowhere", os.O_RDONLY), ""), (lambda _file: fail(), None),
])
def test_file_that_changes_as_it_is_opened(both, files, change, text):
    def road(one):
        sources, file = one.CitedSources(files), files / f"changing-{one.__name__}"
        file.write_bytes(b"as it was\r\n")
        with at_next_open(lambda: change(file)):
            try:
                return sources._read(file.name)
            finally:
                setrlimit(RLIMIT_NOFILE, LIMIT)

    assert agree(both, road) == ("LookupError: failed" if text is None else repr(text))


def test_files_that_are_opened(both, files):
    opened, listening, (readable, writable) = [], True, os.pipe()
    sys.addaudithook(lambda event, given: listening and event == "open" and opened.append(given))
    places = [(files, path) for path in ("inside", "away", "../secret", "src", "gone")]
    places += [(Path("/proc"), f"self/fd/{readable}")]

    def road(one):
        opened.clear()
        return [one.CitedSources(root)._read(path) for root, path in places], opened

    agree(both, road)
    listening = False
    os.close(readable), os.close(writable)


def test_the_descriptor_zero_is_one_as_any(module, files):
    kept = os.dup(0)
    os.close(0)
    try:
        assert module.CitedSources(files)._read("inside") == NINE
        assert os.dup(kept) == 0
    finally:
        os.dup2(kept, 0), os.close(kept)


@pytest.mark.parametrize("root", [Path("a\0"), Path("\ud800"), Path("src"), Path(), "src", 7, None])
def test_roots_of_any_kind(both, files, root):
    root = files if root is None else root

    class Own(type(root)):
        """A root that is no plain path, though what it finds is one."""

        def __truediv__(self, path):
            return files / path

    def read(one):
        sources = one.CitedSources(files)
        sources.root = given
        return sources._read(path)

    for given, path in product((root, Own(root), ), ("src/app.py", "loop")):
        agree(both, read)


@pytest.mark.parametrize("name", ["resolve", "__truediv__", "is_relative_to", "read_text", "open"])
@pytest.mark.parametrize("value", [True, 0, "text", b"any", OSError("a"), BlockingIOError(), ValueError("b")])
def test_path_operations(both, files, monkeypatch, name, value):
    def result(*_given):
        if isinstance(value, Exception):
            raise value
        return value

    def road(one):
        trace, names = [], ("resolve", "__truediv__", "is_relative_to", "read_text")
        methods = {other: traced(trace, other, lambda *given: given[0]) for other in names}
        methods[name] = traced(trace, name, result)
        own, sources = one.CitedSources(SimpleNamespace(resolve=lambda: None)), one.CitedSources(files)
        own.root = type("Own", (), methods)()
        with monkeypatch.context() as patched:
            patched.setattr(Path, name, traced(trace, name, result))
            return outcome(own._read, "a/b"), outcome(sources._read, "src/app.py"), trace

    agree(both, road)
