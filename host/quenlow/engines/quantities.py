"""What the numbers of a text come to: as products, in other units, as sizes of lists."""

import math
import re
from collections.abc import Iterator
from typing import NamedTuple

# What one of a unit is worth in the units that code counts in.
_WORTH = {
    "ms millisecond": (1, 0.001),
    "s second": (1000,),
    "minute": (60, 60_000),
    "hour": (3600, 3_600_000),
    "day": (86_400, 86_400_000),
    "kb kib": (1024, 1000),
    "mb mib": (1 << 20, 10**6),
}
UNITS = {unit: worth for units, worth in _WORTH.items() for unit in units.split()}

# "one" points more often than it counts ("the one that"), so it is no number here.
_WORDS = "zero two three four five six seven eight nine ten twelve fifteen twenty thirty hundred thousand"
NUMBER_WORDS = dict(zip(_WORDS.split(), [0, *range(2, 11), 12, 15, 20, 30, 100, 1000], strict=True))

_PRODUCT_RE = re.compile(r"(?<![\w.])[0-9]{1,9}(?: ?\* ?[0-9]{1,9}\b)+")
_POWER_RE = re.compile(r"(?<![\w.])([12]) ?(?:\*\*|\^|<<) ?([0-9]{1,2})\b(?: ?[-−] ?(1)\b)?")
_LIST_RE = re.compile(r"[\[{]([^][{}]*)[\]}]")


def multiplied_out(text: str) -> str:
    """The text with products, and powers of two, as the numbers that they come to."""
    text = _PRODUCT_RE.sub(lambda product: str(math.prod(map(int, product[0].split("*")))), text)
    return _POWER_RE.sub(lambda power: str((1 << int(power[2])) - bool(power[3])), text)


class Quantity(NamedTuple):
    told: str  # as the text has it
    number: str
    unit: str
    near: dict[str, str]  # words, by their stems
    counts: bool  # it is the size of a list, or stands in words and without a unit

    def equals(self, other: "Quantity") -> bool:
        """One without a unit may count in any that code counts in."""
        if self.unit and other.unit and self.unit != other.unit:
            return not self._worth().isdisjoint(other._worth())
        return self.number in (other.number, *other._worth()) or other.number in self._worth()

    def is_written(self, text: str) -> bool:
        # Also as part of a name, as in `utf8`, or a version in parts, as in `(3, 11)`.
        written = self.number.replace(".", "[^0-9]{1,2}")
        return not self.unit and re.search(rf"(?<![0-9.]){written}(?![0-9])", text) is not None

    def _worth(self) -> set[str]:
        worths = UNITS.get(self.unit, ()) if self.number.count(".") < 2 else ()
        return {f"{float(self.number) * worth:.15g}" for worth in worths}


def list_sizes(code: str) -> Iterator[tuple[str, str]]:
    """The sizes of the innermost lists that code has in brackets or braces, with the line up to each."""
    code = re.sub(r"'[^'\n]*'|\"[^\"\n]*\"", "''", code)
    for found in _LIST_RE.finditer(code):
        size = sum(1 for item in found[1].split(",") if item.strip())
        if size > 1:
            yield str(size), code[code.rfind("\n", 0, found.start()) + 1 : found.start()]
