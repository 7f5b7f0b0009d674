"""The page check: which claims are asked about, the question of one claim, the pool and its threads."""

import inspect
import sys
import threading
from concurrent.futures import ThreadPoolExecutor
from types import SimpleNamespace

import pytest
from support import Client, agree, outcome, page, traced

FILES, THREE = ["src/app.py", "blank", "gone"], page("L1", "L2", "L3")
ITEM = SimpleNamespace(claim="sentence"), "passage"


def about(sentences):
    return [sentence.split()[-1] for sentence in sentences]


@pytest.mark.parametrize("most, asked, read", [
    (100, ["L1.", "L3.", "L2."], FILES), (2, ["L1.", "L3."], FILES), (1, ["L1."], FILES[:1]), (0, [], []),
    (-(10**30), [], []), (10**30, ["L1.", "L3.", "L2."], FILES), (1.5, ["L1.", "L3."], FILES),
])
def test_selection(module, repo, most, asked, read):
    class Sources(module.CitedSources):
        def _read(self, path):
            reads.append(path)
            return super()._read(path)

    (repo / "blank").write_text(" \n\u3000\t\n\x1c\n")
    markdown = page("L1") + "\n\nA blank passage [blank:L1]. No such file [gone:L1].\n\n" + page("L3", "L2")
    reads, module.CitedSources, client = [], Sources, Client()
    result = module.check_citations(client, markdown, repo, max_questions=most)
    assert about(item.claim.claim for item in result.checked) == asked
    assert (sorted(about(client.asked)), result.skipped, reads) == (sorted(asked), 5 - len(asked), read)


@pytest.mark.parametrize("most", [None, "5", [], object])
def test_cap_that_does_not_compare(both, repo, most):
    for markdown in ("No claims.", THREE):
        agree(both, lambda one: one.check_citations(Client(), markdown, repo, max_questions=most))


class Pool:
    """A pool that runs its tasks at once, on the calling thread, and writes down how it is used."""

    def __init__(self, run=map):
        self.trace, self.run = [], run

    def __call__(self, *given, **named):
        self.trace.append(("pool", given, named))
        return self

    def __enter__(self):
        self.trace.append("enter")
        return SimpleNamespace(map=self.map)

    def __exit__(self, *details):
        self.trace.append(("exit", *details))

    def map(self, *given):
        self.trace.append(("map", given[1:]))
        self.ask = given[0]
        return self.run(*given)


@pytest.mark.parametrize("parallel, workers", [
    (0, 1), (-5, 1), (2, 2), (8, 3), (10**30, 3), (-(10**30), 1), (2.9, 2), ("2", 2), (" 3_0\n", 3),
    (True, 1), (b"2", 2), (SimpleNamespace(), None), (None, None), ("x", None), (float("inf"), None),
])
def test_workers(module, repo, parallel, workers):
    module.ThreadPoolExecutor, client = Pool(), Client(max_parallel_calls=parallel)
    for markdown, most in ((THREE, workers), ("No claims.", 1)):
        result = outcome(module.check_citations, client, markdown, repo, max_questions=9)
        if workers is None:
            assert result == outcome(int, parallel) and module.ThreadPoolExecutor.trace == client.asked == []
        else:
            pool = "pool", (), {"max_workers": most, "thread_name_prefix": "wiki-cite"}
            assert module.ThreadPoolExecutor.trace[-4] == pool


def test_every_step_in_order(both):
    def road(one):
        one.ThreadPoolExecutor = pool = Pool()
        trace, passages = pool.trace, iter([" one\n", "two", " \n", "four"])
        sources = SimpleNamespace(passage=traced(trace, "passage", lambda _claim: next(passages)))
        config = property(lambda _self: trace.append("config") or SimpleNamespace(max_parallel_calls=7))
        client = type("Traced", (), {"config": config, "__repr__": lambda _self: "client"})()
        client.decide = traced(trace, "decide", lambda _state, questions: questions)
        latch = SimpleNamespace(is_set=traced(trace, "is set"))
        one.threading = SimpleNamespace(Event=traced(trace, "event", lambda: latch))
        one.CitedSources = traced(trace, "sources", lambda _root: sources)
        claims = [SimpleNamespace(claim=f"claim {number}") for number in range(4)]
        one.cited_claims = traced(trace, "claims", lambda _page: iter(claims))
        one.citation_request = traced(trace, "request", lambda claim, _passage: iter(["state", claim[-1]]))
        one.citation_answer = traced(trace, "answer", {"0": "yes", "1": None, "3": 0}.get)
        one.CITATION_QUESTION_VERSION, one.CheckedClaim = "v", traced(trace, "checked", lambda *two: two)
        one.CitationCheck = traced(trace, "check", lambda: "the check")
        return one.check_citations(client, "page", "root", max_questions=3, budget="budget"), trace

    assert agree(both, road).count("'decide', ('state', '") == 3


@pytest.mark.parametrize("error", [KeyError("a"), KeyboardInterrupt(), GeneratorExit()])
def test_pool_is_left_with_the_error(module, repo, error):
    def results(_ask, _asked):
        yield None
        raise error

    module.ThreadPoolExecutor = Pool(results)
    with pytest.raises(type(error)) as raised:
        module.check_citations(Client(), THREE, repo, max_questions=1)
    *seen, traceback = module.ThreadPoolExecutor.trace[-1]
    assert seen == ["exit", type(error), error] and raised.value is error and inspect.istraceback(traceback)


def ask_of(module, client):
    """One page's question, and what its latch was told: the exception handled while it was set."""
    told = []

    class Latch(threading.Event):
        def set(self):
            told.append(sys.exc_info()[1])
            super().set()

    module.threading = SimpleNamespace(Event=Latch)
    module.ThreadPoolExecutor = pool = Pool()
    module.check_citations(client, "No claims.", module.Path(), max_questions=0)
    return pool.ask, told


def test_question_is_a_function(both):
    looks = inspect.signature, inspect.isfunction, lambda ask: (ask.__name__, ask.__qualname__, ask.__doc__)
    ask, other = (ask_of(both[0], Client())[0] for _ in range(2))
    assert ask is not other and ask(item=ITEM).verdict == "supports"
    agree(both, lambda one: [look(ask_of(one, Client())[0]) for look in looks])
    for given in ([1, 2], [(1,)], [7], [(None, "passage")], [ITEM]):
        agree(both, lambda one: ask_of(one, Client())[0](*given))


@pytest.mark.parametrize("place, error, latched", [
    ("decide", ValueError("no"), True), ("decide", StopIteration(), True), ("decide", SystemExit(), False),
    ("citation_answer", ValueError("invalid"), True), ("citation_answer", KeyboardInterrupt(), False),
    ("citation_request", ValueError("no request"), False),
])
def test_latch(module, monkeypatch, place, error, latched):
    def refuse(*_given, **_named):
        raise error

    client = Client()
    ask, told = ask_of(module, client)
    monkeypatch.setattr(client if place == "decide" else module, place, refuse)
    with pytest.raises(type(error)) as raised:
        ask(ITEM)
    assert raised.value is error and told == [error] * latched
    monkeypatch.undo()
    before = len(client.asked)
    assert (ask(ITEM) is None) == latched and (len(client.asked) == before) == latched


def test_threads(module, repo):
    def answer(sentence):
        threads.append(threading.current_thread())
        if sentence.endswith(("L1.", "L2.")):
            both_there.wait(10)
        if sentence.endswith("L1."):
            assert last_done.wait(10)
        if sentence.endswith("L4."):
            last_done.set()
        return None if sentence.endswith("L3.") else "supports"

    threads, last_done, both_there = [], threading.Event(), threading.Barrier(2)
    result = module.check_citations(Client(answer), page("L1", "L2", "L3", "L4"), repo, max_questions=4)
    assert about(item.claim.claim for item in result.checked) == ["L1.", "L2.", "L4."] and result.skipped == 0
    assert {thread.name for thread in threads} == {"wiki-cite_0", "wiki-cite_1"}
    assert threading.main_thread() not in threads and not any(thread.is_alive() for thread in threads)


@pytest.mark.parametrize("parallel, failing, reaching", [(2, ["L2."], "L2."), (3, ["L3.", "L1."], "L1.")])
def test_failures_of_threads(module, repo, parallel, failing, reaching):
    class Latch(threading.Event):
        def set(self):
            super().set()
            latched.set()

    def answer(sentence):
        started.wait(10)
        if (name := sentence.split()[-1]) != failing[0]:
            assert latched.wait(10)
        if name in failing:
            raise ConnectionError(name)
        return "supports"

    latched, started, client = threading.Event(), threading.Barrier(parallel), Client(answer)
    module.threading, client.config.max_parallel_calls = SimpleNamespace(Event=Latch), parallel
    with pytest.raises(ConnectionError, match=reaching):
        module.check_citations(client, page("L1", "L2", "L3", "L4"), repo, max_questions=4)
    assert sorted(about(client.asked)) == ["L1.", "L2.", "L3."][:parallel]


def test_page_without_claims_starts_no_thread(module, repo):
    class Watched(ThreadPoolExecutor):
        def __exit__(self, *details):
            started.extend(self._threads)
            return super().__exit__(*details)

    started, module.ThreadPoolExecutor = [], Watched
    assert module.check_citations(Client(), "No claims.", repo, max_questions=4) == module.CitationCheck()
    assert started == [] and module.check_citations(Client(), THREE, repo, max_questions=1).score == 1.0
    assert len(started) == 1
