"""The embedded decision model: offline, deterministic, and no more than a comparison of words."""

import re
from collections.abc import Callable
from typing import NamedTuple

from quenlow.engines.model import Question, State

_ENOUGH = 0.4  # the share of a sentence's words that its lines must hold
_NEAR = 4  # how many words away from a number stands what it counts or names
_STEM = 4  # "char" stands for "characters"; a shorter word stands for itself alone

_NUMBER = r"0[xX][0-9a-fA-F]{1,16}|[0-9]{1,30}(?:[_',][0-9]{3})*(?:\.[0-9]{1,30})*"
_TOKEN_RE = re.compile(
    rf"(?<![^\W\d])(?P<number>{_NUMBER})|(?P<digits>{_NUMBER})"
    r"|(?P<word>[A-Z]{2,40}(?![a-z])|[A-Z]?[^\W\d_A-Z]{1,40})"
)
_SUFFIX_RE = re.compile(r"(?<=...)(?:ings?|ions?|ed|ers?|ies|e?s|ly|y|e)$")

# "one" points more often than it counts ("the one that"), so it is no number here.
_SMALL = "zero - two three four five six seven eight nine ten eleven twelve thirteen fourteen fifteen sixteen"
_NUMBER_WORDS = {word: str(number) for number, word in enumerate(_SMALL.split())}
_TENS = "twenty thirty forty fifty sixty seventy eighty ninety hundred"
_NUMBER_WORDS |= {word: str(number) for number, word in zip(range(20, 110, 10), _TENS.split())}

_STOP_WORDS = frozenset(
    "a about after again all also always an and another any are as at be because been before being"
    " between both but by can cannot could did do does done each either else every few first for from get"
    " gets give given gives goes had has have here how however if in into is it its itself just last like"
    " made make makes many may more most much must neither never no none nor not nothing now of off often"
    " on once one only or other others our out over own same shall should since so some such take takes"
    " than that the their them then there these they this those through to too under until up upon us use"
    " used uses using very via was we were what when where whether which while who whose why will with"
    " within without would yet you your".split()
)


class WordModel:
    """Compares words, not meaning: looks for a sentence's words, identifiers and numbers in its cited lines.

    When too few of the words are there, the lines say nothing about the sentence. When a number is not
    there, they contradict it if they hold another number next to the same words, and else say nothing.
    A sentence that says the opposite in the same words passes.
    """

    name = "words"

    def answer(self, state: State, question: Question, should_stop: Callable[[], bool]) -> str:
        sentence, lines = (_read(text) for _name, text in state)
        present = sentence.numbers.keys() & (lines.numbers.keys() | lines.digits)
        missing = sentence.numbers.keys() - present
        rivals = lines.numbers.keys() - sentence.numbers.keys()
        counted_otherwise = _shared(sentence.words, set().union(*(lines.numbers[rival] for rival in rivals)))
        wrong = {number for number in missing if sentence.numbers[number] & counted_otherwise}
        # A wrong number weighs as much as a right one: it must not turn the sentence into another subject.
        numbers = len(present) + len(wrong)
        found = len(_shared(sentence.words, lines.words)) + numbers
        if found < max(1, _ENOUGH * (len(sentence.words) + numbers)):
            return "says_nothing"
        if wrong:
            return "contradicts"
        return "says_nothing" if missing else "supports"


class _Text(NamedTuple):
    words: set[str]
    numbers: dict[str, set[str]]  # with the words near each
    digits: set[str]  # numbers that are part of a name, as in `utf8`


def _read(text: str) -> _Text:
    words: list[str] = []
    places: list[tuple[str, int]] = []
    digits: set[str] = set()
    for token in _TOKEN_RE.finditer(text):
        word = (token["word"] or "").lower()
        if token["digits"]:
            digits.add(_plain(token["digits"]))
        elif number := _NUMBER_WORDS.get(word) or token["number"]:
            places.append((_plain(number), len(words)))
        elif len(word) > 1 and word not in _STOP_WORDS:
            words.append(_SUFFIX_RE.sub("", word))
    numbers: dict[str, set[str]] = {}
    for number, at in places:
        numbers.setdefault(number, set()).update(words[max(0, at - _NEAR) : at + _NEAR])
    return _Text(set(words), numbers, digits)


def _plain(number: str) -> str:
    if number[:2] in ("0x", "0X"):
        return str(int(number, 16))
    return re.sub(r"\.0+$|[_',]", "", number).lstrip("0") or "0"


def _shared(words: set[str], others: set[str]) -> set[str]:
    """The words that others hold, whole, shortened or lengthened."""
    stems = set().union(*map(_stems, others))
    return {word for word in words if word in stems or _stems(word) & others}


def _stems(word: str) -> set[str]:
    return {word, *(word[:end] for end in range(_STEM, len(word)))}
