"""Runs of the module in which the host's own objects rebind, patch, raise and re-enter half-way.

Both modules meet the same meddling at the same call; compared is the trace of all calls that the host sees.
"""

from __future__ import annotations

import re
import sys
from collections.abc import Callable, Iterator
from concurrent.futures import Future
from pathlib import Path, PurePath
from random import Random
from types import ModuleType, SimpleNamespace
from typing import Any, NamedTuple

from bench.cases import Case, Repository, Text, outcome, random_page, shown

Action = Callable[["Run"], object]


class Run:
    """One module's run: its trace, what is planned for which call, and the way back to how everything was."""

    def __init__(self, module: ModuleType, plan: dict[int, Action]) -> None:
        self.module = module
        self.plan = plan
        self.trace: list[object] = []
        self.calls = 0
        self.undo: list[Callable[[], object]] = []
        self.blocks: Iterator[str] = iter(())
        self._put_host()
        self.original = dict(vars(module))

    def _put_host(self) -> None:
        """The host's own objects, watched, before any meddling."""
        module = self.module
        for name in ("_FENCE_RE", "_CITATION_RE"):
            self.put(module, name, Pattern(self, name, getattr(module, name)))
        for name in ("citation_key", "_norm", "citation_request", "citation_answer"):
            self.patch(module, name)
        self.put(module, "source_consented", self.traced("source_consented", bool))
        self.put(module, "ThreadPoolExecutor", lambda **keywords: Pool(self, **keywords))
        self.put(module, "logger", SimpleNamespace(warning=self._warning))

    def _warning(self, *arguments: object, **keywords: object) -> None:
        self.seen("warning", *arguments, keywords, sys.exc_info()[1])

    def seen(self, name: str, *arguments: object) -> None:
        self.trace.append((name, [shown(argument) for argument in arguments]))
        self.calls += 1
        action = self.plan.get(self.calls)
        if action:
            action(self)

    def traced(self, name: str, call: Callable[..., Any]) -> Callable[..., Any]:
        def traced(*arguments: Any, **keywords: Any) -> Any:
            self.seen(name, *arguments, keywords)
            return call(*arguments, **keywords)

        return traced

    def put(self, owner: Any, name: str, value: object) -> None:
        self._remember(owner, name)
        setattr(owner, name, value)

    def drop(self, owner: Any, name: str) -> None:
        if name in vars(owner):
            self._remember(owner, name)
            delattr(owner, name)

    def patch(self, owner: Any, name: str) -> None:
        self.put(owner, name, self.traced(name, getattr(owner, name)))

    def _remember(self, owner: Any, name: str) -> None:
        if name in vars(owner):
            before = vars(owner)[name]
            self.undo.append(lambda: setattr(owner, name, before))
        else:
            self.undo.append(lambda: delattr(owner, name) if name in vars(owner) else None)

    def restore(self) -> None:
        while self.undo:
            self.undo.pop()()


class Pattern:
    """A pattern whose every use is traced."""

    def __init__(self, run: Run, name: str, pattern: re.Pattern[str]) -> None:
        self.run, self.name, self.pattern = run, name, pattern

    def __getattr__(self, method: str) -> Any:
        return self.run.traced(f"{self.name}.{method}", getattr(self.pattern, method))


class Pool:
    """A pool that asks one after the other, so that the order of the trace is certain: every question is put,
    also after one has failed, as busy workers may do."""

    def __init__(self, run: Run, **keywords: object) -> None:
        self.run = run
        run.seen("pool", keywords)

    def __enter__(self) -> Pool:
        self.run.seen("enter")
        return self

    def __exit__(self, *error: object) -> None:
        self.run.seen("exit", error[0], error[1])

    def map(self, ask: Callable[[object], object], asked: list[object]) -> Iterator[object]:
        self.run.seen("map", ask, asked)
        futures: list[Future[object]] = [Future() for _ in asked]
        for future, item in zip(futures, asked):
            try:
                future.set_result(ask(item))
            except BaseException as error:
                future.set_exception(error)
        return (future.result() for future in futures)


class Client:
    def __init__(self, run: Run) -> None:
        self.run = run

    @property
    def config(self) -> object:
        self.run.seen("config")
        return SimpleNamespace(max_parallel_calls="3", wiki_check_citations_per_page=Cap(self.run))

    def feature_enabled(self, name: str) -> bool:
        self.run.seen("feature_enabled", name)
        return True

    def new_budget(self, **keywords: object) -> str:
        self.run.seen("new_budget", keywords)
        return "budget"

    def decide(self, state: object, questions: object, **keywords: object) -> dict[str, str]:
        self.run.seen("decide", state, questions, keywords)
        return {"citation": "contradicts"}


class Cap:
    """A per-page cap of six that the host watches."""

    def __init__(self, run: Run) -> None:
        self.run = run

    def __gt__(self, other: int) -> bool:
        self.run.seen("cap", other)
        return other < 6


class Claim:
    """A claim of the host's own, whose attributes it watches."""

    def __init__(self, run: Run, path: object, start: int) -> None:
        self.values = {"path": path, "start": start, "end": start + 2}
        self.run = run

    def __getattr__(self, name: str) -> object:
        self.run.seen(name)
        return self.values[name]


def replacements(run: Run) -> dict[str, list[object]]:
    """What the host may bind to each of the module's names, half-way."""
    original = run.original
    return {
        "_CLAIM_MIN_CHARS": [0, 30, None, 10**30],
        "_PASSAGE_CHARS": [3, None, "x"],
        "_DETAIL_CLAIM_CHARS": [4, None],
        "_FAILURE_CHARS": [7, "x"],
        "_VERDICT_FINDINGS": [{}, {"contradicts": ("a", "b", "c")}, {"contradicts": 1}],
        "_LIST_MARK_RE": [re.compile(r"[A-Z]"), Pattern(run, "list_mark", original["_LIST_MARK_RE"])],
        "_SENTENCE_END_RE": [re.compile(r" (?=[a-z])"), Pattern(run, "end", original["_SENTENCE_END_RE"])],
        "_FENCE_RE": [re.compile(r"\s*-"), SimpleNamespace(match=lambda line: len(line) % 7 == 0)],
        "_CITATION_RE": [
            re.compile(r"\[(\w+)\.py:L(\d)(\d*)\]"),
            SimpleNamespace(sub=lambda new, text: Text(text), finditer=lambda text: iter(text[:2])),
        ],
        "citation_key": [
            lambda match: ["a.py", 1, 2],
            lambda match: ("a.py", 1),
            lambda match: ("a.py", 1, 2, 3),
            lambda match: ("a.py", "1", 2),
            lambda match: ("a.py", 1.5, None),
        ],
        "_norm": [Text, str.upper, lambda path: [path]],
        "CitedClaim": [
            lambda *fields: fields,
            type("CitedClaim", (original["CitedClaim"],), {}),
            run.traced("CitedClaim", original["CitedClaim"]),
            float,
        ],
        "re": [SimpleNamespace(sub=run.traced("re.sub", re.sub)), None],
        "_claim_text": [run.traced("_claim_text", str.strip), lambda sentence: range(20)],
        "_prose_blocks": [run.traced("_prose_blocks", str.splitlines), lambda markdown: None],
        "cited_claims": [lambda markdown: [Claim(run, "a.py", 1), Claim(run, "sub/b.py", 2)]],
        "cited_lines": [run.traced("cited_lines", lambda *lines: " x ")],
        "CitedSources": [run.traced("CitedSources", original["CitedSources"])],
        "CheckedClaim": [lambda *fields: fields],
        "CitationCheck": [run.traced("CitationCheck", original["CitationCheck"])],
        "check_citations": [run.traced("check_citations", original["check_citations"])],
        "citation_request": [lambda *texts: "ab", lambda *texts: texts + texts],
        "citation_answer": [lambda result: None, lambda result: 0, run.traced("answer", SimpleNamespace)],
        "CITATION_QUESTION_VERSION": ["another"],
        "source_consented": [lambda client: 0],
        "threading": [SimpleNamespace(Event=lambda: SimpleNamespace(is_set=run.traced("is_set", bool)))],
        "ThreadPoolExecutor": [lambda **keywords: None],
        "logger": [None],
        "CitationChecker": [None],
    }


def patched_methods(run: Run) -> list[tuple[object, str]]:
    methods = {
        run.original["CitedClaim"]: "__eq__ __init__ __hash__ __setattr__",
        run.original["CitedSources"]: "__init__ passage _read",
        run.original["CitationCheck"]: "findings __init__",
        run.original["CitationChecker"]: "check",
        re: "sub",
        Path: "resolve read_text open is_relative_to __truediv__",
        type(Path()): "resolve read_text open relative_to __fspath__",
        PurePath: "is_relative_to __truediv__ relative_to __str__ __new__",
    }
    return [(owner, name) for owner, names in methods.items() for name in names.split()]


SENTENCES = [
    "\n\nThe first is read. It has more than that [a.py:L1]. And the second too [a.py:L2][sub/b.py:L1-L3]",
    "\n- Some say so  , others do not [wide:L1]. It is as  long as ever! `x` [bad.py:L2]. **Last** [a.py:L0]",
    "\n",
]


def random_plan(rng: Random) -> dict[int, Action]:
    """What happens at which call. It turns on a few names, so that what it does to one of them adds up."""
    names, methods = rng.choices(range(100), k=3), rng.choices(range(100), k=2)
    return {rng.randrange(1, 60): random_action(rng, names, methods) for _ in range(rng.randrange(1, 8))}


def random_action(rng: Random, names: list[int], methods: list[int]) -> Action:
    kind, which_name, which_method, which_value = (
        rng.random(),
        rng.choice(names),
        rng.choice(methods),
        rng.randrange(60),
    )
    error = rng.choice((ValueError, StopIteration, OSError, KeyboardInterrupt, GeneratorExit))
    page = random_page(rng)

    def action(run: Run) -> None:
        name, values = pick(list(replacements(run).items()), which_name)
        if kind < 0.45:
            run.put(run.module, name, pick(values, which_value))
        elif kind < 0.55:
            run.drop(run.module, name)
        elif kind < 0.60:
            run.put(run.module, name, run.original[name])
        elif kind < 0.85:
            run.patch(*pick(patched_methods(run), which_method))
        elif kind < 0.90:
            run.trace.append(outcome(next, run.blocks))
        elif kind < 0.95:
            run.trace.append(outcome(run.original["cited_claims"], page))
        else:
            raise error("from the host " * 20)

    return action


def pick(values: list[Any], which: int) -> Any:
    return values[which % len(values)]


class Given(NamedTuple):
    page: str
    other: str
    root: Path
    paths: list[object]


def meddled_case(rng: Random, repository: Repository) -> Case:
    """An entry point called while the host, from inside its own calls, changes what the module is made of."""
    page, other = (random_page(rng) + rng.choice(SENTENCES) + random_page(rng) for _ in range(2))
    usual = ("a.py", "sub/b.py", "wide", "outside", "loop")
    paths = [rng.choice((*usual, repository.random_path(rng))) for _ in range(3)]
    given = Given(page, other, rng.choice(repository.near_roots), paths)
    plan = random_plan(rng)
    entry = rng.choice((_claims, _claims, _blocks, _passages, _page_check, _checker, _lint))

    def case(module: ModuleType) -> object:
        run = Run(module, plan)
        run.blocks = module._prose_blocks(other)
        try:
            return outcome(entry, run, given), run.trace
        finally:
            run.restore()

    return case


def _claims(run: Run, given: Given) -> object:
    return run.module.cited_claims(given.page)


def _blocks(run: Run, given: Given) -> object:
    return [outcome(next, run.blocks) for _ in range(5)]


def _passages(run: Run, given: Given) -> object:
    sources = run.module.CitedSources(given.root)
    passages = [
        outcome(sources.passage, Claim(run, path, start)) for start, path in enumerate(given.paths * 2)
    ]
    return [passages, sources._texts]


def _page_check(run: Run, given: Given) -> object:
    cap = Cap(run)
    return run.module.check_citations(Client(run), given.page, given.root, max_questions=cap, budget="budget")


def _checker(run: Run, given: Given) -> object:
    checker = run.module.CitationChecker.enabled(Client(run), given.root)
    checks = [outcome(checker.check, page) for page in (given.page, given.other)]
    return [checks, checker.failure, checker._failed, checker._lock.locked()]


def _lint(run: Run, given: Given) -> object:
    pages = {"one": given.page, "two": given.other}
    return run.module.citation_lint_findings(Client(run), pages, given.root)
