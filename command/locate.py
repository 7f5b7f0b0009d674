"""Where the cited sentences of a page stand."""

import re

from quenlow.workers.wiki import citation_check
from quenlow.workers.wiki.citation_check import CitedClaim

_PRIVATE_USE = range(0xE000, 0xF900)


def places(markdown: str) -> dict[CitedClaim, dict[str, int]]:
    """The page's cited claims, each with the line and the column, from 1, at which its sentence begins."""
    # The module cuts the blocks; a tag at the end of each line tells which lines went into one.
    tag = next(char for char in map(chr, _PRIVATE_USE) if char not in markdown)
    lines = [line.rstrip() for line in markdown.split("\n")]
    tagged = "\n".join(f"{line}{tag}{number}" if line else "" for number, line in enumerate(lines, 1))
    line_end = re.compile(f"{tag}([0-9]+)")
    gap = citation_check._SENTENCE_END_RE.pattern.replace(r"\s+", rf"(?:{line_end.pattern})?\s+")
    found: dict[CitedClaim, dict[str, int]] = {}
    for block in citation_check._prose_blocks(tagged):
        begin = 0
        for sentence_end in re.finditer(rf"{gap}|\Z", block):
            sentence = line_end.sub("", block[begin : sentence_end.start()])
            line = line_end.search(block, begin)
            assert line
            column = len(lines[int(line[1]) - 1]) - (line.start() - begin) + 1
            place = {"line": int(line[1]), "column": column}
            claim = citation_check._claim_text(sentence)
            for match in citation_check._CITATION_RE.finditer(sentence):
                path, first, last = citation_check.citation_key(match)
                found.setdefault(CitedClaim(claim, citation_check._norm(path), first, last), place)
            begin = sentence_end.end()
    return {claim: found[claim] for claim in citation_check.cited_claims(markdown)}
