"""The checker of one run: who gets one, and the first failure."""

import gc
import sys
import threading
import weakref
from traceback import extract_tb
from types import SimpleNamespace

import pytest
from support import Client, Text, agree, fail, outcome, page, traced

WARNING = "Wiki citation check failed; the identifier check stays in force for the rest of this run"


@pytest.mark.parametrize("switch, consent", [("on", 1), (0, 1), ("", 1), (None, 1), (7, [])])
def test_enabled(module, switch, consent):
    trace, client, own = [], Client(), type("Own", (module.CitationChecker,), {})
    client.switch, module.source_consented = switch, traced(trace, "consent", lambda _client: consent)
    checker, made = own.enabled(client, "root", 7), bool(switch and consent)
    assert trace == [("consent", (client,), {})] * bool(switch)
    assert type(checker) is (own if made else type(None)) and client.budgets == [{"should_stop": 7}] * made


def test_run(module):
    class Watched(module.CitationChecker):
        def __getattribute__(self, name):
            reads.append(name)
            return super().__getattribute__(name)

    trace, reads, client = [], [], Client()
    module.check_citations = traced(trace, "check", lambda *_three: len(trace))
    checker = Watched.enabled(client, "root")
    assert list(vars(checker)) == ["client", "repo_root", "budget", "failure", "_failed", "_lock"]
    reads.clear()
    assert checker.check("one") == 1
    assert reads == ["check", "_failed", "client", "repo_root", "client", "budget"]
    client.config.wiki_check_citations_per_page = "six"
    assert checker.check("two") == 2 and client.budgets == [{"should_stop": None}]
    for call, (markdown, most) in zip(trace, (("one", 100), ("two", "six")), strict=True):
        named = {"max_questions": most, "budget": checker.budget}
        assert call == ("check", (client, markdown, "root"), named)


class Formatted(Exception):
    def __format__(self, how):
        return f"<{how}>"


class Spoken(Exception):
    def __str__(self):
        return Text("own") if self.args else fail()


@pytest.fixture
def failing(module):
    """A checker whose page check raises the last of the errors."""

    def check(*_given, **_named):
        raise errors[-1]

    errors, module.check_citations = [], check
    return module.CitationChecker(Client(), "root"), errors


@pytest.mark.parametrize("error, failure", [
    (ValueError("x"), "ValueError: x"), (ValueError(), "ValueError: "), (MemoryError(), "MemoryError: "),
    (StopIteration(1), "StopIteration: 1"), (OSError("é\U0001f600" * 99), "OSError: é" + "\U0001f600é" * 95),
    (type("Inner", (Exception,), {"__qualname__": "Outer.Inner"})("a", 2), "Inner: ('a', 2)"),
    (OSError("\ud800\0"), "OSError: \ud800\0"), (Formatted(), "Formatted: <>"), (Spoken(1), "Spoken: own"),
])
def test_first_failure(module, caplog, failing, error, failure):
    checker, errors = failing
    errors.append(error)
    assert checker.check("page") is None and (checker._failed, checker.failure) == (True, failure)
    errors.append(ValueError("a later one"))
    del checker.client
    assert checker.check("page") is None and checker.failure == failure
    (record,) = caplog.records
    assert (record.name, record.levelname) == (module.__name__, "WARNING") and record.getMessage() == WARNING
    assert record.exc_info[1] is error and extract_tb(record.exc_info[2])[-1].name == "check"


def test_failure_of_the_checker_itself(module, caplog):
    checker = module.CitationChecker(Client(), "root")
    del checker.client
    assert checker.check("page") is None
    assert extract_tb(caplog.records[0].exc_info[2])[-1].name == "check"


@pytest.mark.parametrize("error, failure", [(Spoken(), None), (ValueError(1), "ValueError: 1")])
def test_failure_inside_the_handler(module, failing, error, failure):
    (checker, errors), module.logger = failing, SimpleNamespace(warning=fail)
    errors.append(error)
    with pytest.raises(LookupError) as raised:
        checker.check("page")
    assert raised.value.__context__ is error and (checker._failed, checker.failure) == (True, failure)


def test_handled_exception(both):
    def road(one):
        def seen(name):
            return traced(trace, name, lambda *_given: trace.append((sys.exc_info(), vars(checker).copy())))

        trace, one.check_citations = [], fail
        checker, one.logger = one.CitationChecker(Client(), "root"), SimpleNamespace(warning=seen("warning"))
        checker._lock = type("Lock", (), {"__enter__": seen("enter"), "__exit__": seen("exit")})()
        try:
            raise KeyError("outer")
        except KeyError as outer:
            assert checker.check("page") is None and sys.exc_info()[1] is outer
        return trace

    assert agree(both, road).count("LookupError('failed')") == 3


@pytest.mark.parametrize("first", [True, False])
def test_two_threads_fail_together(module, caplog, first):
    def check(*_given, **_named):
        raise ValueError(together.wait(10))

    together, module.check_citations, results = threading.Barrier(2), check, []
    checker = module.CitationChecker(Client(), "root")
    if not first:
        taken = {"__enter__": lambda _lock: setattr(checker, "_failed", True), "__exit__": print}
        checker._lock = type("TakenBefore", (), taken)()
    threads = [threading.Thread(target=lambda: results.append(checker.check("page"))) for _ in range(2)]
    for step in (threading.Thread.start, threading.Thread.join):
        for thread in threads:
            step(thread)
    assert results == [None, None] and len(caplog.records) == first
    assert checker.failure == (f"ValueError: {caplog.records[0].exc_info[1]}" if first else None)


@pytest.mark.parametrize("error", [KeyboardInterrupt(), SystemExit(2), GeneratorExit()])
def test_what_is_no_ordinary_error_passes(module, failing, caplog, error):
    checker, errors = failing
    errors.append(error)
    with pytest.raises(type(error)) as raised:
        checker.check("page")
    assert raised.value is error and (checker._failed, checker.failure, caplog.records) == (False, None, [])
    module.check_citations = lambda *_given, **_named: "next"
    assert checker.check("page") == "next"


@pytest.mark.parametrize("name", ["client", "repo_root", "budget", "_failed", "_lock", "failure"])
def test_tampered_checkers(both, repo, name):
    def road(one):
        checker = one.CitationChecker(Client(fail), repo)
        for change in (lambda: delattr(checker, name), lambda: setattr(checker, name, [])):
            change()
            yield outcome(checker.check, page("L1"))
            yield vars(checker).get("failure"), vars(checker).get("_failed")

    agree(both, lambda one: list(road(one)))


def test_lock_that_swallows_exceptions(both, repo):
    class FalseOnce:
        def __bool__(self):
            return fail() if vars(self).setdefault("asked", []) else bool(self.asked.append(1))

    def road(one):
        checker = one.CitationChecker(Client(fail), repo)
        checker._failed = FalseOnce()
        checker._lock = type("Lock", (), {name: lambda *_given: True for name in ("__enter__", "__exit__")})()
        return checker.check(page("L1"))

    assert agree(both, road).startswith("UnboundLocalError: cannot access local variable 'first'")


def test_failed_run_keeps_no_exception(module, repo):
    def answer(_sentence):
        error = type("Refused", (Exception,), {})()
        alive.append(weakref.ref(error))
        raise error

    alive, module.logger = [], SimpleNamespace(warning=lambda *_given, **_named: None)
    checker = module.CitationChecker(Client(answer), repo)
    assert checker.check(page("L1")) is None and checker.failure == "Refused: "
    gc.collect()
    assert alive[0]() is None
