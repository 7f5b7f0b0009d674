"""Ways through the module: calls that reach every function, good and failing, with shortcuts and without.

The host that the scenarios are given may turn values into its own, as a recorder does."""

import re
from collections import deque
from collections.abc import Callable
from contextlib import nullcontext
from functools import partial
from pathlib import Path
from types import ModuleType, SimpleNamespace
from typing import Any

from support import Client, Text, blank, fresh, outcome, page, shown

PAGE = f"# t\n- Ends  here . `As [src/app.py:L1] [gone:L0].\n{page('L2')}\n{page('L1', 'L2')}"
BAD = page("L4", "L1")
PATHS = "src/app.py", "../x", "src", "gone", "gone/../src/app.py", "loop", "away", "a\0", "\ud800"


def cited(one: Any, host: Any, *values: Any) -> Any:
    return one.CitedClaim(*(host.watch(f"value {at}", value) for at, value in enumerate(values)))


def passages(one: Any, host: Any, given: Any) -> Any:
    sources = host.observe(one.CitedSources(given.root))
    claims = [cited(one, host, "claim", path, 2, 3) for path in PATHS[:3]]
    return [outcome(sources.passage, claim) for claim in claims * 2], shown(sources._texts)


def results(one: Any, host: Any, given: Any) -> Any:
    verdicts = [host.watch("verdict", verdict) for verdict in ("says_nothing", "supports")]
    answers = [SimpleNamespace(verdict=verdict) for verdict in verdicts]
    checked = [one.CheckedClaim(cited(one, host, "A claim", "a", 2, 3), answer) for answer in answers]
    check = host.observe(one.CitationCheck(host.watch("checked", checked)))
    host.lists.append(check.checked)
    return outcome(lambda: check.score), shown(check.findings(host.watch("page", "a"))), check.warnings()


def run(one: Any, host: Any, given: Any) -> Any:
    checker = host.observe(one.CitationChecker.enabled(given.client, given.root, None))
    pages = [host.watch("markdown", text) for text in (PAGE, BAD, PAGE)]
    checks = [outcome(lambda: shown(checker.check(markdown))) for markdown in pages]
    return checks, checker.failure, checker._lock.locked(), shown(list(checker.__dict__))


def mixin(one: Any, host: Any, given: Any) -> Any:
    generator, checks = host.observe(one.CitationCheckMixin()), []
    generator.repo_root, generator.should_stop = given.root, None
    for client in (given.client, given.client, None, given.other, given.client):
        generator.decision_client = client
        checks.append(outcome(lambda: shown(generator._citation_check(host.watch("markdown", BAD)))))
        checks.append(shown(getattr(generator._citation_checker, "failure", None)))
    return checks


def lint(one: Any, host: Any, given: Any) -> Any:
    texts = {key: host.watch(key, text) for key, text in zip("abc", (page("L2"), BAD, PAGE))}
    return shown(one.citation_lint_findings(given.client, host.watch("pages", texts), given.root, None))


def check(one: Any, host: Any, given: Any) -> Any:
    markdown, most = host.watch("markdown", PAGE), host.watch("most", 2)
    return shown(one.check_citations(given.client, markdown, given.root, max_questions=most, budget=None))


def on_page(name: str) -> Callable[[Any, Any, Any], Any]:
    return lambda one, host, given: shown(list(getattr(one, name)(host.watch("markdown", PAGE))))


SCENARIOS: dict[str, Callable[[Any, Any, Any], Any]] = {
    "blocks": on_page("_prose_blocks"), "claims": on_page("cited_claims"), "passages": passages,
    "text": lambda one, host, given: shown(one._claim_text(host.watch("text", " a  [a:L1] , b "))),
    "lines": lambda one, host, given: shown(one.cited_lines(*map(host.watch, "tse", ("a\nb\r\nc", 2, 3)))),
    "ref": lambda one, host, given: [cited(one, host, "c", "a", 2, end).ref for end in (2, 3)],
    "results": results, "check": check, "mixin": mixin, "lint": lint, "run": run,
}  # fmt: skip


def quiet(imported: ModuleType) -> ModuleType:
    """A copy that starts no thread and logs nothing."""
    module = fresh(imported)
    module.ThreadPoolExecutor = lambda **_named: nullcontext(SimpleNamespace(map=map))
    module.logger = SimpleNamespace(warning=lambda *_given, **_named: None)
    return module


def slow(module: ModuleType) -> ModuleType:
    """No shortcut is taken: every name holds something that only behaves like the module's own."""
    for name in ("_LIST_MARK_RE", "_SENTENCE_END_RE", "_CITATION_RE"):
        setattr(module, name, re.compile(f"(?:){getattr(module, name).pattern}"))
    module.re = SimpleNamespace(sub=lambda pattern, new, text: re.compile(pattern).sub(new, text))
    for name in ("_prose_blocks", "_claim_text", "cited_claims", "cited_lines"):
        setattr(module, name, lambda *given, call=getattr(module, name): call(*given))
    module.CitedClaim = type("CitedClaim", (module.CitedClaim,), {})
    return module


def ways(imported: ModuleType, root: Path, module: ModuleType | None = None) -> dict[str, Callable[[], Any]]:
    """The ways by name, through that module as it is, or through a quiet copy."""
    one, slowly = module or quiet(imported), slow(quiet(imported))
    host, own = (SimpleNamespace(lists=deque(maxlen=0), observe=lambda thing: thing) for _ in range(2))
    host.watch = lambda _label, value: value
    own.watch = lambda _label, value: Text(value) if type(value) is str else value
    given, blocks = SimpleNamespace(client=Client(), other=Client(str), root=root), one._prose_blocks
    off, refused = Client(switch=False), Client(allow_source_upload=False)

    def half_way(step: str, *what: Any) -> Any:
        made = blocks(PAGE)
        return next(made), outcome(getattr(made, step), *what), list(made)

    def cycle() -> None:
        text = Text(PAGE)
        text.blocks = one._prose_blocks(text)
        next(text.blocks)

    return {
        **{name: partial(scenario, one, host, given) for name, scenario in SCENARIOS.items()},
        **{f"{name}, slowly": partial(scenario, slowly, host, given) for name, scenario in SCENARIOS.items()},
        **{f"{name} of own text": partial(scenario, one, own, given) for name, scenario in SCENARIOS.items()},
        **{f"reading {path!a}": partial(one.CitedSources(root)._read, path) for path in PATHS},
        "wrong call": lambda: one.check_citations(1, 2, 3, 4, bogus=5),
        "import": lambda: (made := blank(imported)).__spec__.loader.exec_module(made),
        "blocks sent to": partial(half_way, "send", None),
        "blocks thrown into": lambda: half_way("throw", KeyError("k")),
        "blocks closed": partial(half_way, "close"),
        "blocks in a cycle": cycle,
        "blocks of no text": lambda: list(blocks(None)),
        "claims of no text": lambda: one.cited_claims(7),
        "lines of no text": lambda: one.cited_lines(b"a", 1, None),
        "page check that cannot be": lambda: one.check_citations(given.client, PAGE, root, max_questions="9"),
        "lint, off": lambda: one.citation_lint_findings(off, {"a": PAGE}, root),
        "lint without consent": lambda: one.citation_lint_findings(refused, {"a": PAGE}, root),
        "lint of no mapping": lambda: one.citation_lint_findings(given.client, [PAGE], root),
    }


def repository(folder: Path) -> Path:
    """A repository whose one source file holds the lines "line 1" to "line 9"; a link leads out of it."""
    (folder / "src").mkdir(parents=True)
    (folder / "src/app.py").write_text("".join(f"line {number}\n" for number in range(1, 10)))
    (folder / "crs").write_bytes(b"one\r\ntwo\rthree")
    (folder.parent / "secret").write_text("secret\n")
    for link, target in {"loop": "loop", "away": "../secret", "near": "src/app.py"}.items():
        (folder / link).symlink_to(target)
    return folder
