"""A shortcut is taken only for what it was made for, whatever stands in a name, a class or the library."""

import _testcapi
import dataclasses
import io
import os
import pathlib
import re
import sys
from itertools import chain
from pathlib import Path, PosixPath
from types import ModuleType, SimpleNamespace

import pytest
from support import READ, Text, agree, fail, find, fresh, odd, outcome

from harden.ways import PAGE, PATHS, quiet, repository, ways


class Used(Exception):
    pass


def used(*_given, **_named):
    raise Used


Poison = odd(**dict.fromkeys("getattr call getitem index hash eq lt gt le ge iter bool len".split(), used))


@pytest.fixture(scope="module")
def root(tmp_path_factory):
    made = repository(tmp_path_factory.mktemp("guards") / "repo")
    (made / "crs").write_bytes(b"one\r\ntwo\rthree")
    return made


def driven(one, root, change):
    """What every way comes to once `change` was made to the module."""
    one = quiet(one)
    table = ways(one, root, one)
    change(one)
    return {name: outcome(way) for name, way in table.items() if ", slowly" not in name and name != "import"}


@pytest.mark.parametrize("name", READ)
def test_names_are_read_when_they_are_used(both, root, name):
    agree(both, lambda one: driven(one, root, lambda one: setattr(one, name, Poison())))
    agree(both, lambda one: driven(one, root, lambda one: delattr(one, name)))


class Index(int):
    def __index__(self):
        return fail() if self else 0


class Always(tuple):
    __eq__ = __ne__ = lambda _self, _other: True


class Bool:
    """Is true or false as often as it is told to, and then fails."""

    def __init__(self, *answers):
        self.answers = list(answers)

    def __bool__(self):
        return self.answers.pop(0) if self.answers else fail()


def swapped(self, claim, path, start, end):
    vars(self).update(claim=path, path=claim, start=end, end=start)


def pattern(result):
    return SimpleNamespace(match=result, sub=result, finditer=result, split=result)


def entered(**methods):
    return lambda **_named: odd(**methods)()


def always(*values):
    return [lambda *_given, value=value, **_named: value for value in values]


LIMITS = None, 0, -3, 12.5, 13, 10**30, -(10**30), "12", True, Index(0), Index(1), Bool()
ODD = [fail, int, lambda *_two: Bool(True), lambda *_two: Bool(), lambda *two: [Text(two[-1])]]
PATTERNS = [None, re.compile("x*"), re.compile(r"\w+", re.ASCII), *map(pattern, ODD)]
KEYS = [["src/app.py", 1, 2], ("a", -(9**99), 2), ("a", 1), ("a", 1, 2, 3), None, ("a", "1", 2), ("a", 1.0, 2), ("a", True, 2),
        odd(getitem=lambda _self, at: "abc"[at])(), odd(iter=lambda _self: chain("abc", map(fail, "d")))()]
ANSWERS = [SimpleNamespace(verdict=verdict) for verdict in ([], None, Text("contradicts"))]
VALUES = {
    **dict.fromkeys(["_PASSAGE_CHARS", "_CLAIM_MIN_CHARS", "_DETAIL_CLAIM_CHARS", "_FAILURE_CHARS"], LIMITS),
    **dict.fromkeys(["_FENCE_RE", "_LIST_MARK_RE", "_CITATION_RE", "_SENTENCE_END_RE"], PATTERNS),
    "_LIST_MARK_RE": [*PATTERNS, pattern(lambda *_given: f"By {sys._getframe(1).f_code.co_name} [a:L1].")],
    "_VERDICT_FINDINGS": [None, {}, *({"contradicts": made} for made in ("abc", [1, 2], (1, [], {}), 5))],
    "_prose_blocks": always(None, ["Reads files [a:L1].", 7]), "citation_key": always(*KEYS), "logger": [len],
    "_norm": [lambda path: [path], Text, fail, Path, *always("/etc/passwd", "a\0")], "threading": [len],
    "_claim_text": always([0] * 12, 12, Text("a" * 12)), "source_consented": [lambda _client: Bool(True)],
    "citation_request": always((1,), "abc", None, (((), "a"), 2)), "check_citations": always(None, 7),
    "citation_answer": always(None, 0, *ANSWERS), "CitationChecker._failed": [True],
    "CitedClaim": [lambda *values: values, lambda *values: Always(values), *always(float("nan")), None],
    "CitedClaim.__eq__": [*always(False, True, NotImplemented, Bool()), lambda *_two: Bool(True)],
    "CitedClaim.__init__": [swapped, fail], "CitedClaim.__new__": always("text"), "CitedClaim.ref": [7],
    "CitedClaim.__getattribute__": [fail], "CitedClaim.__setattr__": always(None),
    "CitedClaim.claim": [property(lambda _self: "new")],
    "CitedClaim.start": [property(lambda _self: 7, lambda *_two: None)], "CitedClaim.__hash__": [fail],
    "CheckedClaim.__setattr__": [fail], "CheckedClaim.answer": [property(always(ANSWERS[2])[0])],
    "CitedSources.passage": [fail, *always(None)], "CitedSources._read": always("own\ntwo", b"a"),
    "CitationCheck.findings": [print, *always([{}], [dict(kind=1, detail=2)])],
    "CitationChecker.enabled": always(None, 7),
    "re": [SimpleNamespace(sub=lambda *given: f"<{given[-1]}>"), ModuleType("re")],
    "ThreadPoolExecutor": [entered(), entered(enter=print), entered(enter=fail, exit=print), fail],
}


@pytest.mark.parametrize("name, value", [(name, value) for name in VALUES for value in VALUES[name]])
def test_names_may_hold_anything(both, root, name, value):
    def change(one):
        *owner, attribute = name.split(".")
        setattr(getattr(one, owner[0]) if owner else one, attribute, value)

    agree(both, lambda one: driven(one, root, change))


@pytest.mark.parametrize("qualname, parameters, value", [
    ("_claim_text", "sentence", "f'{sentence} own'"), ("_prose_blocks", "markdown", "markdown.split('. ')"),
    ("cited_lines", "text, start, end", "f'own {start}'"), ("CitedSources.passage", "self, claim", "'own'"),
    ("CitedClaim.__init__", "self, claim, path, start, end", "vars(self).update(path=path)"),
    ("CitedClaim.__eq__", "self, other", "True"),
    ("CitedSources._read", "self, path", "'own lines'"), ("CitationCheck.findings", "self, page_id", "[]"),
    ("check_citations", "client, markdown, repo_root, *, max_questions, budget", "{'own': markdown}")])
def test_code_that_was_replaced(both, root, qualname, parameters, value):
    """What a function's code becomes counts, though the function is the same object."""

    def change(one):
        function, namespace = find(one, qualname), {}
        cells = ", ".join(function.__code__.co_freevars)
        other = f"def other({parameters}):\n  (lambda: ({cells}))\n  return {value}"
        exec(f"def outer({cells}):\n {other.replace(chr(10), chr(10) + ' ')}\n return other", namespace)
        function.__code__ = namespace["outer"](*[None] * len(function.__code__.co_freevars)).__code__

    assert agree(both, lambda one: driven(one, root, change)) != repr(driven(both[1], root, id))


compiled, joined, record, opened = re.compile, PosixPath.__truediv__, dataclasses.dataclass, io.open


def module_like(names):
    vars(made := ModuleType("re")).update(names)
    return made


def fake(file, *how, **named):
    """Reads a file that is there in memory only, as a host's tests may have it."""
    return io.StringIO("fake\nlines") if str(file).endswith("app.py") else opened(file, *how, **named)


MODULES = sys.modules
LIBRARY = [
    (re, "compile", lambda pattern: compiled(pattern.encode())), (re, "sub", len),
    (re, "compile", lambda pattern: compiled(f"{pattern}(?=R)")), (re, "sub", lambda *given: given[-1]),
    (re, "compile", lambda pattern: compiled(pattern, re.ASCII)),
    (re, "__class__", type("Re", (ModuleType,), {"sub": property(fail)})),
    (pathlib, "Path", type("Path", (PosixPath,), {})), (pathlib, "Path", object), (Path, "ls", fail),
    (os.path, "realpath", lambda path, **_named: str(path).replace("app", "no")), (os.path, "realpath", fail),
    (Path, "resolve", lambda self, **_named: self / "src"), (Path, "open", fail), (Path, "__fspath__", fail),
    (Path, "read_text", lambda *_given, **_named: "line 1\nread"), (PosixPath, "read_text", fail),
    (Path, "is_relative_to", lambda *_two: True), (pathlib.PurePath, "is_relative_to", fail), (Path, "__new__", fail),
    (Path, "__truediv__", lambda self, _path: joined(self, "src/app.py")), (Path, "__str__", fail),
    (MODULES, "re", module_like(vars(re))), (re, "_compile", fail), (os, "lstat", fail), (os, "readlink", fail),
    (io, "open", fake), (io, "open", fail), (io, "text_encoding", fail), (os, "stat", fail), (Path, "stat", fail),
    (pathlib, "io", SimpleNamespace(open=fake, text_encoding=str)), (pathlib, "os", Poison()), (os, "path", Poison()),
    (re.sub, "__defaults__", (1, 0)), (Path.open, "__defaults__", ("r", -1, None, None, "")), (Path, "read_text", property(lambda _self: opened("/gone"))),
    (dataclasses, "dataclass", lambda *made, **_named: made[0] if made else record),
]


# What is patched in place before the import counts as the library's own.
CHANGES = [(*change, when) for change in LIBRARY for when in ("before", "after", "throughout")
           if change[1] != "__defaults__" or when == "after"]


@pytest.mark.parametrize("owner, name, value, when", CHANGES, ids=[f"{one[1]}-{one[3]}" for one in CHANGES])
def test_library_that_was_replaced(both, root, monkeypatch, owner, name, value, when):
    def steps(one):
        with monkeypatch.context() as patched:
            copy = fresh(one) if when == "after" else None
            patch = patched.setitem if owner is MODULES else patched.setattr
            patch(owner, name, value, raising=False) if name == "ls" else patch(owner, name, value)
            copy = copy or fresh(one)
            if when == "before":
                patched.undo()
            sources = copy.CitedSources.__new__(copy.CitedSources)
            sources.root = root
            yield [outcome(sources._read, path) for path in (*PATHS[:3], "near", "crs")]
            yield outcome(copy.CitedSources, root)
            yield outcome(copy.cited_claims, PAGE + "\n\u0663. Reads.\u00a0Writes files [a:L1].")
            yield outcome(copy._claim_text, " a  , b  .  c")

    agree(both, lambda one: list(steps(one)))


def test_paths_with_methods_of_their_own(both, root):
    """A path that is resolved may have reading methods that its class does not have."""

    class Resolved(type(Path())):
        def resolve(self, **named):
            made = super().resolve(**named)
            vars(made).update(own)
            return made

    for own in ({}, {"read_text": lambda **_named: "own"}, {"open": lambda *_given: io.StringIO("own")},
                {"read_text": (root / "src/app.py").read_text}):
        agree(both, lambda one: [outcome(one.CitedSources(Resolved(root))._read, path) for path in PATHS])


@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_texts_of_an_old_kind(both):
    """A text that is not ready yet, as the old interface to texts makes it."""
    for text in ("# Heads\n- Reads files [a:L1].", "```\nx", "a\rb\nc", "  Reads files [a:L2] , "):
        made = _testcapi.unicode_legacy_string
        agree(both, lambda one: [outcome(lambda: list(call(made(text)))) for call in (
            one.cited_claims, one._prose_blocks, one._claim_text, lambda text: one.cited_lines(text, 1, 2))])
