"""The check of one page: what the answers come to, where the findings stand, what was not asked."""

import re
from argparse import Namespace
from contextlib import suppress

from command.pages import Page
from command.report import UNANSWERED, Finding, PageCheck
from command.terminal import counted
from quenlow.engines.decision import DecisionClient, citation_request
from quenlow.workers.wiki import citation_check
from quenlow.workers.wiki.citation_check import _CITATION_RE, CitationCheck, CitedClaim, CitedSources

_SENTENCE_CHARS = citation_check._DETAIL_CLAIM_CHARS
# Bounded repeats keep a hostile page linear. What follows a name or a closing bracket is an index in code.
_BRACKETED_RE = re.compile(r"(?<![\w)`])\[[^][\n]{3,300}\d\](?![(`])")
_LINES_RE = re.compile(r"\[(?!\w+://)(?=[^:#]*[./])[^:#]*[:#]\s*[Ll]?\d+(?:\s*[-\u2013,]\s*[Ll]?\d+)*\]")
_UNCHECKED_RE = re.compile(r"^ {0,3}(?:\||>|#{1,6}\s).*:L[1-9].*", re.MULTILINE)
_FENCED_RE = re.compile(r"(?ms)^[ \t]*(?:[-*+\d.)]+[ \t]+)*+(```(?!`*[^`\n]+`)|~~~).*?(?:^[ \t]*\1|\Z)")


def judged(page: Page, markdown: str, result: CitationCheck, asked: dict[CitedClaim, str],
           client: DecisionClient, options: Namespace) -> PageCheck:
    """What the answers come to, in the order of the page; places are looked for only where any are needed."""
    check = PageCheck(len(result.checked), file=page.shown, score=result.score, whole=True)
    check.near_citations = _near_citations(markdown)
    if not result.skipped and check.sentences == len(asked) and result.score in (None, 1):
        return check
    answers = {entry.claim: entry.answer for entry in result.checked}
    findings = iter(result.findings(page.id))
    sources = CitedSources(options.repo)
    for claim, (line, column, written) in places(markdown).items():
        verdict, reason = "", ""
        if answer := answers.get(claim):
            if answer.verdict not in citation_check._VERDICT_FINDINGS:
                continue
            severity, kind, _pages, detail = next(findings).values()
            verdict, reason = answer.verdict, answer.reason
        elif claim in asked:
            check.unanswered += 1
            severity, kind = "low", UNANSWERED
            reason = client.unanswered[citation_request(claim.claim, asked[claim])[0]]
            detail = f'{claim.ref} the model gave no answer to: "{claim.claim[:_SENTENCE_CHARS]}"'
        elif sources.passage(claim).strip():
            check.over_cap += 1
            continue
        else:
            check.unreadable += 1
            severity, kind = "medium", "citation-unreadable"
            detail = f"{written} cannot be read: {_why_unreadable(claim, sources)}"
        lines = asked.get(claim, "") if options.show_lines else ""
        cited = (claim.ref, claim.path, claim.start, claim.end, claim.claim, verdict, reason, lines)
        check.findings.append(Finding(severity, kind, detail, page.id, page.shown, line, column, *cited))
    if check.over_cap:
        detail = f"{counted(check.over_cap, 'claim')} skipped, over --wiki-check-citations-per-page"
        check.findings.append(Finding("low", "citations-skipped", detail, page.id, page.shown))
    return check


def places(markdown: str) -> dict[CitedClaim, tuple[int, int, str]]:
    """Where each of the page's cited claims begins, line and column from 1, and its citation as written."""
    # The module cuts the blocks; a tag at the end of each line tells which lines went into one.
    lines, used = [line.rstrip() for line in markdown.split("\n")], set(markdown)
    tag = next(char for char in map(chr, range(0xE000, 0x110000)) if char not in used)
    tagged = "\n".join(f"{line}{tag}{number}" if line else "" for number, line in enumerate(lines, 1))
    line_end = re.compile(f"{tag}([0-9]+)")
    gap = citation_check._SENTENCE_END_RE.pattern.replace(r"\s+", rf"(?:{line_end.pattern})?\s+")
    found: dict[CitedClaim, tuple[int, int, str]] = {}
    for block in citation_check._prose_blocks(tagged):
        begin, line_ends = 0, line_end.finditer(block)
        line = next(line_ends)
        for sentence_end in re.finditer(rf"{gap}|\Z", block):
            sentence = line_end.sub("", block[begin : sentence_end.start()])
            while line.start() < begin:
                line = next(line_ends)
            column = len(lines[int(line[1]) - 1]) - (line.start() - begin) + 1
            claim = citation_check._claim_text(sentence)
            for match in _CITATION_RE.finditer(sentence):
                path, first, last = citation_check.citation_key(match)
                cited = CitedClaim(claim, citation_check._norm(path), first, last)
                found.setdefault(cited, (int(line[1]), column, match[0]))
            begin = sentence_end.end()
    return {claim: found[claim] for claim in citation_check.cited_claims(markdown)}


def _why_unreadable(claim: CitedClaim, sources: CitedSources) -> str:
    if claim.end < claim.start:
        return "the last line is before the first"
    lines = len(sources._texts[claim.path].splitlines())
    if 0 < lines < claim.start:
        return f"the file has only {counted(lines, 'line')}"
    with suppress(OSError, RuntimeError, ValueError):
        file = (sources.root / claim.path).resolve()
        if not file.is_relative_to(sources.root):
            return "the file is outside the repository"
        if not file.exists():
            return "no such file in the repository"
    return "no text there"


def _near_citations(markdown: str) -> list[str]:
    """Bracketed references to lines that are not written, or do not stand, as citations that are checked."""
    text = _FENCED_RE.sub("", markdown) if "```" in markdown or "~~~" in markdown else markdown
    bracketed = _BRACKETED_RE.findall(text)
    near = [one for one in bracketed if not _CITATION_RE.match(one) and _LINES_RE.fullmatch(one)]
    return near + [match[0] for line in _UNCHECKED_RE.findall(text) for match in _CITATION_RE.finditer(line)]
