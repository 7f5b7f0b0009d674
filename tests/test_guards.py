"""A shortcut is taken only for what it was made for, whatever stands in a name, a class or the library."""

import dataclasses
import io
import re
import sys
from _testcapi import unicode_legacy_string
from itertools import chain, count, repeat
from pathlib import Path, PosixPath
from types import ModuleType, SimpleNamespace
from unittest.mock import Mock

import pytest
from support import READ, Text, agree, fail, find, fresh, odd, outcome

from harden.ways import PAGE, PATHS, quiet, ways

Poison = odd(**dict.fromkeys("getattr call getitem index hash eq lt gt le ge iter bool len".split(), fail))


def driven(one, repo, change):
    """What every way comes to once `change` was made to the module."""
    one = quiet(one)
    table = ways(one, repo, one)
    change(one)
    return {name: outcome(way) for name, way in table.items() if ", slowly" not in name and name != "import"}


@pytest.mark.parametrize("name", READ)
def test_names_are_read_when_they_are_used(both, repo, name):
    agree(both, lambda one: driven(one, repo, lambda one: setattr(one, name, Poison())))
    agree(both, lambda one: driven(one, repo, lambda one: delattr(one, name)))


def truth(*answers):
    """Is true or false as often as it is told to, and then fails."""
    return odd(bool=Mock(side_effect=chain(answers, repeat(LookupError))))()


def pattern(result):
    return SimpleNamespace(match=result, sub=result, finditer=result, split=result)


def numbered(*_given, **_named):
    """Fails with an error whose name and text say which was asked for first."""
    number = count()
    kind = type("Kind", (type,), {"__name__": property(lambda _self: f"Error {next(number)}")})
    raise kind("Error", (Exception,), {"__format__": lambda *_two: f"text {next(number)}"})


def always(*values):
    return [lambda *_given, value=value, **_named: value for value in values]


Index = odd(int, index=lambda number: fail() if number else 0)
LIMITS = None, 0, -3, 12.5, 13, 10**30, -(10**30), "12", True, Index(0), Index(1), truth()
ODD = [fail, int, lambda *_two: truth(True), lambda *_two: truth(), lambda *two: [Text(two[-1])]]
PATTERNS = [None, re.compile("x*"), re.compile(r"\w+", re.ASCII), *map(pattern, ODD)]
KEYS = [["src/app.py", 1, 2], ("a", -(9**99), 2), ("a", 1), ("a", 1, 2, 3), None, ("a", "1", 2),
        ("a", 1.0, 2), ("a", True, 2), odd(getitem=lambda _self, at: "abc"[at])(),
        odd(iter=lambda _self: chain("abc", map(fail, "d")))()]
Always = odd(tuple, eq=lambda *_two: True, ne=lambda *_two: True)
ANSWERS = [SimpleNamespace(verdict=verdict) for verdict in ([], None, Text("contradicts"))]
VALUES = {
    **dict.fromkeys(["_PASSAGE_CHARS", "_CLAIM_MIN_CHARS", "_DETAIL_CLAIM_CHARS", "_FAILURE_CHARS"], LIMITS),
    **dict.fromkeys(["_FENCE_RE", "_LIST_MARK_RE", "_CITATION_RE", "_SENTENCE_END_RE"], PATTERNS),
    "_LIST_MARK_RE": [*PATTERNS, pattern(lambda *_given: f"By {sys._getframe(1).f_code.co_name} [a:L1].")],
    "_VERDICT_FINDINGS": [None, {}, *({"contradicts": made} for made in ("abc", [1, 2], (1, [], {}), 5))],
    "_prose_blocks": always(None, ["Reads files [a:L1].", 7]), "citation_key": always(*KEYS), "logger": [len],
    "_norm": [lambda path: [path], Text, fail, Path, *always("/etc/passwd", "a\0")], "threading": [len],
    "_claim_text": always([0] * 12, 12, Text("a" * 12)), "source_consented": [lambda _client: truth(True)],
    "citation_request": always((1,), "abc", None, (((), "a"), 2)), "CitedClaim.ref": [7],
    "citation_answer": always(None, 0, *ANSWERS), "CitationChecker._failed": [True],
    "CitedClaim": [lambda *values: values, lambda *values: Always(values), *always(float("nan")), None],
    "CitedClaim.__eq__": [*always(False, True, NotImplemented, truth()), lambda *_two: truth(True)],
    "CitedClaim.__init__": [
        fail, lambda self, *four: vars(self).update(zip(("path", "claim", "end", "start"), four))],
    "CitedClaim.__hash__": [fail], "CitedClaim.__getattribute__": [fail], "CheckedClaim.__setattr__": [fail],
    "CitedClaim.__new__": always("text"), "CitedClaim.claim": [property(lambda _self: "new")],
    "CitedClaim.__setattr__": always(None), "CheckedClaim.answer": [property(always(ANSWERS[2])[0])],
    "CitedClaim.start": [property(lambda _self: 7, lambda *_two: None)],
    # It is read once to join a path, and once to test it.
    "CitedSources.root": [property(
        lambda one: one.roots.pop(), lambda one, root: vars(one).update(roots=[root / "none", root] * 9))],
    "CitedSources.passage": [fail, *always(None)], "CitedSources._read": always("own\ntwo", b"a"),
    "CitationCheck.findings": [print, *always([{}], [dict(kind=1, detail=2)])],
    "CitationChecker.enabled": always(None, 7), "check_citations": [numbered, *always(None, 7)],
    "re": [SimpleNamespace(sub=lambda *given: f"<{given[-1]}>"), ModuleType("re")],
    "ThreadPoolExecutor": [fail, *always(odd()(), odd(enter=print)(), odd(enter=fail, exit=print)())],
}


@pytest.mark.parametrize("name, value", [(name, value) for name in VALUES for value in VALUES[name]])
def test_names_may_hold_anything(one, repo, name, value):
    def change(one):
        *owner, attribute = name.split(".")
        setattr(getattr(one, owner[0]) if owner else one, attribute, value)

    return driven(one, repo, change)


@pytest.mark.parametrize("qualname, replacement", [
    ("_claim_text", lambda sentence: f"{sentence} own"), ("CitationCheck.findings", lambda self, page_id: []),
    ("_prose_blocks", lambda markdown: markdown.split(". ")), ("CitedClaim.__eq__", lambda self, other: True),
    ("CitedSources.passage", lambda self, claim: "own"), ("CitedSources._read", lambda self, path: "own"),
    ("cited_lines", lambda text, start, end: f"own {start}"),
    ("CitedClaim.__init__", lambda self, claim, path, start, end: vars(self).update(path=path)),
    ("check_citations", lambda client, markdown, repo_root, *, max_questions, budget: {"own": markdown})])
def test_code_that_was_replaced(both, repo, qualname, replacement):
    """What a function's code becomes counts, though the function is the same object."""

    def change(one):
        function = find(one, qualname)
        function.__code__ = replacement.__code__.replace(co_freevars=function.__code__.co_freevars)

    assert agree(both, lambda one: driven(one, repo, change)) != repr(driven(both[1], repo, id))


compiled, joined, record, opened = re.compile, PosixPath.__truediv__, dataclasses.dataclass, io.open


def fake(file, *how, **named):
    """Reads a file that is there in memory only, as a host's tests may have it."""
    return io.StringIO("fake\nlines") if str(file).endswith("app.py") else opened(file, *how, **named)


twin = ModuleType("re")
vars(twin).update(vars(re))
LIBRARY = {
    "re.compile": [lambda pattern: compiled(pattern.encode()), lambda pattern: compiled(f"{pattern}(?=R)"),
                   lambda pattern: compiled(pattern, re.ASCII)],
    "re.sub": [len, lambda *given: given[-1]], "re.sub.__defaults__": [(1, 0)], "re": [twin],
    "re.__class__": [type("Re", (ModuleType,), {"sub": property(fail)})],
    "io.open": [fake, fail], "os.path": [Poison()], "pathlib.os": [Poison()],
    "os.path.realpath": [lambda path, **_named: str(path).replace("app", "no"), fail],
    "pathlib.io": [SimpleNamespace(open=fake, text_encoding=str)],
    "pathlib.Path": [type("Path", (PosixPath,), {}), object],
    "pathlib.Path.resolve": [lambda self, **_named: self / "src"],
    "pathlib.Path.is_relative_to": [lambda *_two: True],
    "pathlib.Path.__truediv__": [lambda self, _path: joined(self, "src/app.py")],
    "pathlib.Path.read_text": [
        lambda *_given, **_named: "line 1\nread", property(lambda _self: opened("/gone"))],
    "pathlib.Path.open.__defaults__": [("r", -1, None, None, "")],
    "dataclasses.dataclass": [lambda *made, **_named: made[0] if made else record],
    **dict.fromkeys("""re._compile io.text_encoding os.lstat os.stat os.readlink pathlib.Path.ls
        pathlib.Path.open pathlib.Path.stat pathlib.Path.__fspath__ pathlib.Path.__new__ pathlib.Path.__str__
        pathlib.PurePath.is_relative_to pathlib.PosixPath.read_text""".split(), [fail]),
}
# What is patched in place before the import counts as the library's own.
CHANGES = [(name, value, when) for name in LIBRARY for value in LIBRARY[name]
           for when in ("before", "after", "throughout")
           if when == "after" or "__defaults__" not in name]


@pytest.mark.parametrize("name, value, when", CHANGES, ids=[f"{one[0]}-{one[2]}" for one in CHANGES])
def test_library_that_was_replaced(both, repo, monkeypatch, name, value, when):
    def seen_of(one):
        with monkeypatch.context() as patched:
            copy = fresh(one) if when == "after" else None
            if name == "re":
                patched.setitem(sys.modules, name, value)
            else:
                patched.setattr(name, value, raising=name != "pathlib.Path.ls")
            copy = copy or fresh(one)
            if when == "before":
                patched.undo()
            sources = copy.CitedSources.__new__(copy.CitedSources)
            sources.root, page = repo, PAGE + "\n\u0663. Reads.\u00a0Writes files [a:L1]."
            seen = [outcome(sources._read, path) for path in (*PATHS[:3], "near", "crs")]
            seen += outcome(copy.CitedSources, repo), outcome(copy.cited_claims, page)
            return [*seen, outcome(copy._claim_text, " a  , b  .  c")]

    agree(both, seen_of)


def test_paths_with_methods_of_their_own(both, repo):
    """A path that is resolved may have reading methods that its class does not have."""

    class Resolved(type(Path())):
        def resolve(self, **named):
            made = super().resolve(**named)
            vars(made).update(own)
            return made

    for own in ({}, {"read_text": lambda **_named: "own"}, {"open": lambda *_given: io.StringIO("own")},
                {"read_text": (repo / "src/app.py").read_text}):
        agree(both, lambda one: [outcome(one.CitedSources(Resolved(repo))._read, path) for path in PATHS])


@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_texts_of_an_old_kind(both):
    """A text that is not ready yet, as the old interface to texts makes it."""
    for text in ("# Heads\n- Reads files [a:L1].", "```\nx", "a\rb\nc", "  Reads files [a:L2] , "):
        agree(both, lambda one: [outcome(lambda: list(call(unicode_legacy_string(text)))) for call in (
            one.cited_claims, one._prose_blocks, one._claim_text, lambda text: one.cited_lines(text, 1, 2))])
