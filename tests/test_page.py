"""The check of a page on real threads, a run's first failure, and pages without measure."""

import signal
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import nullcontext
from itertools import product
from types import SimpleNamespace
from unittest.mock import Mock

import pytest
from support import Client, Text, agree, fail, odd, outcome, page, verdict

LINES = "L1", "L2", "L3", "L4"


def test_threads(both, repo):
    def answer(sentence):
        threads.append(threading.current_thread())
        if sentence.endswith(("L1.", "L2.")):
            both_there.wait(10)
        assert not sentence.endswith("L1.") or last_done.wait(10)
        if sentence.endswith("L4."):
            last_done.set()
        return None if sentence.endswith("L3.") else "supports"

    threads, last_done, both_there = [], threading.Event(), threading.Barrier(2)
    result = both[0].check_citations(Client(answer), page(*LINES), repo, max_questions=4)
    assert [item.claim.start for item in result.checked] == [1, 2, 4] and result.skipped == 0
    assert {thread.name for thread in threads} == {"wiki-cite_0", "wiki-cite_1"}
    assert not any(thread.is_alive() for thread in threads)


@pytest.mark.parametrize("parallel, failing, reaching", [(2, ["L2."], "L2."), (3, ["L3.", "L1."], "L1.")])
def test_failures_of_threads(both, repo, parallel, failing, reaching):
    class Latch(threading.Event):
        def set(self):
            handled.append(sys.exc_info()[0])
            super().set()
            latched.set()

    def answer(sentence):
        started.wait(10)
        asked.append(name := sentence.split()[-1])
        assert name == failing[0] or latched.wait(10)
        if name in failing:
            raise ConnectionError(name)

    latched, started, asked, handled = threading.Event(), threading.Barrier(parallel), [], []
    both[0].threading, client = SimpleNamespace(Event=Latch), Client(answer, max_parallel_calls=parallel)
    with pytest.raises(ConnectionError, match=reaching):
        both[0].check_citations(client, page(*LINES), repo, max_questions=4)
    assert sorted(asked) == ["L1.", "L2.", "L3."][:parallel] and set(handled) == {ConnectionError}


NUMBERS = [0, -5, 1, 2, 8, 10**30, -(10**30), 2.9, "2", " 3_0\n", True, b"2", None, "x", float("inf"), []]


def test_workers_and_cap(both, repo):
    def seen_of(one):
        def pool(**named):
            seen.append(named)
            return nullcontext(SimpleNamespace(map=map))

        seen, one.ThreadPoolExecutor = [], pool
        for parallel, markdown, most in product(NUMBERS, ("No claims.", page(*LINES[:3])), NUMBERS):
            client = Client(max_parallel_calls=parallel)
            seen.append(outcome(one.check_citations, client, markdown, repo, max_questions=most))
        return seen

    agree(both, seen_of)


def test_what_dies_when(both, repo):
    """Values die between the same calls as in the plain form."""

    def seen_of(one):
        log = []

        def dying(base, name):
            return type(name, (base,), {"__del__": lambda _self: log.append(f"{name} dies")})

        def noted(name, call):
            return lambda *given: log.append(name) or call(*given)

        one.CheckedClaim = noted("checked", one.CheckedClaim)
        for name in ("CitedSources", "ThreadPoolExecutor"):
            original = getattr(one, name)
            setattr(one, name, dying(original, name))
            one.check_citations(Client(noted("asked", verdict)), page("L1"), repo, max_questions=5)
            setattr(one, name, original)
        record = type("Record", (dying(object, "record"),), {"__eq__": lambda *_two: True})
        one._norm, one.CitedClaim.__del__ = noted("norm", str), lambda _self: log.append("claim dies")
        one.cited_claims(page("L1", "L2", "L1", "L3"))
        one.CitedClaim = noted("made", lambda *_four: record())
        one.cited_claims(page("L1", "L2", "L3"))
        result = type("Check", (dying(object, "result"),), {"findings": lambda *_two: []})
        checker = SimpleNamespace(check=noted("check", lambda _page: result()))
        one.CitationChecker = SimpleNamespace(enabled=lambda *_three: checker)
        one.citation_lint_findings(1, {"a": "a", "b": "b"}, repo)
        return log

    agree(both, seen_of)


def test_what_a_loop_holds(both, repo):
    """An item lives until the next one is there, and the last one until the function ends."""

    def seen_of(one):
        def made(base, at, value):
            kind = type("Item", (base,), {"__del__": lambda _self: log.append(f"{at} dies")})
            return kind(**value) if base is SimpleNamespace else kind(value)

        def each(base, *values):
            for at, value in enumerate(values):
                log.append(f"next {at}")
                yield made(base, at, value)
            log.append("end")

        log, blocks, check = [], one._prose_blocks, one.CitationCheck()
        claim = one.CitedClaim("Reads files", "a", 1, 1)
        entries = [{"claim": claim, "answer": SimpleNamespace(verdict=one)} for one in ("contradicts", "supports") * 2]
        check.checked = odd(iter=lambda _self: each(SimpleNamespace, *entries), len=lambda _self: 4)()
        log += check.score, check.findings("a")
        check.findings = lambda _page: each(dict, *[{"kind": 1, "detail": 2}] * 3)
        log += check.warnings()
        lines = SimpleNamespace(split=lambda _end: each(str, "one", "- two", "", "``` three", "four", "```", "five"))
        for block in blocks(lines):
            log.append(block)
        one._prose_blocks = lambda _page: each(str, "Reads files [a:L1]. Writes", "Reads all files [a:L2]", "four")
        log += one.cited_claims("page")
        one._SENTENCE_END_RE = SimpleNamespace(split=lambda _block: each(str, "Reads files [a:L1]", "two"))
        log += one.cited_claims("page")
        one.cited_claims = lambda _page: each(SimpleNamespace, *[{"path": "a", "start": 1, "end": 1}] * 3)
        log.append(one.check_citations(Client(), "", repo, max_questions=2))
        result = SimpleNamespace(findings=lambda _page: [])
        checker = SimpleNamespace(check=lambda _page: result)
        one.CitationChecker = SimpleNamespace(enabled=lambda *_three: checker)
        for items in ((each(tuple, "ab", "cd", "ef")), zip(each(str, "a", "b", "c"), each(str, "d", "e", "f"))):
            log += one.citation_lint_findings(1, SimpleNamespace(items=lambda: items), repo)
        return log

    agree(both, seen_of)


def test_a_failure_is_told_in_order(both):
    def seen_of(one):
        def failing(*_given, **_named):
            raise kind("Error", (Exception,), {"__format__": lambda *_two: log.append("text") or "said"})

        log, one.check_citations, one.logger = [], failing, Mock()
        kind = type("Kind", (type,), {"__name__": property(lambda _self: log.append("name") or "Own")})
        checker = one.CitationChecker(Client(), None)
        return checker.check("page"), checker.failure, log

    agree(both, seen_of)


def test_two_threads_fail_together(both, caplog):
    def check(*_given, **_named):
        raise ValueError(together.wait(10))

    together, both[0].check_citations = threading.Barrier(2), check
    checker = both[0].CitationChecker(Client(), "root")
    with ThreadPoolExecutor(2) as hosts:
        assert list(hosts.map(checker.check, ["page"] * 2)) == [None, None]
    assert [checker.failure] == [f"ValueError: {record.exc_info[1]}" for record in caplog.records]


def claims(number):
    return "\n\n".join(f"The sentence of number {at} says so [a:L{at}]." for at in range(1, number + 1))


def test_many_claims_take_time_in_proportion(imported):
    def seconds(text):
        begin = time.process_time()
        imported.cited_claims(text)
        return time.process_time() - begin

    few, many = (min(map(seconds, [claims(number)] * 2)) for number in (10_000, 80_000))
    assert many < 24 * few
    # Only the highest bits of these lines differ.
    high = [1 + (at << 57) for at in range(64)]
    citations = " ".join(f"[a:L{first}-L{last}]" for first in high for last in high)
    assert seconds(f"The sentence says so {citations}.") < few


@pytest.mark.parametrize("change", [
    list.clear, list.pop, lambda scan: scan.__setitem__(4, odd(bool=lambda _self: scan.clear())()),
    *(lambda scan, item=item: scan.__setitem__(*item) for item in ((0, 7), (1, 9**99), (1, -7), (1, "a")))])
def test_a_scan_that_somebody_changed(imported, change):
    blocks = imported._prose_blocks("a\n\nb\n\nc")
    next(blocks)
    change(blocks.gi_frame.f_locals["scan"])
    assert outcome(list, blocks)[:9] in ("[]", "TypeError")


@pytest.mark.parametrize("page", [claims(99_999), "- a\n" * 2_000_000, "a. B" * 2_000_000, "x\n" * 4_000_000])
def test_ctrl_c_ends_a_long_page(imported, page):
    before = signal.signal(signal.SIGALRM, signal.default_int_handler)
    signal.setitimer(signal.ITIMER_REAL, 0.05)
    begin = time.monotonic()
    try:
        with pytest.raises(KeyboardInterrupt):
            while True:
                imported.cited_claims(page)
        assert time.monotonic() - begin < 0.4
    finally:
        signal.signal(signal.SIGALRM, before)


def test_other_threads_run_during_a_long_page(imported):
    def tick():
        while not done.wait(0.001):
            ticks.append(1)

    ticks, done = [], threading.Event()
    thread = threading.Thread(target=tick)
    thread.start()
    while not ticks:
        time.sleep(0.001)
    before = len(ticks)
    imported.cited_claims("x\n" * 8_000_000)
    after = len(ticks)
    done.set()
    thread.join()
    assert after - before > 3


@pytest.mark.parametrize("values", [
    lambda at: (float("nan"), at), lambda at: (True, at), lambda at: (1, float(at)), lambda at: (9**99, at),
    lambda at: (odd(ge=lambda *_two: True, eq=lambda *_two: at % 5 == 0)(), 1), lambda at: (1, Text(at % 7)),
    lambda at: (1, odd(eq=lambda *_two: at != 70 or fail(), hash=lambda _self: at)()), lambda at: (at, []),
], ids=map(str, range(7)))
def test_records_that_compare_in_their_own_way(both, values):
    """The records that stay are those of a scan of all before, whatever comes among them, and whenever."""

    def seen_of(one):
        def key(match):
            at = int(match[2])
            return (match[1], at % 60, at % 60) if at in plain else (match[1], *values(at % 60))

        one.citation_key = key
        return one.cited_claims("\n\n".join(f"It says so here [a:L{at}]." for at in range(140)))

    for plain in (range(0), range(90), range(0, 140, 2), range(70, 140)):
        agree(both, seen_of)
