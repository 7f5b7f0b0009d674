"""What a host sees of the module: its names, classes and functions, and how an import brings them about."""

import builtins
import copy
import dataclasses
import functools
import gc
import importlib
import inspect
import logging
import pickle
import pydoc
import re
import sys
import typing
import weakref
from types import MethodType, ModuleType, SimpleNamespace
from unittest.mock import create_autospec

import pytest
from support import Poison, Text, agree, blank, fail, find, fresh, odd, odd_key, outcome

FUNCTIONS = """CitedClaim.ref CitationCheck.score CitationCheck.findings CitationCheck.warnings _prose_blocks
_claim_text cited_claims cited_lines CitedSources.__init__ CitedSources.passage CitedSources._read
check_citations CitationChecker.__init__ CitationChecker.enabled CitationChecker.check
CitationCheckMixin._citation_check citation_lint_findings""".split()
CLASSES = "CitedClaim CheckedClaim CitationCheck CitedSources CitationChecker CitationCheckMixin".split()
FACTS = "quenlow.workers.wiki.repo_facts"


def own(names):
    return {name: value for name, value in vars(names).items() if not name.startswith("__")}


def test_namespace(both):
    agree(both, own)
    agree(both, lambda one: (one.__doc__, one._SENTENCE_END_RE.flags, one._LIST_MARK_RE.flags))
    dunders = {"__name__", "__doc__", "__file__", "__spec__", "__loader__", "__package__", "__builtins__"}
    assert dunders <= set(vars(both[0])) and "__all__" not in vars(both[0])


@pytest.mark.parametrize("qualname", FUNCTIONS)
def test_function(both, imported, qualname):
    names = "__name__ __qualname__ __module__ __doc__ __annotations__ __defaults__ __kwdefaults__".split()
    looks = [inspect.signature, inspect.isfunction, inspect.isroutine, inspect.isgeneratorfunction,
             inspect.getfullargspec, typing.get_type_hints, repr]
    looks += [lambda function, name=name: getattr(function, name) for name in names]
    agree(both, lambda one: [look(find(one, qualname)) for look in looks])
    function = find(imported, qualname)
    assert function.__globals__ is vars(imported) and gc.is_tracked(function)
    assert weakref.ref(function)() is copy.copy(function) is copy.deepcopy(function) is function
    bound = function.__get__("an instance")
    assert type(bound) is MethodType and (bound.__self__, bound.__func__) == ("an instance", function)
    wrapped = functools.wraps(function)(lambda: None)
    assert wrapped.__doc__ == function.__doc__ and inspect.signature(wrapped) == inspect.signature(function)
    if qualname not in ("CitedClaim.ref", "CitationCheck.score", "CitationChecker.enabled"):
        assert all(pickle.loads(pickle.dumps(function, protocol)) is function for protocol in range(6))


@pytest.mark.parametrize("name", "name qualname doc module defaults kwdefaults annotations dict".split())
def test_function_attributes_change_as_ever(both, name):
    def changed(function, name):
        for value in (1, "text", None, {}, ("a",)):
            yield outcome(setattr, function, name, value), getattr(function, name, "none")
        yield outcome(delattr, function, name)

    agree(both, lambda one: [*changed(one.cited_lines, f"__{name}__"), *changed(one.cited_lines, "marker")])


@pytest.mark.parametrize("name", CLASSES)
def test_class(both, name):
    def shape(one):
        cls = getattr(one, name)
        kinds = [(key, type(kept).__name__) for key, kept in own(cls).items() if not inspect.isfunction(kept)]
        looks = "__dataclass_params__", "__match_args__", "__annotations__", "__dataclass_fields__"
        return [list(own(cls)), kinds, sorted(vars(cls)), type(cls), cls.__bases__, cls.__doc__,
                cls.__module__, inspect.signature(cls), typing.get_type_hints(cls),
                [vars(cls).get(look) for look in looks]]

    agree(both, shape)


def test_help(both):
    agree(both, lambda one: pydoc.plain(pydoc.render_doc(one)).replace("_plain", "").split("\nFILE\n")[0])


def test_records(imported):
    values = ("Reads files.", "src/app.py", 3, 9)
    claim = imported.CitedClaim(*values[:3], end=9)
    same = pickle.loads(pickle.dumps(claim))
    assert same == claim != values and same is not claim and hash(same) == hash(values)
    assert repr(claim) == "CitedClaim(claim='Reads files.', path='src/app.py', start=3, end=9)"
    with pytest.raises(dataclasses.FrozenInstanceError):
        claim.start = 1
    with pytest.raises(dataclasses.FrozenInstanceError):
        del imported.CheckedClaim(claim, None).new
    check, other = imported.CitationCheck(), imported.CitationCheck()
    assert (check.checked, check.skipped, check.score) == ([], 0, None) and check.checked is not other.checked
    with pytest.raises(TypeError, match="unhashable"):
        hash(check)


def test_autospec(module):
    lines, checker = create_autospec(module.cited_lines), create_autospec(module.CitationChecker)
    check = create_autospec(module.CitationCheck(), instance=True)
    assert lines("a", 1, end=2) and check.findings("page") and checker.enabled("client", "root")
    checker("client", "root", should_stop=None).check("page")
    for wrong in (lambda: lines("a"), lambda: checker("client", "root", "stop"), lambda: checker.enabled(),
                  lambda: checker("client", "root").check(), lambda: check.findings(),
                  lambda: create_autospec(module).cited_claims()):
        with pytest.raises(TypeError):
            wrong()


def test_import_sequence(both, monkeypatch):
    def recorded(name, globals=None, locals=None, fromlist=(), level=0):
        if globals is not None and globals.get("__name__", "").startswith(both[0].__name__):
            seen.append((name, fromlist or (), level))
        return real(name, globals, locals, fromlist, level)

    def imports(one):
        seen.clear()
        fresh(one)
        return seen

    seen, real = [], builtins.__import__
    monkeypatch.setattr(builtins, "__import__", recorded)
    agree(both, imports)
    handed = [(sys.modules[name], key) for name, keys, _level in seen if "quenlow" in name for key in keys]
    for source, name in handed:
        monkeypatch.setattr(source, name, Poison())
    module = fresh(both[0])
    assert len(handed) == 11
    assert all(getattr(module, name) is getattr(source, name) for source, name in handed)


def empty(without=(), **attributes):
    """Takes the place of a host module that has the name `_norm`."""
    vars(replacement := ModuleType(FACTS)).update(attributes)
    for name in without:
        delattr(replacement, name)
    return lambda patched: patched.setitem(sys.modules, FACTS, replacement)


@pytest.mark.parametrize(
    "broken",
    [
        empty(), empty(__file__="facts.py"), empty(__name__=7), empty(__getattr__=fail),
        empty(__spec__=SimpleNamespace(_initializing=True)),
        empty(__spec__=SimpleNamespace(_initializing=True), __file__="facts.py"),
        empty(__file__="facts.py", without=["__spec__"]), empty(__name__=Text(FACTS)),
        lambda patched: patched.setitem(sys.modules, FACTS, odd(getattribute=fail)()),
        lambda patched: patched.setitem(sys.modules, FACTS, object()),
        lambda patched: [empty()(patched), patched.setitem(sys.modules, f"{FACTS}._norm", "a submodule")],
        lambda patched: [empty()(patched), patched.setitem(sys.modules, odd_key(f"{FACTS}._norm"), 7)],
        lambda patched: patched.setitem(sys.modules, "quenlow.engines.decision", None),
        lambda patched: patched.delattr("quenlow.engines.decision.citation_request"),
        lambda patched: patched.delattr("quenlow.workers.wiki.types.citation_key"),
        lambda patched: patched.delattr(dataclasses, "field"),
        lambda patched: patched.setattr(dataclasses, "field", fail),
        lambda patched: patched.setattr(dataclasses, "dataclass", fail),
        lambda patched: patched.setattr(logging, "getLogger", fail),
        lambda patched: patched.setattr(re, "compile", fail),
    ],
)
def test_import_stops_where_it_fails(both, monkeypatch, broken):
    def stopped(one):
        started, details = blank(one), None
        with monkeypatch.context() as patched:
            broken(patched)
            try:
                started.__spec__.loader.exec_module(started)
            except Exception as error:
                details = repr(error), getattr(error, "name", None), getattr(error, "path", None)
        return details, list(own(started))

    agree(both, stopped)


@pytest.mark.parametrize("left, message", [
    ({}, "ImportError: __import__ not found"), ({"__import__": fail}, "LookupError: failed"),
    ({"__import__": lambda *_given: Poison()}, "Used: "),
])
def test_import_without_the_import_function(imported, left, message):
    started, real = blank(imported), vars(builtins).pop("__import__")
    vars(builtins).update(left)
    try:
        seen = outcome(started.__spec__.loader.exec_module, started)
    finally:
        builtins.__import__ = real
    assert seen == message


def test_failed_import_can_be_repeated(imported, monkeypatch):
    monkeypatch.setattr("quenlow.workers.wiki.citation_check", imported)
    monkeypatch.delitem(sys.modules, imported.__name__)
    with monkeypatch.context() as patched:
        patched.setitem(sys.modules, "quenlow.engines.decision", None)
        with pytest.raises(ModuleNotFoundError):
            importlib.import_module(imported.__name__)
        assert imported.__name__ not in sys.modules
    assert importlib.import_module(imported.__name__) is not imported
