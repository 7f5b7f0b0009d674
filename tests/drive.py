"""A drive through every entry point, on good and failing roads.

Run as a script, it prints the roads that leave references behind."""

import gc
import sys
from collections import deque
from collections.abc import Callable
from pathlib import Path
from types import ModuleType, SimpleNamespace

from support import Client, fail, fresh, outcome, page

Call = Callable[[], object]
GOOD = page("L1", "L2", "L3") + " Again the sentence [src/app.py:L0] [src/app.py:L1]."
BAD = page("L1", "L4", "L2")


def answer(sentence: str) -> str:
    return fail() if "L4" in sentence else "contradicts" if "L2" in sentence else "supports"


def roads(module: ModuleType, root: Path) -> list[tuple[str, Call]]:
    """The roads by name; those that fail raise."""

    def without(name: str, call: Call) -> Call:
        def road() -> None:
            value = vars(module).pop(name)
            try:
                call()
            finally:
                setattr(module, name, value)

        return road

    def cycle() -> None:
        text = type("Page", (str,), {})("a\n\nb")
        text.blocks = module._prose_blocks(text)
        next(text.blocks)

    def check(markdown: str) -> object:
        return module.check_citations(client, markdown, root, max_questions=2)

    def failed_run() -> list[object]:
        run = checker.enabled(client, root)
        return [run.check(GOOD), run.check(BAD), run.check(GOOD), run.failure]

    def function_as_object() -> None:
        module.cited_lines.__get__("text")(1, 1)
        module.cited_lines.marker = [module.cited_lines]
        del module.cited_lines.marker

    def copied() -> str:
        copy = fresh(module)
        copy.cited_lines.__defaults__ = (copy.cited_lines,)
        return copy.__name__

    client, module.logger = Client(answer), SimpleNamespace(warning=lambda *_given, **_named: None)
    client.asked, client.budgets = deque(maxlen=0), deque(maxlen=0)
    host, sources, checker = module.CitationCheckMixin(), module.CitedSources(root), module.CitationChecker
    host.repo_root, host.should_stop, host.decision_client = root, None, client
    claim, result = module.CitedClaim("claim", "src/app.py", 1, 2), check(GOOD)
    return [
        ("prose blocks", lambda: list(module._prose_blocks("# h\n- a\nb\n```\n```\n\nc"))),
        ("prose blocks dropped", lambda: next(module._prose_blocks("a\n\nb"))),
        ("prose blocks closed", lambda: module._prose_blocks("a\n\nb").close()),
        ("prose blocks thrown into", lambda: module._prose_blocks("a").throw(ValueError)),
        ("prose blocks in a cycle", cycle),
        ("prose blocks of no text", lambda: list(module._prose_blocks(None))),
        ("prose blocks without a pattern", without("_FENCE_RE", lambda: list(module._prose_blocks("a\nb")))),
        ("claim text", lambda: module._claim_text(" a  [a:L1] . ")),
        ("claims", lambda: module.cited_claims(GOOD)),
        ("claims without a key", without("citation_key", lambda: module.cited_claims(GOOD))),
        ("claims without a record", without("CitedClaim", lambda: module.cited_claims(GOOD))),
        ("claims with a whole file", lambda: module.cited_claims(page("L1", "L0"))),
        ("ref", lambda: claim.ref),
        ("lines", lambda: module.cited_lines("a\r\nb\x85c", 1, 10**30)),
        ("lines of no text", lambda: module.cited_lines(b"a", 1, 1)),
        ("passages", lambda: [module.CitedSources(root).passage(claim), sources.passage(claim)]),
        ("files that cannot be read", lambda: [sources._read(path) for path in ("gone", "src", "../x")]),
        ("paths that cannot be", lambda: sources.passage(SimpleNamespace(path="a\0", start=1, end=1))),
        ("result", lambda: [result.score, result.findings("page"), result.warnings()]),
        ("result without a table", without("_VERDICT_FINDINGS", lambda: result.warnings())),
        ("page check", lambda: check(GOOD)),
        ("page check that fails", lambda: check(BAD)),
        ("page check without a pool", without("ThreadPoolExecutor", lambda: check(GOOD))),
        ("page check without an answer", without("citation_answer", lambda: check(GOOD))),
        ("checker", lambda: vars(checker(client, root)).keys()),
        ("failed run", failed_run),
        ("failed run without a logger", without("logger", failed_run)),
        ("mix-in", lambda: host._citation_check(GOOD)),
        ("lint", lambda: module.citation_lint_findings(client, {"a": GOOD, "b": BAD, "c": GOOD}, root)),
        ("lint of no mapping", lambda: module.citation_lint_findings(client, [], root)),
        ("wrong call", lambda: module.citation_lint_findings(client, bogus=1)),
        ("function as an object", function_as_object),
        ("copy of the module", copied),
    ]


def growth(call: Call, rounds: int) -> list[int]:
    """How many references each round leaves behind, after three to warm up. Needs the debug interpreter."""
    deltas = [0] * rounds
    for number in range(-3, rounds):
        gc.collect()
        before = sys.gettotalrefcount()
        outcome(call)
        gc.collect()
        after = sys.gettotalrefcount()
        if number >= 0:
            deltas[number] = after - before
    return deltas


if __name__ == "__main__":
    from quenlow.workers.wiki import citation_check

    rounds = int(sys.argv[2])
    grown = [(name, growth(road, rounds)) for name, road in roads(citation_check, Path(sys.argv[1]))]
    sys.exit("\n".join(f"{name}: {deltas}" for name, deltas in grown if any(deltas)) or None)
