"""What was found, and what the check of a page and a whole run came to."""

from collections.abc import Callable
from dataclasses import dataclass, field, fields

from command.terminal import counted

FAILING: dict[str, list[str]] = {"medium": ["medium"], "low": ["medium", "low"], "never": []}  # by --fail-on
CHECK_FAILED, UNANSWERED = "citation-check-failed", "citation-unanswered"
UNCHECKED = {CHECK_FAILED, "page-unreadable", "folder-unreadable"}  # with which a run is not whole


@dataclass(frozen=True, slots=True)
class Finding:
    """Something found on a page, with its place in the page and the citation, as far as it has them."""

    severity: str  # "medium" or "low"
    kind: str
    detail: str
    page: str = ""  # the page's id
    file: str = ""  # the page's file, as the user is shown it
    line: int = 0  # where the sentence begins, both from 1
    column: int = 0
    citation: str = ""  # as a page writes it: "[src/app.py:L1-L3]"
    path: str = ""  # what it cites, relative to the repository
    start: int = 0
    end: int = 0
    sentence: str = ""
    verdict: str = ""
    reason: str = ""
    lines: str = ""  # the cited lines, when the report is to show them


@dataclass(slots=True)
class Counts:
    sentences: int = 0
    questions: int = 0
    input_tokens: int = 0
    over_cap: int = 0
    unreadable: int = 0
    unanswered: int = 0


COUNTS = tuple(count.name for count in fields(Counts))


@dataclass(slots=True)
class PageCheck(Counts):
    file: str = ""  # as the user is shown it
    findings: list[Finding] = field(default_factory=list)
    score: float | None = None  # the share of its sentences that their lines support
    near_citations: list[str] = field(default_factory=list)
    whole: bool = False  # checked to its end
    ended_the_run: bool = False
    unasked: bool = False  # its questions and input tokens are those that it would cost


@dataclass(slots=True)
class Report(Counts):
    """The whole run."""

    pages: int = 0
    known: int = 0  # findings of the baseline, which are not told again
    stopped_at: str = ""  # the page at which the run ended, if not after its last one
    notes: list[str] = field(default_factory=list)
    findings: list[Finding] = field(default_factory=list)
    checks: list[PageCheck] = field(default_factory=list)  # the whole ones
    dry_run: bool = False

    def add(self, check: PageCheck, is_known: Callable[[Finding], bool]) -> None:
        if check.whole:
            self.checks.append(check)
        if check.ended_the_run:
            self.stopped_at = check.file
        told = [finding for finding in check.findings if not (check.whole and is_known(finding))]
        self.findings += told
        self.known += len(check.findings) - len(told)
        for name in COUNTS:
            setattr(self, name, getattr(self, name) + getattr(check, name))

    def conclude(self, repo: object) -> None:
        if self.unanswered and not self.sentences and not self.stopped_at:  # kept answers are answers, too
            last = [finding.reason for finding in self.findings if finding.kind == UNANSWERED][-1]
            self.findings.append(Finding("medium", CHECK_FAILED, f"no question was answered: {last}"))
        cited = self.unreadable + self.sentences
        if self.unreadable > 1 and self.unreadable >= 0.9 * cited:
            many = f"{self.unreadable} of {counted(cited, 'citation')} cannot be read"
            self.notes.append(f"{many}: is {repo} the repository that the pages cite?")
        if near := [f"{one} in {check.file}" for check in self.checks for one in check.near_citations]:
            many = f"not checked: {counted(len(near), 'reference')}, misspelt or in headings, tables, quotes"
            self.notes.append(f"{many}, as {near[0]}: write [src/app.py:L10-L12], in a sentence")
