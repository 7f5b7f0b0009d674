"""The embedded decision model: offline, deterministic, and no more than a comparison of words and numbers."""

import re
from collections.abc import Callable, Iterable
from itertools import permutations
from typing import NamedTuple

from quenlow.engines.model import Answer, Question, State
from quenlow.engines.quantities import NUMBER_WORDS, UNITS, Quantity, list_sizes, multiplied_out

_EXACT = 3  # what a number, or a name that is not in the lines, weighs against a word
_NEAR = 3  # how many words away from a number stands what it counts or names
_STEM = 3  # "req" stands for "request"; a shorter word stands for itself alone
_TOLD = 5  # words in a reason, at most

_NUMBER = r"[0-9]{1,30}(?:[_',][0-9]{3})*(?:\.[0-9]{1,30})*"
_TOKEN_RE = re.compile(
    rf"(?<![^\W\d])(?<![^\W\d][-/])(?P<number>{_NUMBER})|{_NUMBER}"
    r"|(?P<word>[KMG]iB|[A-Z]{2,40}(?![a-z])|[A-Z]?[^\W\d_A-Z]{1,40})"
)
_NAME_RE = re.compile(r"(?<!^)`([^`\s]+)`|(?<![\w`/.-])([A-Z]{3,40})(?![\w`]|[- ][0-9])")
_STANDARD_RE = re.compile(r"\b[Ss]tandard (in|out|err)(?:put|or)\b")
_CAPITALS_RE = re.compile(r"\b[A-Z]{2,18} $")
_SUFFIX_RE = re.compile(r"(?<=..)s$|(?<=...)(?:ings?|ions?|ed|ers?|ies|e?s|ly|y|e)$")

# Grammar, and what nearly all code and nearly all sentences about code have.
_STOP_WORDS = frozenset(
    "a about after again all already also always an and another any are as asked asks at be because"
    " become becomes been before between both but by called calls can come comes could count counts"
    " default defaults do does each either else even ever every first for from gets given goes had has"
    " have here how however if in into is it its just keep keeps kept last later left let lets like look"
    " looks made makes many may mean means more most much must named names neither never no none nor not"
    " nothing now of off often on once one only or other others otherwise our out over own same say says"
    " set sets should since so some stand stands still such take taken takes tell tells than that the"
    " their them then there these they thing things this those through to told too turn turns under unless"
    " until up upon used uses using value values very via was way we were what when where which while who"
    " whole whose why will with within without work works would yet you your".split()
)


def _stem(word: str) -> str:
    """Without its ending, and in American spelling."""
    return _SUFFIX_RE.sub("", word).replace("our", "or").replace("is", "iz")


_OPPOSITES = [
    pair
    for opposites in (
        "above/below accept/reject add/remove after/before allow/deny allow/reject append/prepend"
        " ascend/descend async/sync child/parent close/open decode/encode decrease/increase disable/enable"
        " drop/keep end/start exclude/include false/true inner/outer input/output keep/remove left/right"
        " local/remote lock/unlock lower/upper max/min maximum/minimum newest/oldest private/public"
        " read/write stderr/stdout strict/loose strong/weak"
    ).split()
    for pair in permutations(map(_stem, opposites.split("/")))
]


class WordModel:
    """Lines support a sentence if what they have of it outweighs half of what they lack.

    A number that they have otherwise, or an opposite, contradicts it; of other numbers, none may be missing.
    """

    name = "words 3"
    costs = False
    trouble = ""

    def answer(self, state: State, question: Question, should_stop: Callable[[], bool]) -> Answer:
        (_, claim), (_, passage) = state
        said, lines = _read(_STANDARD_RE.sub(r"std\1", claim)), _read(passage.replace("\\n", " newline "))
        wrong, missing, absent = _unsupported(said.quantities, lines.quantities, passage)
        wrong += _opposites(said.stems, lines.stems)
        shared = _shared(said.words, lines.words)
        # A wrong number weighs as much as a right one: it must not turn the sentence into another subject.
        found = len(shared) + _EXACT * (len(said.quantities) - len(missing) - len(absent))
        names = [name[1] or name[2] for name in _NAME_RE.finditer(claim)]
        absent += [name for name in names if not _read(name).words.keys() <= shared]
        enough = found and 2 * found >= len(said.words) - len(shared) + _EXACT * len(absent)
        if enough and wrong:
            return Answer("contradicts", "; ".join(wrong))
        if enough and not missing:
            return Answer("supports", "")
        absent = missing + absent or [word for stem, word in said.words.items() if stem not in shared]
        return Answer("says_nothing", f"not in the lines: {', '.join(absent[:_TOLD])}")


class _Text(NamedTuple):
    stems: dict[str, str]  # all words by their stems
    words: dict[str, str]  # those that tell what it is about
    quantities: list[Quantity]


def _unsupported(said: list[Quantity], lines: list[Quantity], passage: str) -> tuple[list[str], ...]:
    """The quantities of a sentence that the lines have otherwise, that they lack, and vague ones that they lack."""
    wrong: list[str] = []
    missing: list[str] = []
    vague: list[str] = []
    sizes = [
        Quantity(f"{size} items", size, "", _read(label).words, counts=True)
        for size, label in list_sizes(passage)
    ]
    for quantity in said:
        others = [*lines, *sizes] if not quantity.unit else lines
        if quantity.is_written(passage) or any(map(quantity.equals, others)):
            continue
        near = [other for other in others if _shared(quantity.near, other.near)]
        # A count in words may be of anything: only the size of a list can show that it is wrong.
        rivals = [one for one in near if one.counts >= quantity.counts and not any(map(one.equals, said))]
        if rivals:
            best = max(rivals, key=lambda other: len(_shared(quantity.near, other.near)))
            wrong.append(f"the sentence says {quantity.told}, the lines {best.told}")
        else:
            # A count, or a number that is part of a name, as in "ISO 8601", need not be spelled out.
            (vague if quantity.told[0].isalpha() and not quantity.unit else missing).append(quantity.told)
    return wrong, missing, vague


def _opposites(said: dict[str, str], others: dict[str, str]) -> list[str]:
    return [
        f"the sentence says {said[one]}, the lines {others[other]}"
        for one, other in _OPPOSITES
        if one in said and other in others and one not in others and other not in said
    ]


def _read(text: str) -> _Text:
    words: list[tuple[str, str]] = []
    stems: dict[str, str] = {}
    found: list[tuple[str, str, str, int, bool]] = []
    end = -2  # of the number before
    text = multiplied_out(text)
    for token in _TOKEN_RE.finditer(text):
        word = (token["word"] or "").lower()
        if token["number"] or word in NUMBER_WORDS:
            number = re.sub(r"^0+(?=[0-9])|\.0+$|[_',]", "", str(NUMBER_WORDS.get(word, token["number"])))
            name = _CAPITALS_RE.search(text, max(0, token.start() - 20), token.start())
            told = name[0] + token[0] if name else token[0]
            found.append((told, number, "", len(words), bool(word)))
            end = token.end()
        elif token.start() - end < 2 and (unit := word if word in UNITS else word[:-1]) in UNITS:
            found[-1] = (f"{found[-1][0]} {token[0]}", found[-1][1], unit, len(words), False)
        elif token.start() == end:
            found.pop()  # it is part of a name, as in `1a`
            end = -2
        elif len(word) > 1:
            stems[stem := _stem(word)] = word
            if word not in _STOP_WORDS:
                words.append((stem, word))
    quantities = [
        Quantity(told, number, unit, dict(words[max(0, at - _NEAR) : at + _NEAR]), counts)
        for told, number, unit, at, counts in found
    ]
    return _Text(stems, dict(words), quantities)


def _shared(words: Iterable[str], others: Iterable[str]) -> set[str]:
    """The words that others hold, whole, shortened or lengthened."""
    known = set(others)
    starts = known.union(*map(_starts, known))
    return {word for word in words if word in starts or not known.isdisjoint(_starts(word))}


def _starts(word: str) -> list[str]:
    return [word[:end] for end in range(_STEM, len(word))]
