"""Random and hostile input for either form of the module, and what comes of it as data to compare."""

from __future__ import annotations

import sys
from collections.abc import Callable
from random import Random
from types import ModuleType
from typing import Any

Case = Callable[[ModuleType], object]
"""What is done with either module; it gives plain data that can be compared."""

SPACES = [chr(code) for code in range(sys.maxunicode + 1) if chr(code).isspace()]
LINE_ENDS = ["\n", "\r", "\r\n", "\v", "\f", "\x1c", "\x1d", "\x1e", "\x85", "\u2028", "\u2029"]
MARKS = [*".,;:!?])`*_AZ@[-+#|>~19", "\u0661", "\xb2", "\U0001d7d8", "\0", "\x1b", "\x1f", "\x84", "\x86"]
MARKS += [*"\u200b\u2027\u202a\ufeff\ud800\u212a\u0120\u010a", "\U00010020", "\U0001000a"]
FILLERS = ["a", "Word ", "é", "日", "𝒳", "-", "x y"]
WORDS = """Alpha beta gamma. The reads! writes? `code` **bold** _some_ 日本 --- === 1. 12) ٣. १) # | > ``` ~~~
```py a.b.c [a. B.py:L1] [a.py:L1] [a.py:L2-L3] [b.py:L7] [./a.py:L2-L3] [a//b.py:L4] [a.py:L0] [a.py:L٣]
[a.py:L1-L] [ü.py:L5] [a.py:L18446744073709551616] [a:L1][b:L2] [x.py:L-1] [a.py:L1 [:L3] [a\u2028b:L1] [𝒳:L8]
[a.py:L2]. [a.py:L2]! `[a.py:L5]` [..\\\\a.py:L4]""".split() + [""]
LINE_STARTS = ["", "", "", "", "- ", "* ", "1. ", "23) ", "٣. ", "# ", "> ", "| ", "```", "~~~", "    ", "\t"]
NUMBERS: list[Any] = [0, 1, 2, 3, 5, 8, 40, -1, -2, -7, True, 2**31, 2**63 - 1, -(2**63), 2**64, 10**30]
LIMITS: list[Any] = [2200, 2200, 2200, 0, 1, 5, 17, 40, -3, None, 10**30, 2.5]


class Text(str):
    """A text of the host's own type."""


def shown(value: object) -> object:
    """A value as data that compares equal for the two modules; what is no data shows by its type."""
    kind = type(value)
    if kind in (str, int, bool, float, bytes, type(None)):
        return kind.__name__, value
    if kind in (list, tuple):
        return kind.__name__, [shown(item) for item in value]
    if kind is dict:
        return [(shown(key), shown(item)) for key, item in value.items()]
    if isinstance(value, (BaseException, str)):
        return kind.__qualname__, str(value)
    if hasattr(kind, "__dataclass_fields__"):
        return kind.__qualname__, [shown(getattr(value, name)) for name in kind.__dataclass_fields__]
    return kind.__qualname__


def outcome(call: Callable[..., object], *given: object) -> object:
    try:
        return shown(call(*given))
    except Exception as error:
        return "raised", shown(error)


def random_text(rng: Random) -> str:
    """Marks, whitespace and line ends, alone or in a run, anywhere among characters of any width."""
    fillers = rng.choice(([rng.choice(FILLERS)], FILLERS, ["a"]))
    pieces = []
    for _ in range(rng.randrange(14)):
        pieces.append(rng.choice(fillers) * rng.choice((0, 1, 2, 3, 7, 14, 15, 16, 17, 31, 33, 60)))
        some = rng.choice((SPACES, LINE_ENDS, MARKS, [" "], WORDS))
        pieces.extend(rng.choices(some, k=rng.choice((0, 1, 1, 1, 2, 3, 18))))
    return "".join(pieces)


def random_page(rng: Random) -> str:
    lines = []
    for _ in range(rng.choice((1, 2, 4, 8))):
        words = rng.choices(WORDS, k=rng.randrange(9)) + [random_text(rng)] * (rng.random() < 0.4)
        rng.shuffle(words)
        lines.append(rng.choice(LINE_STARTS) + rng.choice((" ", " ", rng.choice(SPACES))).join(words))
    return rng.choice(("\n", "\n\n", "\r\n", " ")).join(lines * rng.choice((1, 1, 1, 2)))


def page_case(rng: Random) -> Case:
    page: Any = random_page(rng)
    if rng.random() < 0.03:
        page = rng.choice((Text(page), page.encode(errors="replace"), None, [page]))
    sentence = random_text(rng)
    return lambda module: (
        outcome(module.cited_claims, page),
        outcome(lambda: list(module._prose_blocks(page))),
        outcome(module._claim_text, sentence),
    )


def lines_case(rng: Random) -> Case:
    text = random_text(rng) * rng.choice((1, 1, 1, 20))
    given, limit = (text, rng.choice(NUMBERS), rng.choice(NUMBERS)), rng.choice(LIMITS)

    def case(module: ModuleType) -> object:
        module._PASSAGE_CHARS = limit
        try:
            return outcome(module.cited_lines, *given)
        finally:
            module._PASSAGE_CHARS = 2200

    return case


def random_case(rng: Random) -> Case:
    return rng.choice((page_case, page_case, lines_case))(rng)
