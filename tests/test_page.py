"""The check of a page on real threads, a run's first failure, and pages without measure."""

import inspect
import signal
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import nullcontext
from itertools import product
from types import SimpleNamespace
from unittest.mock import DEFAULT, Mock, patch

import pytest
from support import Client, Text, fail, odd, outcome, page, verdict

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
    def answer(sentence):
        started.wait(10)
        asked.append(name := sentence.split()[-1])
        assert name == failing[0] or failed.wait(10)
        if name in failing:
            raise ConnectionError(name)

    failed, started, asked, handled = Mock(wraps=threading.Event()), threading.Barrier(parallel), [], []
    failed.set.side_effect = lambda: handled.append(sys.exc_info()[0]) or DEFAULT
    both[0].threading, client = Mock(Event=lambda: failed), Client(answer, max_parallel_calls=parallel)
    with pytest.raises(ConnectionError, match=reaching):
        both[0].check_citations(client, page(*LINES), repo, max_questions=4)
    assert sorted(asked) == ["L1.", "L2.", "L3."][:parallel] and set(handled) == {ConnectionError}


NUMBERS = [0, -5, 1, 2, 8, 10**30, -(10**30), 2.9, "2", " 3_0\n", True, b"2", None, "x", float("inf"), []]


def test_what_a_pool_is_given(one, repo):
    def look(ask, asked):
        seen.append((ask.__qualname__, ask.__doc__, str(inspect.signature(ask))))
        return map(ask, asked)

    seen, pool = [], nullcontext(SimpleNamespace(map=look))
    one.ThreadPoolExecutor = lambda **named: seen.append(named) or pool
    for parallel, markdown, most in product(NUMBERS, ("No claims.", page(*LINES[:3])), NUMBERS):
        client = Client(max_parallel_calls=parallel)
        seen.append(outcome(one.check_citations, client, markdown, repo, max_questions=most))
    return seen


def dying(log, name, *bases, **attributes):
    """A class whose objects say when they die."""
    return type(name, bases, attributes | {"__del__": lambda _self: log.append(f"{name} dies")})


def noted(log, name, call):
    return lambda *given: log.append(name) or call(*given)


def test_what_dies_when(one, repo):
    """Values die between the same calls as in the plain form."""
    log, client = [], Client(lambda sentence: log.append("asked") or verdict(sentence))
    one.CheckedClaim = noted(log, "checked", one.CheckedClaim)
    for name in ("CitedSources", "ThreadPoolExecutor"):
        with patch.object(one, name, dying(log, name, getattr(one, name))):
            one.check_citations(client, page("L1"), repo, max_questions=5)
    record = dying(log, "record", __eq__=lambda *_two: True)
    one._norm, one.CitedClaim.__del__ = noted(log, "norm", str), lambda _self: log.append("claim dies")
    one.cited_claims(page("L1", "L2", "L1", "L3"))
    one.CitedClaim = noted(log, "made", lambda *_four: record())
    one.cited_claims(page("L1", "L2", "L3"))
    return log


def test_what_a_loop_holds(one, repo):
    """An item lives until the next one is there, and the last one until the function ends."""

    def each(base, *values):
        for at, value in enumerate(values):
            log.append(f"next {at}")
            kind = dying(log, f"{at}", base)
            yield kind(**value) if base is SimpleNamespace else kind(value)
        log.append("end")

    log, blocks, check = [], one._prose_blocks, one.CitationCheck()
    claim, answers = one.CitedClaim("Reads files", "a", 1, 1), ("contradicts", "supports") * 2
    entries = [{"claim": claim, "answer": SimpleNamespace(verdict=answer)} for answer in answers]
    check.checked = odd(iter=lambda _self: each(SimpleNamespace, *entries), len=lambda _self: 4)()
    log += check.score, check.findings("a")
    check.findings = lambda _page: each(dict, *[{"kind": 1, "detail": 2}] * 3)
    log += check.warnings()
    lines = "one", "- two", "", "``` three", "four", "```", "five"
    for block in blocks(SimpleNamespace(split=lambda _end: each(str, *lines))):
        log.append(block)
    texts = "Reads files [a:L1]. Writes", "Reads all files [a:L2]", "four"
    one._prose_blocks = lambda _page: each(str, *texts)
    log += one.cited_claims("page")
    one._SENTENCE_END_RE = SimpleNamespace(split=lambda _block: each(str, "Reads all files [a:L1]", "two"))
    log += one.cited_claims("page")
    one.cited_claims = lambda _page: each(SimpleNamespace, *[{"path": "a", "start": 1, "end": 1}] * 3)
    log.append(one.check_citations(Client(), "", repo, max_questions=2))
    result = dying(log, "result", findings=lambda *_two: [])
    checker = SimpleNamespace(check=noted(log, "check", lambda _page: result()))
    one.CitationChecker = SimpleNamespace(enabled=lambda *_three: checker)
    for items in (each(tuple, "ab", "cd", "ef"), zip(each(str, *"abc"), each(str, *"def"))):
        log += one.citation_lint_findings(1, SimpleNamespace(items=lambda: items), repo)
    return log


def test_two_threads_fail_together(both, caplog):
    def check(*_given, **_named):
        raise ValueError(together.wait(10))

    together, both[0].check_citations = threading.Barrier(2), check
    checker = both[0].CitationChecker(Client(), "root")
    with ThreadPoolExecutor(2) as hosts:
        assert list(hosts.map(checker.check, ["page"] * 2)) == [None, None]
    assert [checker.failure] == [f"ValueError: {record.exc_info[1]}" for record in caplog.records]


def claims(number):
    return page(*map("L{}".format, range(1, number + 1)))


def test_many_claims_take_time_in_proportion(both):
    def seconds(text):
        begin = time.process_time()
        both[0].cited_claims(text)
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
def test_a_scan_that_somebody_changed(both, change):
    blocks = both[0]._prose_blocks("a\n\nb\n\nc")
    next(blocks)
    change(blocks.gi_frame.f_locals["scan"])
    assert outcome(list, blocks)[:9] in ("[]", "TypeError")


@pytest.mark.parametrize("page", [claims(99_999), "- a\n" * 2_000_000, "a. B" * 2_000_000, "x\n" * 4_000_000])
def test_ctrl_c_ends_a_long_page(both, page):
    signal.signal(signal.SIGALRM, signal.default_int_handler)
    signal.setitimer(signal.ITIMER_REAL, 0.05)
    begin = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        while True:
            both[0].cited_claims(page)
    assert time.monotonic() - begin < 0.4


def test_other_threads_run_during_a_long_page(both):
    text, began, ticks = "x\n" * 8_000_000, threading.Event(), 0
    with ThreadPoolExecutor() as pool:
        reading = pool.submit(lambda: began.set() or both[0].cited_claims(text))
        began.wait(10)
        while not reading.done():
            time.sleep(0.001)
            ticks += 1
    assert ticks > 3


@pytest.mark.parametrize("values", [
    lambda at: (float("nan"), at), lambda at: (True, at), lambda at: (1, float(at)), lambda at: (9**99, at),
    lambda at: (odd(ge=lambda *_two: True, eq=lambda *_two: at % 5 == 0)(), 1), lambda at: (1, Text(at % 7)),
    lambda at: (1, odd(eq=lambda *_two: at != 59 or fail(), hash=lambda _self: at)()), lambda at: (at, []),
])
@pytest.mark.parametrize("plain", [range(0), range(90), range(0, 140, 2), range(70, 140)])
def test_records_that_compare_in_their_own_way(one, values, plain):
    """The records that stay are those of a scan of all before, whatever comes among them, and whenever."""

    def key(match):
        at = int(match[2])
        return (match[1], at % 60, at % 60) if at in plain else (match[1], *values(at % 60))

    one.citation_key = key
    return outcome(one.cited_claims, "\n\n".join(f"It says so here [a:L{at}]." for at in range(140)))
