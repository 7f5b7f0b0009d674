"""Roads through every entry point that allocate nothing behind the module's back: no thread, and in the debug
interpreter none of the library's code that crashes when memory runs out."""

import _imp
import re
import sys
from collections import deque
from collections.abc import Callable
from functools import partial
from pathlib import Path
from types import ModuleType, SimpleNamespace

from support import Client, Text, fresh, page

Road = Callable[[], object]
IN_DEBUG_INTERPRETER = hasattr(sys, "gettotalrefcount")
PAGE = "# A\n- One is here [src/app.py:L1]. `Two` is  , too [src/app.py:L1-L3][src:L4].\n```\nx\n```\n" + page("L2", "L2")
ATTRIBUTES = "__code__ __annotations__ __defaults__ __kwdefaults__ __globals__ __closure__ __get__ __reduce__".split()
GENERATOR_ATTRIBUTES = "gi_code gi_frame gi_running gi_suspended gi_yieldfrom __name__".split()


class InlinePool:
    def __init__(self, **_keywords: object) -> None: ...
    def __enter__(self) -> "InlinePool":
        return self

    def __exit__(self, *_error: object) -> None: ...
    def map(self, ask: Callable[[object], object], asked: list[object]) -> object:
        return map(ask, asked)


class HostPath(type(Path())):
    """A path class of the host's own, which is read through `pathlib`."""


class Decider(Client):
    def decide(self, state: tuple[tuple[str, str], ...], _questions: object, **_named: object) -> dict[str, str]:
        if "L4" in state[0][1]:
            raise ValueError("refused")
        return {"citation": "contradicts" if "L2" in state[0][1] else "supports"}


def quiet(module: ModuleType) -> ModuleType:
    module.ThreadPoolExecutor = InlinePool
    module.logger = SimpleNamespace(warning=lambda *_given, **_named: None)
    return module


def slow(module: ModuleType) -> ModuleType:
    """No fast road is open: every name holds something that only behaves like the module's own."""
    for name in ("_LIST_MARK_RE", "_SENTENCE_END_RE"):
        setattr(module, name, re.compile(f"(?:){getattr(module, name).pattern}"))
    module.re = SimpleNamespace(sub=lambda _pattern, new, text: new + text)  # `re.sub` leaks its template
    for name in ("_prose_blocks", "_claim_text"):
        setattr(module, name, lambda text, call=getattr(module, name): call(text))
    module.CitedClaim = type("CitedClaim", (module.CitedClaim,), {})
    return module


def dataclass(class_: type | None = None, frozen: bool = False) -> object:
    """Stands in for the library's, at whose closures and compilations the interpreter crashes for want of memory."""
    return dataclass if class_ is None else class_


def roads(imported: ModuleType, root: Path) -> dict[str, Road]:
    module, slowly, lacking = quiet(fresh(imported)), slow(quiet(fresh(imported))), quiet(fresh(imported))
    for name in ("_FENCE_RE", "citation_key", "cited_lines", "check_citations", "_VERDICT_FINDINGS"):
        delattr(lacking, name)
    home = SimpleNamespace(resolve=lambda: root)
    client, off, refused = Decider(), Decider(), Decider()
    off.switch = refused.config.allow_source_upload = False
    client.budgets = deque(maxlen=0)
    result = module.check_citations(client, PAGE, home, max_questions=9)
    claim, sources = result.checked[0].claim, module.CitedSources(root)
    generator = type("Generator", (module.CitationCheckMixin,), {"repo_root": home, "should_stop": None})
    lint, check_citations = module.citation_lint_findings, module.check_citations

    def blocks(step: str, *given: object) -> object:
        made = module._prose_blocks(PAGE)
        return next(made), getattr(made, step)(*given), list(made)

    def checked(one: ModuleType, markdown: str) -> object:
        sys._getframe()  # see `failing`
        checker = one.CitationChecker.enabled(client, home)
        return checker.check(markdown), checker.failure, checker._failed

    def mixed_in() -> object:
        sys._getframe()
        host = generator()
        host.decision_client = client
        return host._citation_check(PAGE), host._citation_check(PAGE), host._citation_checker.failure

    native = {"inside": "src/app.py", "folder": "src", "outside": "..", "link": "away"}
    paths = {"missing": "gone", "loop": "loop", "nul": "a\0", "surrogate": "\ud800", "climbing": "x/../src/app.py"}
    if IN_DEBUG_INTERPRETER:
        paths = {}
    return {
        "import": lambda: _imp.exec_dynamic(_imp.create_dynamic(imported.__spec__)),
        "blocks": lambda: list(module._prose_blocks(PAGE)),
        "blocks of own text": lambda: list(module._prose_blocks(Text(PAGE))),
        "blocks, slowly": lambda: list(slowly._prose_blocks(PAGE)),
        "blocks sent to": partial(blocks, "send", None),
        "blocks thrown into": lambda: module._prose_blocks(PAGE).throw(KeyError("k")),
        "blocks thrown anew": partial(blocks, "throw", KeyError, "k", None),
        "blocks closed": partial(blocks, "close"),
        "blocks of no text": lambda: list(module._prose_blocks(None)),
        "blocks, lacking": lambda: list(lacking._prose_blocks(PAGE)),
        "claims": partial(module.cited_claims, PAGE),
        "claims, slowly": partial(slowly.cited_claims, PAGE),
        "claims, lacking": partial(lacking.cited_claims, page("L1")),
        "claim text": lambda: (module._claim_text(" a  , b é  c"), slowly._claim_text(" a  , b  c")),
        "claim": lambda: (module.CitedClaim("a", "b", 1, 2).ref, claim.ref, claim == claim, hash(claim)),
        "lines": partial(module.cited_lines, "a\r\nb\x85c\n" * 9, 2, 10**30),
        "lines, slowly": partial(module.cited_lines, Text("a\nb\nc"), 1, 2),
        "lines of no text": partial(module.cited_lines, b"a", 1, None),
        "passage": lambda: module.CitedSources(home).passage(claim),
        "passage, lacking": lambda: lacking.CitedSources(home).passage(claim),
        **{f"read {name}": partial(sources._read, path) for name, path in (native | paths).items()},
        **{f"read {name}, slowly": partial(module.CitedSources(HostPath(root))._read, path)
           for name, path in paths.items()},
        "page check": partial(check_citations, client, PAGE, home, max_questions=9, budget=None),
        "page check, slowly": partial(slowly.check_citations, client, PAGE, home, max_questions=2),
        "page check that fails": partial(check_citations, client, page("L1", "L4"), home, max_questions=9),
        "page check that cannot be": partial(check_citations, client, PAGE, home, max_questions="9"),
        "checker": partial(checked, module, PAGE),
        "checker that fails": partial(checked, module, page("L1", "L4", "L1")),
        "checker, lacking": partial(checked, lacking, PAGE),
        "results": lambda: (result.score, result.findings("a"), result.warnings()),
        "results, lacking": lambda: lacking.CitationCheck(result.checked).warnings(),
        "mix-in": mixed_in,
        "lint": partial(lint, client, {"a": PAGE, "b": page("L4"), "c": PAGE}, home),
        "lint, off": partial(lint, off, {"a": PAGE}, home),
        "lint without consent": partial(lint, refused, {"a": PAGE}, home),
        "lint of no mapping": partial(lint, client, [PAGE], home),
        "too many": partial(module.cited_lines, "a", 1, 1, 1),
        "too few": partial(module.cited_lines, "a"),
        "unexpected": partial(module.cited_lines, "a", 1, 1, bogus=1),
        "twice": partial(module.cited_lines, "a", 1, 1, text="b"),
        "by own name": partial(module.cited_lines, **{Text("text"): "a", "start": 1, "end": 1}),
        "one too few": partial(check_citations, 1, 2, 3),
        "one too many": partial(check_citations, 1, 2, 3, 4, budget=5),
        "two too few": partial(lint, 1),
        **{f"function's {name}": partial(getattr, lint, name) for name in ATTRIBUTES},
        **{f"generator's {name}": partial(getattr, module._prose_blocks(PAGE), name) for name in GENERATOR_ATTRIBUTES},
        "representations": lambda: (repr(lint), repr(module._prose_blocks(PAGE)), repr(lint.__get__(1))),
    }  # fmt: skip
