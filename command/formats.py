"""The report of a run, in the formats that there are."""

import json
import os
from collections.abc import Callable
from dataclasses import asdict
from importlib import import_module
from typing import TextIO

from command import sarif
from command.report import COUNTS, Finding, Report
from command.terminal import counted, printable

_COLOURS = {"medium": "\033[31mmedium\033[0m", "low": "\033[33mlow\033[0m"}
_LEVELS = {"medium": "warning", "low": "notice"}


def _text(report: Report, out: TextIO) -> None:
    colours = _COLOURS if out.isatty() and not os.environ.get("NO_COLOR") else {}
    for check in report.checks if report.dry_run else ():
        print(f"{printable(check.file)}: {counted(check.questions, 'question')}", file=out)
    for finding in report.findings:
        place = ":".join(str(part) for part in (finding.file, finding.line, finding.column) if part)
        severity = colours.get(finding.severity, finding.severity)
        print(f"{printable(place) or '-'}: {severity}: {_said(finding)}", file=out)
    _conclude(report, out)


def _github(report: Report, out: TextIO) -> None:
    for finding in report.findings:
        place = {"file": finding.file, "line": finding.line, "col": finding.column}
        given = [f"{name}={_escaped(printable(str(value)), ':,')}" for name, value in place.items() if value]
        print(f"::{_LEVELS[finding.severity]} {','.join(given)}::{_escaped(_said(finding))}", file=out)
    _conclude(report, out)


def _json(report: Report, out: TextIO) -> None:
    pages = [{name: getattr(check, name) for name in ("file", *COUNTS, "score")} for check in report.checks]
    summary = {name: getattr(report, name) for name in (*COUNTS, "pages", "known", "stopped_at", "notes")}
    summary |= {"checked": len(report.checks), "findings": len(report.findings)}
    parts = {"findings": report.findings, "pages": pages, "summary": summary}
    # One finding after the other: a long report need not be in memory once more.
    json.dump({"version": 2, "dry_run": report.dry_run, **parts}, out, indent=1, default=asdict)
    out.write("\n")


FORMATS: dict[str, Callable[..., None]] = {
    "text": _text, "json": _json, "github": _github, "sarif": sarif.write,
    "html": lambda *given: import_module("command.html_report").write(*given)}


def _said(finding: Finding) -> str:
    """What the finding says and why; below it the cited lines, if they are to be shown."""
    reason = f" ({finding.reason})" if finding.reason else ""
    said = [printable(f"{finding.kind}: {finding.detail}{reason}")]
    for number, line in enumerate(finding.lines.split("\n") if finding.lines else (), finding.start):
        said.append(f"{number:>8} | {printable(line.expandtabs())}".rstrip())
    return "\n".join(said)


def _escaped(text: str, more: str = "") -> str:
    return "".join(f"%{ord(char):02X}" if char in f"%\r\n{more}" else char for char in text)


def _conclude(report: Report, out: TextIO) -> None:
    for note in report.notes:
        print(printable(f"note: {note}"), file=out)
    questions, skipped = counted(report.questions, "question"), report.over_cap + report.unreadable
    why = f"({report.over_cap} over the cap, {report.unreadable} unreadable)"
    score = report.checks[0].score if len(report.checks) == 1 else None
    parts = [
        f"{len(report.checks)} of {counted(report.pages, 'page')} checked",
        f"{questions} asked", counted(len(report.findings), "finding"),
        skipped and f"{counted(skipped, 'claim')} skipped {why}",
        report.known and f"{report.known} known", report.unanswered and f"{report.unanswered} unanswered",
        f"score {score:.2f}" if score is not None else "",
        report.stopped_at and f"stopped at {report.stopped_at}"]
    if report.dry_run:
        parts[:3] = [f"at most {questions} to ask, of about {counted(report.input_tokens, 'input token')}"]
    print(printable(", ".join(str(part) for part in parts if part)), file=out)
