"""Where the cited sentences of a page stand."""

import re
from bisect import bisect
from collections.abc import Iterator

from quenlow.workers.wiki import citation_check
from quenlow.workers.wiki.citation_check import CitedClaim

_PRIVATE_USE = range(0xE000, 0xF900)


def places(markdown: str) -> dict[CitedClaim, tuple[int, int]]:
    """The line and the column, from 1, at which the sentence of each cited claim begins."""
    found: dict[CitedClaim, tuple[int, int]] = {}
    for block, pieces in _blocks(markdown):
        starts = [start for start, _line, _column in pieces]
        end = 0
        for sentence in citation_check._SENTENCE_END_RE.split(block):
            begin = block.index(sentence, end)
            end = begin + len(sentence)
            start, line, column = pieces[bisect(starts, begin) - 1]
            claim = citation_check._claim_text(sentence)
            for match in citation_check._CITATION_RE.finditer(sentence):
                path, first, last = citation_check.citation_key(match)
                record = CitedClaim(claim, citation_check._norm(path), first, last)
                found.setdefault(record, (line, column + begin - start))
    return found


def _blocks(markdown: str) -> Iterator[tuple[str, list[tuple[int, int, int]]]]:
    """Each prose block with the pieces it is made of: their place in the block, and line and column."""
    # The module cuts the blocks; a tag at the end of each line tells which lines went into one.
    tag = next(char for char in map(chr, _PRIVATE_USE) if char not in markdown)
    lines = [line.rstrip() for line in markdown.split("\n")]
    tagged = "\n".join(f"{line}{tag}{number}" if line else "" for number, line in enumerate(lines, 1))
    for tagged_block in citation_check._prose_blocks(tagged):
        block, pieces = "", []
        for text, number in re.findall(f"([^{tag}]*){tag}([0-9]+) ?", tagged_block):
            block += " " if block else ""
            pieces.append((len(block), int(number), len(lines[int(number) - 1]) - len(text) + 1))
            block += text
        yield block, pieces
