"""The embedded decision model: offline, deterministic, and no more than a comparison of words and numbers."""

import re
from collections.abc import Callable, Iterable

from quenlow.engines.model import Answer, Question, State
from quenlow.engines.quantities import NUMBER_WORDS, UNITS, Quantity, list_sizes, multiplied_out

_ENOUGH = 0.22  # the share of a sentence that its lines must hold
_NUMBER_FOUND, _NAME_ABSENT = 3, 9  # what they weigh, where a word weighs 1
_BEFORE, _AFTER = 4, 3  # how many words around a number may say what it counts or names

_NUMBER = r"[0-9]{1,30}(?:[_',][0-9]{3})*(?:\.[0-9]{1,30})*"
_TOKEN_RE = re.compile(
    r"(?<![^\W\d])(?<![^\W\d][-/])(?<![A-Z]{2} (?=[0-9]{4}))"
    rf"(?P<number>{_NUMBER}|(?i:{'|'.join(NUMBER_WORDS)}))"
    rf"(?:\W?(?P<unit>(?i:{'|'.join(UNITS)}))s?\b|(?![^\W\d]))"
    rf"|{_NUMBER}|(?P<word>[A-Z]{{2,40}}(?![a-z])|[A-Z]?[^\W\d_A-Z]{{1,40}})"
)
# In backticks, unless the lines may be the body of what they name; in capitals, as in "ISO 8601"; `0x7f`.
_NAME_RE = re.compile(
    r"(?<!^)`([^`\s]+)`|\b0[xo]\w{1,40}"
    r"|(?<![\w`/.-])[A-Z](?:[A-Z]{2,40}|\w{1,40}(?=-[0-9]))(?:-?[0-9]{1,9}| [0-9]{4,9})?(?![\w`])"
)
_SUFFIX_RE = re.compile(r"(?<=..)s$|(?<=...)(?:ings?|ions?|ed|ers?|ies|e?s|ly|y|e)$")


def _stem(word: str) -> str:
    return _SUFFIX_RE.sub("", word).replace("our", "or").replace("is", "iz")  # in American spelling


# Grammar, and what nearly all code and nearly all sentences about code have.
_STOP_STEMS = frozenset(map(_stem, (
    "a about after again all allow already also always an and another any are as asks at be because become"
    " been before between both but by calls can come could count default do does each either else enable even"
    " first for from gets given goes had has have here how however if in into is it just keep kept last later"
    " left let like look made makes many may mean more most much must neither never no none nor not nothing"
    " now of off often on once one only or other otherwise out over own same say set should since so some"
    " stand still such take taken tell than that the their them then there these thing this those through to"
    " told too turn under unless until up used uses using value very via was way we were what when where"
    " which while who whose why will with within without work would yet you your"
).split()))


class WordModel:
    """Lines support a sentence if they hold enough of it, by weight, and have nothing exact otherwise."""

    name = "words 4"
    costs = False

    def answer(self, state: State, question: Question, should_stop: Callable[[], bool]) -> Answer:
        (_, claim), (_, passage) = state
        (words, quantities), (known, others) = _read(claim), _read(passage.replace("\\n", " newline "))
        shared = _shared(words, known)
        wrong, missing, absent = _unsupported(quantities, others, passage)
        # A wrong number weighs as much as a right one: it must not turn the sentence into another subject.
        found = len(shared) + _NUMBER_FOUND * (len(quantities) - len(missing) - len(absent))
        for name in dict.fromkeys(match[1] or match[0] for match in _NAME_RE.finditer(claim)):
            if not _read(name)[0].keys() <= shared:
                absent.append(name)
            elif not all(digits in passage for digits in re.findall("[0-9]+", name)):
                missing.append(name)
        lost = len(words) - len(shared) + _NAME_ABSENT * len(absent)
        enough = found and found >= _ENOUGH * (found + lost)
        if enough and wrong:
            return Answer("contradicts", "; ".join(wrong))
        if enough and not missing:
            return Answer("supports", "")
        absent = missing + absent or [word for stem, word in words.items() if stem not in shared]
        return Answer("says_nothing", f"not in the lines: {', '.join(absent[:5])}")


def _unsupported(said: list[Quantity], lines: list[Quantity], passage: str) -> tuple[list[str], ...]:
    """The numbers of a sentence that the lines have otherwise, that they lack, and counts that they lack."""
    wrong, missing, counts = list[str](), list[str](), list[str]()
    sizes = [Quantity(f"{n} items", n, "", _read(label)[0], True) for n, label in list_sizes(passage)]
    for quantity in said:
        others = lines if quantity.unit else lines + sizes
        if quantity.is_written(passage) or any(map(quantity.equals, others)):
            continue
        near = [other for other in others if _shared(quantity.near, other.near)]
        # A count in words may be of anything: only the size of a list can show that it is wrong.
        rivals = [one for one in near if one.counts >= quantity.counts and not any(map(one.equals, said))]
        if rivals:
            best = max(rivals, key=lambda other: len(_shared(quantity.near, other.near)))
            wrong.append(f"the sentence says {quantity.told}, the lines {best.told}")
        else:
            (counts if quantity.counts else missing).append(quantity.told)
    return wrong, missing, counts


def _read(text: str) -> tuple[dict[str, str], list[Quantity]]:
    words: list[tuple[str, str]] = []
    found: list[tuple[str, str, str, int, bool]] = []
    for token in _TOKEN_RE.finditer(multiplied_out(text)):
        if number := token["number"]:
            unit = (token["unit"] or "").lower()
            plain = re.sub(r"^0+(?=[0-9])|\.0+$|[_',]", "", str(NUMBER_WORDS.get(number.lower(), number)))
            found.append((token[0], plain, unit, len(words), number.isalpha() and not unit))
        elif token["word"] and len(token["word"]) > 1:
            words.append((_stem(token["word"].lower()), token["word"]))
    quantities = [
        Quantity(told, number, unit, _telling(words[max(0, at - _BEFORE) : at + _AFTER]), counts)
        for told, number, unit, at, counts in found
    ]
    return _telling(words), quantities


def _telling(words: list[tuple[str, str]]) -> dict[str, str]:
    return {stem: word for stem, word in words if stem not in _STOP_STEMS}


def _shared(words: Iterable[str], others: Iterable[str]) -> set[str]:
    """The words that others hold, whole or as "req" stands for "request"; a shorter one is no such stem."""
    known = set(others)
    starts = known | {other[:end] for other in known for end in range(3, len(other))}
    return {it for it in words if it in starts or any(it[:end] in known for end in range(3, len(it)))}
