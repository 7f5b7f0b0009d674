"""Roads through every entry point that allocate nothing behind the module's back: no thread, and in the debug
interpreter none of the library's code that crashes when memory runs out."""

import _imp
import re
import sys
from collections import deque
from collections.abc import Callable
from contextlib import nullcontext
from functools import partial
from pathlib import Path
from types import ModuleType, SimpleNamespace
from typing import Any

from support import Client, Text, fresh, page

Road = Callable[[], object]
IN_DEBUG_INTERPRETER = hasattr(sys, "gettotalrefcount")
PAGE = "# A\n- One is here [src/app.py:L1]. `Two` is  , too [src/app.py:L1-L3][src:L4].\n```\nx\n```\n"
PAGE += page("L2", "L2")
ATTRIBUTES = "__code__ __annotations__ __defaults__ __kwdefaults__ __globals__ __closure__ __get__".split()
GENERATOR_ATTRIBUTES = "gi_code gi_frame gi_running gi_suspended gi_yieldfrom __name__".split()
READ_BY_LIBRARY = ["gone", "loop", "a\0", "\ud800", "x/../src/app.py"]


class HostPath(type(Path())):
    """A path class of the host's own, which is read through `pathlib`."""


class Decider(Client):
    def decide(self, state: Any, _questions: object, **_named: object) -> dict[str, str]:
        if "L4" in state[0][1]:
            raise ValueError("refused")
        return {"citation": "contradicts" if "L2" in state[0][1] else "supports"}


def quiet(imported: ModuleType) -> ModuleType:
    module = fresh(imported)
    module.ThreadPoolExecutor = lambda **_named: nullcontext(SimpleNamespace(map=map))
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


def roads(imported: ModuleType, root: Path) -> dict[str, Road]:
    module, slowly, lacking = quiet(imported), slow(quiet(imported)), quiet(imported)
    for name in ("_FENCE_RE", "citation_key", "cited_lines", "check_citations", "_VERDICT_FINDINGS"):
        delattr(lacking, name)
    blocks, lines = module._prose_blocks, module.cited_lines
    lint, check_citations = module.citation_lint_findings, module.check_citations
    home = SimpleNamespace(resolve=lambda: root)
    looked_at = quiet(imported)
    looked_at.ThreadPoolExecutor = lambda **_named: nullcontext(
        SimpleNamespace(map=lambda ask, _asked: [ask.__code__.co_freevars])
    )
    located, nowhere, nameless = (ModuleType("lacking") for _ in range(3))
    located.__file__ = "lacking.py"
    del nameless.__name__

    def import_from(wiki_types: ModuleType) -> object:
        name = "quenlow.workers.wiki_types"
        kept = sys.modules[name]
        sys.modules[name] = wiki_types
        try:
            return _imp.exec_dynamic(_imp.create_dynamic(imported.__spec__))
        finally:
            sys.modules[name] = kept

    client, off, refused = Decider(), Decider(), Decider()
    off.switch = refused.config.allow_source_upload = False
    client.budgets = deque(maxlen=0)
    result = check_citations(client, PAGE, home, max_questions=9)
    claim, generator = result.checked[0].claim, type("Generator", (module.CitationCheckMixin,), {})
    generator.repo_root, generator.should_stop = home, None

    def half_way(step: str, *given: object) -> object:
        made = blocks(PAGE)
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

    by_library = [] if IN_DEBUG_INTERPRETER else READ_BY_LIBRARY
    reads = {
        path: module.CitedSources(root)._read for path in ["src/app.py", "src", "..", "away", *by_library]
    }
    slow_reads = {path: module.CitedSources(HostPath(root))._read for path in by_library}
    wrong_calls = [
        *(partial(lines, *given) for given in (["a"], ["a", 1, 1, 1])),
        *(partial(lines, "a", 1, 1, **named) for named in ({"bogus": 1}, {"text": "b"})),
        *(partial(check_citations, 1, 2, *given, budget=5) for given in ([], [3], [3, 4])),
        *(partial(call, **{Text("text"): "a", "start": 1, "end": 1}) for call in (lines, lint)),
    ]
    return {
        "import": lambda: _imp.exec_dynamic(_imp.create_dynamic(imported.__spec__)),
        "import from a lacking module": partial(import_from, located),
        "import from a module without a file": partial(import_from, nowhere),
        "import from a module without a name": partial(import_from, nameless),
        "blocks": lambda: list(blocks(PAGE)),
        "blocks of own text": lambda: list(blocks(Text(PAGE))),
        "blocks, slowly": lambda: list(slowly._prose_blocks(PAGE)),
        "blocks sent to": partial(half_way, "send", None),
        "blocks thrown into": lambda: blocks(PAGE).throw(KeyError("k")),
        "blocks thrown anew": partial(half_way, "throw", KeyError, "k", None),
        "blocks closed": partial(half_way, "close"),
        "blocks of no text": lambda: list(blocks(None)),
        "blocks, lacking": lambda: list(lacking._prose_blocks(PAGE)),
        "claims": partial(module.cited_claims, PAGE),
        "claims, slowly": partial(slowly.cited_claims, PAGE),
        "claims, lacking": partial(lacking.cited_claims, page("L1")),
        "claim text": lambda: (module._claim_text(" a  , b é  c"), slowly._claim_text(" a  , b  c")),
        "claim": lambda: (module.CitedClaim("a", "b", 1, 2).ref, claim.ref, claim == claim, hash(claim)),
        "lines": partial(lines, "a\r\nb\x85c\n" * 9, 2, 10**30),
        "lines, slowly": partial(lines, Text("a\nb\nc"), 1, 2),
        "lines of no text": partial(lines, b"a", 1, None),
        "passage": lambda: module.CitedSources(home).passage(claim),
        "passage, lacking": lambda: lacking.CitedSources(home).passage(claim),
        **{f"read {path!a}": partial(read, path) for path, read in reads.items()},
        **{f"read {path!a}, slowly": partial(read, path) for path, read in slow_reads.items()},
        "page check": partial(check_citations, client, PAGE, home, max_questions=9, budget=None),
        "page check, slowly": partial(slowly.check_citations, client, PAGE, home, max_questions=2),
        "page check that fails": partial(check_citations, client, page("L1", "L4"), home, max_questions=9),
        "page check that cannot be": partial(check_citations, client, PAGE, home, max_questions="9"),
        "inner function's code": partial(looked_at.check_citations, client, PAGE, home, max_questions=1),
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
        **{f"wrong call {number}": call for number, call in enumerate(wrong_calls)},
        **{f"function's {name}": partial(getattr, lint, name) for name in ATTRIBUTES},
        **{f"generator's {name}": partial(getattr, blocks(PAGE), name) for name in GENERATOR_ATTRIBUTES},
        "representations": lambda: (repr(lint), repr(blocks(PAGE)), repr(lint.__get__(1))),
    }
