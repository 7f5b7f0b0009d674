"""Every name is read from the module's namespace at the moment of its use, and may hold anything."""

import builtins
import dataclasses
import pathlib
import re
import sys
from itertools import chain
from pathlib import Path, PosixPath
from types import ModuleType, SimpleNamespace

import pytest
from drive import roads
from support import Poison, Text, agree, fail, fresh, odd, odd_key, outcome

READ = """logger re threading ThreadPoolExecutor CITATION_QUESTION_VERSION citation_answer citation_request
_norm source_consented _CITATION_RE citation_key _FENCE_RE _PASSAGE_CHARS _CLAIM_MIN_CHARS _SENTENCE_END_RE
_LIST_MARK_RE CitedClaim CheckedClaim _VERDICT_FINDINGS _DETAIL_CLAIM_CHARS _FAILURE_CHARS CitationCheck
_prose_blocks _claim_text cited_claims cited_lines CitedSources check_citations CitationChecker""".split()
UNREAD = "annotations logging Callable Iterator Mapping dataclass field Path Any CitationAnswer".split()


def driven(one, repo, change):
    """What every road comes to once `change` was made to the module."""
    namespace, prepared = dict(vars(one)), roads(one, repo)
    change(one)
    outcomes = {name: outcome(road) for name, road in prepared}
    vars(one).update(namespace)
    return outcomes


@pytest.mark.parametrize("name", READ)
def test_names_that_are_read(both, repo, name):
    deleted = agree(both, lambda one: driven(one, repo, lambda one: delattr(one, name)))
    assert f"NameError: name {name!r} is not defined" in deleted.replace("\\'", "'")
    assert "Used: " in agree(both, lambda one: driven(one, repo, lambda one: setattr(one, name, Poison())))


def test_other_names(both, repo):
    whole = agree(both, lambda one: driven(one, repo, lambda _one: None))
    for name in UNREAD:
        assert agree(both, lambda one: driven(one, repo, lambda one: delattr(one, name))) == whole


def test_name_error_has_its_name(module):
    del module._PASSAGE_CHARS
    with pytest.raises(NameError) as raised:
        module.cited_lines("text", 1, 1)
    assert raised.value.name == "_PASSAGE_CHARS"


def test_builtins_stand_in(both, repo, monkeypatch):
    for name in ("_norm", "CitedSources"):
        monkeypatch.setattr(builtins, name, lambda value: Text(value), raising=False)
        agree(both, lambda one: driven(one, repo, lambda one: delattr(one, name)))


def test_name_that_compares_in_its_own_way(both):
    def road(one):
        vars(one)[odd_key("_norm")] = vars(one).pop("_norm")
        return one.cited_claims("Reads files [a:L1].")

    assert agree(both, road) == "LookupError: failed"


compiled, joined, record = re.compile, PosixPath.__truediv__, dataclasses.dataclass


class Impostor:
    def __init__(self, pattern):
        self.pattern, self.flags, self.match = pattern, 32, compiled(pattern).match
        self.sub = self.split = lambda *given: list(given)


Impostor.__name__ = "re.Pattern"


def filled(module, names):
    vars(module).update(names)
    return module


LIBRARY = [
    lambda patched: patched.setattr(re, "compile", lambda pattern: compiled(f"{pattern}(?=R)")),
    lambda patched: patched.setattr(re, "compile", lambda pattern: compiled(pattern.encode())),
    lambda patched: patched.setattr(re, "compile", lambda pattern: SimpleNamespace(**dict.fromkeys(
        ("match", "sub", "split"), lambda *given: list(given)))),
    lambda patched: patched.setattr(re, "compile", lambda pattern: (
        patched.delitem(sys.modules, "pathlib", raising=False), compiled(pattern))[1]),
    lambda patched: patched.setattr(re, "sub", lambda *given: given[-1]),
    lambda patched: patched.setattr(re, "compile", lambda pattern: compiled(pattern, re.ASCII)),
    lambda patched: patched.setattr(re, "compile", Impostor),
    lambda patched: patched.setattr(re, "sub", len),
    lambda patched: patched.setitem(sys.modules, "re", filled(ModuleType("re"), {"compile": compiled})),
    lambda patched: patched.setitem(sys.modules, "re", SimpleNamespace(**vars(re))),
    lambda patched: patched.setitem(sys.modules, "re", filled(ModuleType("re"), vars(re))),
    lambda patched: patched.setattr(pathlib, "Path", type("Path", (PosixPath,), {})),
    lambda patched: patched.setattr(pathlib, "PosixPath", type("Meta", (type,), {})("Path", (PosixPath,), {})),
    lambda patched: patched.setattr(pathlib, "Path", print),
    lambda patched: patched.setattr(pathlib, "Path", object),
    lambda patched: patched.delattr(Path, "read_text"),
    lambda patched: patched.setitem(sys.modules, "pathlib", SimpleNamespace(Path=Path)),
    lambda patched: patched.setattr(Path, "read_text", lambda *_given, **_named: "line 1\nread"),
    lambda patched: patched.setattr(Path, "__truediv__", lambda self, path: joined(self, path)),
    lambda patched: patched.setattr(dataclasses, "dataclass", lambda *made, **_named: made[0] if made else record),
]


@pytest.mark.parametrize("change", LIBRARY)
def test_import_with_a_library_that_was_replaced(both, repo, monkeypatch, change):
    with monkeypatch.context() as patched:
        change(patched)
        copies = list(map(fresh, both))
    agree(copies, lambda one: driven(one, repo, lambda _one: None))
    agree(copies, lambda one: one.cited_claims("Reads files.\u00a0Writes files [a:L1].\n\u0663. Reads all files [a:L2]."))


@pytest.mark.parametrize("change", [
    lambda patched: patched.setattr(re, "sub", lambda *given: f"<{given[-1]}>"),
    lambda patched: patched.setattr(re, "__class__", type("Odd", (ModuleType,), {"sub": property(fail)})),
    lambda patched: patched.delattr(re, "sub"),
])
def test_re_replaced_later(both, monkeypatch, change):
    def road(one):
        with monkeypatch.context() as patched:
            change(patched)
            return one._claim_text(" a  b"), one.cited_claims("Reads files [a:L1].")

    agree(both, road)


def test_path_class_with_another_base(both, repo):
    bases = Path.__bases__
    Path.__bases__ = odd(slots=()), *bases
    try:
        agree(both, lambda one: driven(one, repo, lambda _one: None))
    finally:
        Path.__bases__ = bases


class Index(int):
    def __index__(self):
        return fail() if self else 0


class Always(tuple):
    __eq__ = __ne__ = lambda _self, _other: True


class Undecided:
    __bool__ = fail


class TrueOnce:
    def __bool__(self):
        self.asked = not vars(self).get("asked")
        return self.asked


def swapped(self, claim, path, start, end):
    vars(self).update(claim=path, path=claim, start=end, end=start)


def pool(**methods):
    """Makes a pool with these special methods; what the instance has does not count."""
    made = odd(**methods)()
    made.__enter__ = made.__exit__ = print
    return lambda **_named: made


def pattern(result):
    return SimpleNamespace(match=result, sub=result, finditer=result, split=result)


LIMITS = None, 0, -3, 12.5, 13, 10**30, -(10**30), "12", True, Index(0), Index(1), Undecided()
ODD = [fail, int, lambda *_two: TrueOnce(), lambda *_two: Undecided(), lambda *two: [Text(two[-1])]]
PATTERNS = [None, re.compile("x*"), *map(pattern, ODD)]
ITERABLES = [lambda: map(fail, "abc"), lambda: chain("abc", map(fail, "d")), odd(getitem=lambda _self, at: "abc"[at]),
             odd(iter=fail), odd(iter=lambda _self: 7), odd(iter=None)]
VALUES = {
    **dict.fromkeys(["_PASSAGE_CHARS", "_CLAIM_MIN_CHARS", "_DETAIL_CLAIM_CHARS", "_FAILURE_CHARS"], LIMITS),
    **dict.fromkeys(["_FENCE_RE", "_LIST_MARK_RE", "_CITATION_RE", "_SENTENCE_END_RE"], PATTERNS),
    "_VERDICT_FINDINGS": [None, {}, *({"contradicts": made} for made in ("abc", [1, 2], (1, [], {}), (), 5))],
    "_prose_blocks": [lambda _page: None, lambda _page: ["Reads files [a:L1].", 7], lambda _page: fail()],
    "_claim_text": [lambda _text: [0] * 12, lambda _text: 12, lambda _text: Text("Claims again")],
    "_norm": [lambda path: [path], Text, fail, lambda _path: "/etc/passwd", lambda _path: "a\x00"],
    "citation_key": [lambda _match, make=make: make() for make in (*ITERABLES, *(lambda key=key: key for key in (
        ["src/app.py", 1, 2], ("a", 1), ("a", 1, 2, 3), "ab", "abcd", None, ("a", "1", 2), ("a", 1.0, 2))))],
    "citation_request": [lambda *_two, made=made: made for made in ((1,), "abc", None, 7, (((), "a"), 2))],
    "citation_answer": [lambda _result: None, lambda _result: SimpleNamespace(verdict=[]), fail],
    "source_consented": [lambda _client: 0, lambda _client: Undecided(), fail],
    "CITATION_QUESTION_VERSION": [None, []],
    "ThreadPoolExecutor": [pool(), pool(enter=id), pool(exit=print), pool(enter=fail, exit=print),
                           pool(enter=id, exit=fail), pool(enter=lambda _self: 7, exit=lambda *_details: "swallowed"),
                           *(pool(enter=lambda _self, made=made: SimpleNamespace(map=lambda *_two: made), exit=print)
                             for made in ([None], "abcd"))],
    "cited_claims": [lambda _page: None, lambda _page: [None], lambda _page: (), fail],
    "cited_lines": [lambda *_three: None, lambda *_three: b"bytes", lambda *_three: Text("lines"), fail],
    "check_citations": [lambda *_three, **_two: None, lambda *_three, **_two: 7],
    "CitedClaim": [lambda *values: values, lambda *values: Always(values), lambda *_four: float("nan"), None],
    "CitedClaim.__eq__": [lambda *_two: False, lambda *_two: NotImplemented, lambda *_two: Undecided(), fail],
    "CitedClaim.__init__": [swapped, fail], "CitedClaim.__new__": [lambda *_values: "text"],
    "CitedClaim.__getattribute__": [fail], "CitedClaim.__setattr__": [lambda *_three: None],
    "CitedClaim.ref": [7], "CitedSources.passage": [lambda *_two: None, fail],
    "CitationCheck.findings": [print, lambda *_two: [{}], lambda *two: [dict(kind=two, detail=2)]],
    "CitationChecker.enabled": [lambda *_three: None, lambda *_three: 7], "CitationChecker._failed": [True],
    "CitedClaim.__slotnames__": [[]],
}


@pytest.mark.parametrize("name, value", [(name, value) for name in VALUES for value in VALUES[name]])
def test_names_may_hold_anything(both, repo, name, value):
    def change(one):
        *owner, attribute = name.split(".")
        setattr(getattr(one, owner[0]) if owner else one, attribute, value)

    agree(both, lambda one: driven(one, repo, change))
