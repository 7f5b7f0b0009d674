"""Calls that fit no signature fail as those of a Python function do, word for word."""

import _testcapi
import inspect
from contextlib import nullcontext
from itertools import chain, combinations
from types import SimpleNamespace

import pytest
from support import Client, Text, agree, find, odd_key, outcome, page
from test_surface import FUNCTIONS


def python_twin(function):
    """A function written in Python that takes the same arguments and does nothing."""
    signature = inspect.signature(function)
    bare = [parameter.replace(annotation=parameter.empty) for parameter in signature.parameters.values()]
    namespace = {}
    exec(f"def twin{signature.replace(parameters=bare, return_annotation=signature.empty)}: pass", namespace)
    namespace["twin"].__qualname__ = function.__qualname__
    return namespace["twin"]


@pytest.mark.parametrize("qualname", FUNCTIONS)
def test_wrong_calls(module, qualname):
    function = find(module, qualname)
    names, twin, wrong = [*inspect.signature(function).parameters, "bogus", "é"], python_twin(function), 0
    for keywords in chain.from_iterable(combinations(names, size) for size in range(len(names) + 1)):
        for order in (keywords, keywords[::-1]):
            for count in range(len(names) + 1):
                given, named = [None] * count, dict.fromkeys(order)
                if (expected := outcome(twin, *given, **named)) != "None":
                    wrong += 1
                    assert outcome(function, *given, **named) == expected, (count, order)
    assert wrong > 10


def changed_defaults(one):
    one.citation_lint_findings.__defaults__ = None
    one.check_citations.__kwdefaults__ = {"max_questions": 0, "budget": None}
    calls = [lambda: one.citation_lint_findings(None, {}, None), lambda: one.check_citations(None, "", None)]
    yield list(map(outcome, calls))
    for defaults in (None, {odd_key("budget"): 1}):
        one.check_citations.__kwdefaults__ = defaults
        yield outcome(calls[1])


def test_recursion(both):
    for one in both:
        one._prose_blocks = one.cited_claims
    assert "RecursionError" in agree(both, lambda one: one.cited_claims("page"))


def test_free_variables(both, repo):
    def pool_map(question, asked):
        held = inspect.getclosurevars(question).nonlocals
        for cell in question.__closure__:
            del cell.cell_contents
        return [held.keys(), outcome(question, asked[0])]

    for one in both:
        one.ThreadPoolExecutor = lambda **_named: nullcontext(SimpleNamespace(map=pool_map))
        one.CheckedClaim = lambda _claim, answer: answer
    assert "NameError" in agree(both, lambda one: one.check_citations(Client(), page("L1", "L2"), repo, max_questions=9))


@pytest.mark.parametrize("call", [
    lambda one: one.CitedSources(),
    lambda one: one.CitationChecker(Client(), "root", "stop"),
    lambda one: one.CitationChecker.enabled(Client(), "root", "stop", "more"),
    lambda one: one.CitationChecker.enabled(client=None, repo_root=None, should_stop=None),
    lambda one: one.CitationCheck().findings(),
    lambda one: one.CitationCheck.findings(1, "page"),
    lambda one: one.CitationCheck.findings(SimpleNamespace(checked=[]), "page"),
    lambda one: setattr(one.CitationCheck(), "score", 1),
    lambda one: one.CitationCheckMixin("argument"),
    lambda one: one.cited_lines(**{1: "text"}),
    lambda one: _testcapi.pyobject_vectorcall(one.cited_lines, ("text", 1, 1), (7,)),
    lambda one: one.cited_lines(*7),
    lambda one: one.cited_lines(**{Text("text"): "a", Text("start"): 1, "".join(["e", "nd"]): 1}),
    lambda one: one.cited_lines("a", 1, **{Text("bogus"): 1}),
    lambda one: type("Host", (Text,), {"lines": one.cited_lines})("a\nb").lines(2, end=2),
    lambda one: one.cited_lines.__call__("a", end=1, start=1),
    lambda one: one.citation_lint_findings(client=None, texts={}, repo_root=None, should_stop=None),
    lambda one: one.check_citations(max_questions=5, repo_root=one.Path(), markdown="", client=Client()),
    lambda one: list(changed_defaults(one)),
])
def test_calls_of_every_form(both, call):
    agree(both, call)
