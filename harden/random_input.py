"""Random and hostile pages and passages through the module and its plain form: alike, whatever they hold."""

import random
import sys
from types import ModuleType
from typing import Any

from bench.load import load_module, load_plain
from support import LINE_ENDS, SPACES, Text, outcome, shown

from harden import builds, sanitizers

MARKS = [*".,;:!?])`*_AZ@[-+#|>~19", "\u0661", "\xb2", "\U0001d7d8", "\0", "\x1b", "\x1f", "\x84", "\x86"]
MARKS += [*"\u200b\u2027\u202a\ufeff\ud800\u212a\u0120\u010a", "\U00010020", "\U0001000a"]
FILLERS = ["a", "Word ", "é", "日", "𝒳", "-", "x y"]
WORDS = """Alpha beta gamma. The reads! writes? `code` **bold** _some_ 日本 --- === 1. 12) ٣. १) # | > ``` ~~~
```py a.b.c [a. B.py:L1] [a.py:L1] [a.py:L2-L3] [b.py:L7] [./a.py:L2-L3] [a//b.py:L4] [a.py:L0] [a.py:L٣]
[a.py:L1-L] [ü.py:L5] [a.py:L18446744073709551616] [a:L1][b:L2] [x.py:L-1] [a.py:L1 [:L3] [a\u2028b:L1] [𝒳:L8]
[a.py:L2]. [a.py:L2]! `[a.py:L5]` [..\\\\a.py:L4]""".split() + [""]
LINE_STARTS = ["", "", "", "", "- ", "* ", "1. ", "23) ", "٣. ", "# ", "> ", "| ", "```", "~~~", "    ", "\t"]
NUMBERS = [0, 1, 2, 3, 5, 8, 40, -1, -2, -7, True, 2**31, 2**63 - 1, -(2**63), 2**64, 10**30]
LIMITS = [2200, 2200, 2200, 0, 1, 5, 17, 40, -3, None, 10**30, 2.5]


def random_text(dice: random.Random) -> str:
    """Marks, whitespace and line ends, alone or in a run, anywhere among characters of any width."""
    fillers = dice.choice(([dice.choice(FILLERS)], FILLERS, ["a"]))
    pieces = []
    for _ in range(dice.randrange(14)):
        pieces.append(dice.choice(fillers) * dice.choice((0, 1, 2, 3, 7, 14, 15, 16, 17, 31, 33, 60)))
        some = dice.choice((SPACES, LINE_ENDS, MARKS, [" "], WORDS))
        pieces.extend(dice.choices(some, k=dice.choice((0, 1, 1, 1, 2, 3, 18))))
    return "".join(pieces)


def random_page(dice: random.Random) -> str:
    lines = []
    for _ in range(dice.choice((1, 2, 4, 8))):
        words = dice.choices(WORDS, k=dice.randrange(9)) + [random_text(dice)] * (dice.random() < 0.4)
        dice.shuffle(words)
        lines.append(dice.choice(LINE_STARTS) + dice.choice((" ", " ", dice.choice(SPACES))).join(words))
    return dice.choice(("\n", "\n\n", "\r\n", " ")).join(lines * dice.choice((1, 1, 1, 2)))


def came_to(one: ModuleType, page: Any, text: str, limit: Any, *numbers: int) -> list[str]:
    one._PASSAGE_CHARS = limit
    lines = text, *numbers
    calls = (one.cited_claims, page), (lambda: list(one._prose_blocks(page)),), (one._claim_text, text)
    return [outcome(lambda: shown(call(*given))) for call, *given in (*calls, (one.cited_lines, *lines))]


def compare(cases: int, seed: int) -> None:
    module, plain = load_module(), load_plain()
    for number in range(cases):
        dice = random.Random(f"{seed} {number}")
        page: Any = random_page(dice)
        if number % 30 == 0:
            page = dice.choice((Text(page), page.encode(errors="replace"), None, [page]))
        text = random_text(dice) * dice.choice((1, 1, 1, 20))
        given = page, text, dice.choice(LIMITS), dice.choice(NUMBERS), dice.choice(NUMBERS)
        for got, expected in zip(came_to(module, *given), came_to(plain, *given)):
            assert got == expected, f"case {number} of seed {seed}:\n  plain  {expected}\n  module {got}"


def run(short: bool) -> str:
    cases, seed = "20000" if short else "1000000", str(random.randrange(10_000))
    sanitizers.without_report(builds.python(builds.ASAN, "-m", "harden.random_input", cases, seed))
    return f"{cases} cases of seed {seed} are alike"


if __name__ == "__main__":
    compare(*map(int, sys.argv[1:]))
