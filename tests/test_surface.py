"""What a host and its tools see of the module: its names, its functions, and how an import comes about."""

import builtins
import gc
import inspect
import pydoc
import re
import subprocess
import sys
import types
import typing
import weakref
from traceback import walk_tb
from types import SimpleNamespace

import pytest
from support import CLASSES, FUNCTIONS, Client, agree, blank, ended, fail, find, outcome

from harden.ways import PAGE, quiet, ways

LOOKS = [inspect.signature, inspect.isgeneratorfunction, typing.get_type_hints, repr, type]
LOOKS += [lambda kept, name=name: getattr(kept, name, "none") for name in """__name__ __qualname__ __module__
    __doc__ __annotations__ __defaults__ __kwdefaults__ __bases__ __dataclass_params__ __dataclass_fields__
    __match_args__ __hash__""".split()]


def own(names):
    return {name: value for name, value in vars(names).items() if not name.startswith("__")}


def test_names(both):
    agree(both, own)
    agree(both, lambda one: [[look(find(one, name)) for look in LOOKS] for name in FUNCTIONS + CLASSES])
    agree(both, lambda one: [[sorted(vars(find(one, name))), list(own(find(one, name)))] for name in CLASSES])
    agree(both, lambda one: pydoc.plain(pydoc.render_doc(one)).replace("_plain", "").split("\nFILE\n")[0])
    agree(both, lambda one: [key for key in vars(one) if key in ("__all__", "__builtins__", "annotations")])
    symbols = subprocess.check_output(["nm", "-D", "--defined-only", both[0].__file__], text=True)
    assert [line.split()[-1] for line in symbols.splitlines()] == ["PyInit_citation_check"]


@pytest.mark.parametrize("qualname", FUNCTIONS)
def test_calls(both, qualname):
    """Calls that fit the signature and calls that do not fail as those of a Python function, which it is."""
    function = find(both[0], qualname)
    assert type(function) is types.FunctionType and function.__globals__ is vars(both[0])
    parameters = [*inspect.signature(function).parameters, "bogus"]
    for count in range(len(parameters) + 1):
        for named in ({}, {"bogus": 1}, {parameters[0]: 1}, dict.fromkeys(parameters[count:-1], 7)):
            agree(both, lambda one: outcome(find(one, qualname), *[None] * count, **named))


@pytest.mark.parametrize("defaults", [None, ({}, "root", None), (None, {}, "root", 9), (0, None, {}, 0, 0)])
def test_defaults(one, defaults):
    """More defaults than parameters: the last ones count."""
    one.citation_lint_findings.__defaults__ = defaults
    return [outcome(one.citation_lint_findings, *[None] * count) for count in range(4)]


def test_generator(one):
    blocks = one._prose_blocks("One\n\ntwo\n\nthree")
    looks = type(blocks) is types.GeneratorType, blocks.gi_frame is blocks.gi_frame, repr(blocks)
    return looks, next(blocks), blocks.send(None), outcome(blocks.throw, ValueError("thrown")), list(blocks)


@pytest.mark.parametrize("name, value, frames", [
    ("_FENCE_RE", SimpleNamespace(match=fail), "check check_citations cited_claims _prose_blocks fail"),
    ("citation_key", fail, "check check_citations cited_claims fail"),
    ("citation_request", fail, "check check_citations ask fail")])
def test_failure_in_the_log(one, repo, caplog, name, value, frames):
    """The traceback of what is logged leads through the functions; the record says where it was logged."""
    setattr(one, name, value)
    assert one.CitationChecker(Client(), repo).check(PAGE) is None
    record = caplog.records.pop()
    names = [frame.f_code.co_name for frame, _line in walk_tb(record.exc_info[2])]
    assert [name for name in names if name in frames.split()] == frames.split()
    assert (record.name, record.levelname, record.funcName) == (one.__name__, "WARNING", "check")


@pytest.mark.parametrize("watch", [sys.setprofile, sys.settrace], ids=["profile", "trace"])
def test_calls_are_seen(one, watch):
    """By profilers, debuggers and coverage, which all begin with one of these two."""

    def see(frame, event, _given):
        if event == "call" and frame.f_globals is vars(one):
            seen.add(frame.f_code.co_qualname)
        below.append((event, frame.f_code.co_name)) if frame.f_globals is vars(re) else None

    seen, below = set(), []
    watch(see)
    for call in [find(one, name) for name in FUNCTIONS]:
        outcome(lambda: list(call(*[None] * len(inspect.signature(call).parameters))))
    one._claim_text(" a  b ."), one.cited_claims(PAGE)
    watch(None)
    assert len(seen & {*FUNCTIONS}) > 10
    return sorted(seen & {*FUNCTIONS}), below.count(("call", "sub"))


@pytest.mark.parametrize("replaced", [builtins.__import__, fail, lambda *_given: None])
def test_import_function(one, monkeypatch, replaced):
    """What the import function is given, and what became of an import by it."""

    def recorded(name, *given, **named):
        if given and given[0] is vars(made):
            seen.append((name, given[1] is given[0], given[2:], named))
            return replaced(name, *given, **named)
        return real(name, *given, **named)

    seen, made, real = [], blank(one), builtins.__import__
    with monkeypatch.context() as patched:
        patched.setattr(builtins, "__import__", recorded)
        details = outcome(made.__spec__.loader.exec_module, made)
    return seen, details, list(own(made))


@pytest.mark.skipif(not hasattr(sys, "gettotalrefcount"), reason="the debug interpreter counts references")
def test_no_reference_stays():
    status, _ways, grown = ended("-m", "harden.memory", "2", timeout=50)
    assert (status, grown) == (0, "")


def test_two_copies_share_nothing_and_both_go(both, repo):
    copies = [quiet(both[0]), quiet(both[0])]
    one, other = ({find(copy, name) for name in FUNCTIONS + CLASSES} for copy in copies)
    assert not one & other and copies[0]._VERDICT_FINDINGS is not copies[1]._VERDICT_FINDINGS
    for way in [way for copy in copies for way in ways(both[0], repo, copy).values()]:
        outcome(way)
    gone, lines = [weakref.ref(thing) for thing in (*copies, *one, *other)], copies[0].cited_lines
    del copies, one, other, way
    gc.collect()
    assert lines("a\nb", 2, 2) == "b"
    del lines
    gc.collect()
    assert [thing() for thing in gone if thing() is not None] == []
