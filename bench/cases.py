"""Random and hostile input for either form of the module, and what comes of it as data to compare."""

from __future__ import annotations

import os
import sys
from collections.abc import Callable
from pathlib import Path, PurePath
from random import Random
from types import ModuleType
from typing import Any

Case = Callable[[ModuleType], object]
"""What is done with either module; it gives plain data that can be compared."""

SPACES = [chr(code) for code in range(sys.maxunicode + 1) if chr(code).isspace()]
LINE_ENDS = ["\n", "\r", "\r\n", "\v", "\f", "\x1c", "\x1d", "\x1e", "\x85", "\u2028", "\u2029"]
WORDS = (
    "Alpha beta gamma. The reads! writes? `code` **bold** _some_ x é ÀÉ 日本 𝒳 \ud800 \udfff \0 \ufeff"
    " \x1f \u200b . , ; : ! 1.5 -x"
    " --- === * - + 1. 12) ٣. १) ² # ## | > ``` ~~~ ```py ` [ ] [[ ]] (a) :L L0 a.b.c [a. B.py:L1]"
).split(" ") + [""]
CITATIONS = (
    "[a.py:L1] [a.py:L2-L3] [sub/b.py:L7] [./a.py:L2-L3] [a//b.py:L4] [a.py:L0] [a.py:L9-L3] [a.py:L٣]"
    " [a.py:L1-L] [a.py:L01] [ü.py:L5] [a.py:L18446744073709551616] [a.py:L3-L99999999999999999999]"
    " [a:L1][b:L2] [x.py:L-1] [a.py:1] [a.py:L1 [[a.py:L6]] [:L3] [a\u2028b:L1] [𝒳:L8] [a.py:L2]."
    " [a.py:L2]! `[a.py:L5]` [..\\\\a.py:L4]"
).split(" ")
LINE_STARTS = "- |* |+\t|1. |23)  |٣. |१)\u3000|# |> |```|~~~|    |\t|||".split("|") + ["| "]
SMALL_NUMBERS: list[Any] = [0, 1, 2, 3, 5, 8, 40, -1, -2, -7, True]
NUMBERS = SMALL_NUMBERS + [2**31, 2**63 - 1, 2**63, -(2**63), 2**64, 10**30, -(10**30)]
ODD_NUMBERS: list[Any] = [None, 1.0, 2.5, "3", float("nan"), []]
LIMITS: list[Any] = [2200, 2200, 2200, 0, 1, 5, -3, None, True, 10**30, -(10**30), 2.5, "9"]
OUTSIDE = "☠"
DEPTH = "maximum recursion depth exceeded"
VERDICTS: list[Any] = ["supports", "contradicts", "says_nothing", "other", "", None, 3, []]


class Text(str):
    """A text of the host's own type."""


class Index:
    def __init__(self, number: int) -> None:
        self.number = number

    def __index__(self) -> int:
        return self.number


class HostPath(type(Path())):
    """A path class of the host's own."""


def shown(value: object) -> object:
    """A value as data that compares equal for the two modules; what is no data shows by its type."""
    kind = type(value)
    if kind is RecursionError or (kind is str and DEPTH in value):
        return "RecursionError"  # its wording tells at which call the depth ran out
    if kind in (str, int, bool, float, bytes, type(None)):
        return kind.__name__, value
    if kind in (list, tuple):
        return kind.__name__, [shown(item) for item in value]
    if kind is dict:
        return [(shown(key), shown(item)) for key, item in value.items()]
    if isinstance(value, BaseException):
        return kind.__qualname__, str(value), getattr(value, "name", None), shown(value.__context__)
    if isinstance(value, (str, PurePath)):
        return kind.__qualname__, str.__str__(value) if isinstance(value, str) else str(value)
    if hasattr(kind, "__dataclass_fields__"):
        return kind.__qualname__, [shown(getattr(value, name, None)) for name in kind.__dataclass_fields__]
    if hasattr(kind, "span"):
        return value.span()
    return getattr(value, "__qualname__", kind.__qualname__)


def outcome(call: Callable[..., object], *arguments: object) -> object:
    try:
        return shown(call(*arguments))
    except BaseException as error:
        return "raised", shown(error)


def random_page(rng: Random) -> str:
    lines = []
    for _ in range(rng.choice((1, 2, 4, 8))):
        words = rng.choices(WORDS, k=rng.randrange(9))
        words.insert(rng.randrange(len(words) + 1), rng.choice(CITATIONS))
        space = rng.choice(SPACES) if rng.random() < 0.3 else " "
        end = rng.choice(("", "", "", ".", "!", ". Also [b.py:L1].", rng.choice(SPACES), "\r"))
        lines.append(rng.choice(LINE_STARTS) + space.join(words) + end)
    if rng.random() < 0.2:
        lines *= 2
    page = rng.choice(("\n", "\n\n", "\n", "\r\n", " ")).join(lines)
    if rng.random() < 0.1:
        page += chr(rng.randrange(sys.maxunicode + 1)) + page
    return page


def page_case(rng: Random) -> Case:
    page: Any = random_page(rng)
    if rng.random() < 0.03:
        page = rng.choice((Text(page), page.encode(errors="replace"), None, 3, [page]))
    sentence = rng.choice(SPACES).join(rng.choices(WORDS + CITATIONS, k=rng.randrange(6)))
    return lambda module: (
        outcome(module.cited_claims, page),
        outcome(lambda: list(module._prose_blocks(page))),
        outcome(module._claim_text, sentence),
    )


def generator_case(rng: Random) -> Case:
    page = random_page(rng)
    steps = rng.choices(
        [
            *[next] * 3,
            lambda blocks: blocks.send(None),
            lambda blocks: blocks.send(1),
            lambda blocks: blocks.throw(KeyError("k")),
            lambda blocks: blocks.throw(GeneratorExit),
            lambda blocks: blocks.close(),
        ],
        k=6,
    )

    def case(module: ModuleType) -> object:
        blocks = module._prose_blocks(page)
        return [outcome(step, blocks) for step in steps]

    return case


def lines_case(rng: Random) -> Case:
    ends = LINE_ENDS if rng.random() < 0.5 else ["\n"]
    words = rng.choices(WORDS, k=rng.randrange(12))
    text = "".join(word * rng.choice((1, 1, 2, 40)) + rng.choice(ends) for word in words)
    if rng.random() < 0.05:
        text = rng.choice((Text(text), text * 60, "x" * 3000))
    numbers = NUMBERS + ODD_NUMBERS + [Index(2)] if rng.random() < 0.1 else NUMBERS
    start, end, limit = rng.choice(numbers), rng.choice(numbers), rng.choice(LIMITS)

    def case(module: ModuleType) -> object:
        module._PASSAGE_CHARS = limit
        try:
            return outcome(module.cited_lines, text, start, end)
        finally:
            module._PASSAGE_CHARS = 2200

    return case


def results_case(rng: Random) -> Case:
    verdicts = rng.choices(VERDICTS if rng.random() < 0.1 else VERDICTS[:4], k=rng.randrange(6))
    rows = [(rng.choice(WORDS) * rng.choice((1, 200)), "a.py", *rng.choices(NUMBERS, k=2)) for _ in verdicts]
    page_id = rng.choice(WORDS)

    def case(module: ModuleType) -> object:
        claims = [module.CitedClaim(*row) for row in rows]
        answers = [module.CitationAnswer(verdict) for verdict in verdicts]
        check = module.CitationCheck(list(map(module.CheckedClaim, claims, answers)))
        return outcome(lambda: check.score), outcome(check.findings, page_id), outcome(check.warnings)

    return case


class Repository:
    """A small repository with everything that a cited path can meet: links, loops, folders, odd bytes."""

    FILES = {
        "repo/a.py": b"one\ntwo\nthree\n",
        "repo/sub/b.py": b"crlf\r\nlone\rend\x0b\x0cmore \xc2\x85x\xe2\x80\xa8y",
        "repo/bad.py": b"\xff\xfe\xed\xa0\x80 \xe2\x82 \xf0\x9f\x98 end\xc0\x80\n" * 3,
        "repo/bom.py": b"\xef\xbb\xbffirst\nsecond\n",
        "repo/empty": b"",
        "repo/nul": b"a\0b\n\0",
        "repo/wide": "日本\n𝒳é\n".encode() * 60,
        "repo/big": b"x" * 70_000 + b"\r" + b"line\n" * 500,
        "repo2/secret": f"{OUTSIDE * 9}\n".encode(),
        "secret": f"{OUTSIDE * 9}\n".encode(),
    }
    LINKS = dict(
        link.split(">")
        for link in (
            "inside>a.py outside>../secret loop>loop loop1>loop2 loop2>loop1 chain>inside dangling>nowhere/x"
            " up>.. here>. folder>sub absolute>/etc twin>../repo2 sub/back>../a.py around>../repo/a.py"
        ).split()
    )
    ODD_NAME = os.fsdecode(b"caf\xe9")
    COMPONENTS = [
        *"a.py sub b.py bad.py bom.py empty nul wide big .. .. . missing secret repo repo2 ~ \\ back".split(),
        *("", " ", "a.py\n", "\0", "\ud800", "x" * 300, "y/" * 40, ODD_NAME, *LINKS),
    ]
    ODD_PATHS: list[Any] = [None, 3, b"a.py", Path("a.py"), Text("a.py")]
    ODD_PATHS += ["/", "//", "/proc/self/root/etc/passwd", "y/" * 2500]

    def __init__(self, folder: str) -> None:
        self.folder = Path(folder).resolve()
        for name, content in self.FILES.items():
            file = self.folder / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(content)
        (self.folder / "repo" / self.ODD_NAME).write_bytes(b"odd name\n")
        for name, target in self.LINKS.items():
            (self.folder / "repo" / name).symlink_to(target)
        (self.folder / "repo/absolute-inside").symlink_to(self.folder / "repo/a.py")
        (self.folder / "link-to-repo").symlink_to("repo")
        repo = self.folder / "repo"
        near = [HostPath(repo), Path(os.path.relpath(repo)), self.folder / "link-to-repo", repo / "up/repo"]
        far = [repo / "sub", self.folder / "missing", repo / "a.py", repo / "loop", Path("/")]
        self.near_roots: list[Any] = [repo] * 4 + near
        self.roots = self.near_roots + far + [PurePath(repo), str(repo)]

    def random_path(self, rng: Random) -> Any:
        if rng.random() < 0.04:
            return rng.choice(self.ODD_PATHS)
        path = "/".join(rng.choices(self.COMPONENTS, k=rng.choice((1, 1, 2, 3))))
        return f"{rng.choice(self.roots)}/{path}" if rng.random() < 0.1 else path

    def case(self, rng: Random) -> Case:
        root, limit = rng.choice(self.roots), rng.choice(LIMITS[:6])
        cited = [(self.random_path(rng), rng.choice(NUMBERS), rng.choice(NUMBERS)) for _ in range(2)]

        def case(module: ModuleType) -> object:
            module._PASSAGE_CHARS = limit
            try:
                sources = module.CitedSources(root)
                claims = [module.CitedClaim("A claim of some length", *lines) for lines in cited]
                passages = [outcome(sources.passage, claim) for claim in claims]
                return passages, sources._texts, sources.root
            finally:
                module._PASSAGE_CHARS = 2200

        return lambda module: outcome(case, module)


def clean_case(rng: Random, repository: Repository) -> Case:
    makers = (page_case, lines_case, results_case, generator_case, repository.case)
    return rng.choices(makers, weights=(45, 25, 10, 5, 15))[0](rng)
