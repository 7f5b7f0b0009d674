"""The embedded decision model: offline, deterministic, and no more than a comparison of words and numbers."""

import re
from collections.abc import Callable, Iterable

from quenlow.engines.model import Answer, Question, State
from quenlow.engines.quantities import NUMBER_WORDS, UNITS, Quantity, list_sizes, multiplied_out

_ENOUGH = 0.4  # the share of a sentence's words that its lines must hold
_NAME_WEIGHT = 2  # of a name in backticks that is not in the lines
_NEAR = 3  # how many words away from a number stands what it counts or names
_STEM = 3  # "req" stands for "request"; a shorter word stands for itself alone
_TOLD = 5  # words in a reason, at most

_NUMBER = r"[0-9]{1,30}(?:[_',][0-9]{3})*(?:\.[0-9]{1,30})*"
_TOKEN_RE = re.compile(
    rf"(?<![^\W\d])(?<![^\W\d][-/])(?P<number>{_NUMBER})|{_NUMBER}"
    r"|(?P<word>[KMG]iB|[A-Z]{2,40}(?![a-z])|[A-Z]?[^\W\d_A-Z]{1,40})"
)
_NAME_RE = re.compile(r"`([^`\s]+)`")
_SUFFIX_RE = re.compile(r"(?<=..)s$|(?<=...)(?:ings?|ions?|ed|ers?|ies|e?s|ly|y|e)$")

_STOP_WORDS = frozenset(
    "a about after again all also an and another any are as at be because been before between both but by"
    " can could do does each either else every first for from gets given goes had has have here how however"
    " if in into is it its just last like made makes many may more most much must neither never no none nor"
    " not nothing now of off often on once one only or other others our out over own same should since so"
    " some such takes than that the their them then there these they this those through to too under until"
    " up upon used uses using very via was we were what when where which while who whose why will with"
    " within without would you your".split()
)


class WordModel:
    """Lines contradict a sentence if they hold another number next to the same words as a number of it.

    They say nothing about it if too few of its words are there. The opposite in the same words passes.
    """

    name = "words 2"
    costs = False
    trouble = ""

    def answer(self, state: State, question: Question, should_stop: Callable[[], bool]) -> Answer:
        (_, claim), (_, passage) = state
        (words, quantities), (passage_words, others) = _read(claim), _read(passage)
        wrong, missing = _unsupported(quantities, others, passage)
        shared = _shared(words, passage_words)
        names = [name for name in _NAME_RE.findall(claim) if not _read(name)[0].keys() <= shared]
        # A wrong number weighs as much as a right one: it must not turn the sentence into another subject.
        numbers = len(quantities) - len(missing)
        weight = len(words) + numbers + _NAME_WEIGHT * len(names)
        enough = len(shared) + numbers >= max(1, _ENOUGH * weight)
        if enough and wrong:
            return Answer("contradicts", "; ".join(wrong))
        if enough and not missing:
            return Answer("supports", "")
        absent = missing + names or [word for stem, word in words.items() if stem not in shared]
        return Answer("says_nothing", f"not in the lines: {', '.join(absent[:_TOLD])}")


def _unsupported(said: list[Quantity], others: list[Quantity], passage: str) -> tuple[list[str], list[str]]:
    """The quantities of a sentence that the lines have otherwise, and those that they do not have."""
    wrong, missing = [], []
    unseen = [each for each in said if not (each.is_written(passage) or any(map(each.equals, others)))]
    for size, label in list_sizes(passage) if unseen else ():
        others.append(Quantity(f"{size} items", size, "", _read(label)[0], counts=True))
    for quantity in unseen:
        near = [other for other in others if _shared(quantity.near, other.near)]
        if quantity.unit or not any(map(quantity.equals, near)):
            # A count in words may be of anything: only the size of a list can show that it is wrong.
            rivals = [one for one in near if one.counts >= quantity.counts and not any(map(one.equals, said))]
            if rivals:
                best = max(rivals, key=lambda other: len(_shared(quantity.near, other.near)))
                wrong.append(f"the sentence says {quantity.told}, the lines {best.told}")
            elif not quantity.counts:
                missing.append(quantity.told)
    return wrong, missing


def _read(text: str) -> tuple[dict[str, str], list[Quantity]]:
    """The words of a text, by their stems, and its numbers."""
    words: list[tuple[str, str]] = []
    found: list[tuple[str, str, str, int, bool]] = []
    end = -2  # of the number before
    for token in _TOKEN_RE.finditer(multiplied_out(text)):
        word = (token["word"] or "").lower()
        if token["number"] or word in NUMBER_WORDS:
            number = re.sub(r"^0+(?=[0-9])|\.0+$|[_',]", "", str(NUMBER_WORDS.get(word, token["number"])))
            found.append((token[0], number, "", len(words), bool(word)))
            end = token.end()
        elif token.start() - end < 2 and (unit := word if word in UNITS else word[:-1]) in UNITS:
            found[-1] = (f"{found[-1][0]} {token[0]}", found[-1][1], unit, len(words), False)
        elif token.start() == end:
            found.pop()  # it is part of a name, as in `1a`
            end = -2
        elif len(word) > 1 and word not in _STOP_WORDS:
            words.append((_SUFFIX_RE.sub("", word), word))
    quantities = [
        Quantity(told, number, unit, dict(words[max(0, at - _NEAR) : at + _NEAR]), counts)
        for told, number, unit, at, counts in found
    ]
    return dict(words), quantities


def _shared(words: Iterable[str], others: Iterable[str]) -> set[str]:
    """The words that others hold, whole, shortened or lengthened."""
    known = set(others)
    starts = known.union(*map(_starts, known))
    return {word for word in words if word in starts or not known.isdisjoint(_starts(word))}


def _starts(word: str) -> list[str]:
    return [word[:end] for end in range(_STEM, len(word))]
