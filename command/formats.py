"""The report of a lint, as text, as JSON and as GitHub's annotations."""

import json
import math
from collections.abc import Callable, Iterator, Mapping
from pathlib import Path
from typing import Any, TextIO

from command.report import counted, printable, skipped_in_words
from command.run import Outcome
from command.terminal import coloured

Record = dict[str, Any]

_JSON_VERSION = 1
_COLOURS = {"medium": "31", "low": "33"}
_LEVELS = {"medium": "warning", "low": "notice"}


def report(outcome: Outcome, files: Mapping[str, Path], dry_run: bool) -> Record:
    """All that any format tells, in the order of the pages and their lines."""
    order = {page: number for number, page in enumerate(files)}

    def place(record: Record) -> tuple[list[int], float]:
        return [order[page] for page in record["pages"]], record.get("line") or math.inf

    def filed(records: list[Record]) -> list[Record]:
        records = sorted(records, key=place)
        return [{"file": "".join(_shown(files[page]) for page in each["pages"]), **each} for each in records]

    return {
        "version": _JSON_VERSION,
        "dry_run": dry_run,
        "messages": filed(outcome.findings + outcome.notes),
        "pages": filed(outcome.pages),
        "summary": {
            "pages": len(files),
            "checked": len(outcome.pages),
            "questions": outcome.calls,
            "input_tokens": outcome.input_tokens,
            "findings": len(outcome.findings),
            "over_cap": sum(page["over_cap"] for page in outcome.pages),
            "unreadable": sum(page["unreadable"] for page in outcome.pages),
            "stopped_at": outcome.stopped_at and _shown(files[outcome.stopped_at]),
        },
    }


def _text(report: Record, out: TextIO) -> None:
    for page in report["pages"] if report["dry_run"] else ():
        print(printable(f"{page['file']}: {counted(page['questions'], 'question')}"), file=out)
    for message in report["messages"]:
        place = ":".join(str(message[part]) for part in ("file", "line", "column") if message.get(part))
        severity = coloured(message["severity"], _COLOURS[message["severity"]], out)
        print(f"{printable(place) or '-'}: {severity}: {_said(message)}", file=out)
        for line in _quoted(message):
            print(line, file=out)
    print(_in_words(report), file=out)


def _json(report: Record, out: TextIO) -> None:
    print(json.dumps(report, indent=2), file=out)


def _github(report: Record, out: TextIO) -> None:
    for message in report["messages"]:
        properties = {"file": message["file"], "line": message.get("line"), "col": message.get("column")}
        given = {name: _escaped(printable(str(value)), ":,") for name, value in properties.items() if value}
        about = ",".join(f"{name}={value}" for name, value in given.items())
        text = _escaped("\n".join([_said(message), *_quoted(message)]))
        print(f"::{_LEVELS[message['severity']]} {about}::{text}", file=out)
    print(_in_words(report), file=out)


FORMATS: dict[str, Callable[[Record, TextIO], None]] = {"text": _text, "json": _json, "github": _github}


def _shown(file: Path) -> str:
    return str(file.relative_to(Path.cwd()) if file.is_relative_to(Path.cwd()) else file)


def _said(message: Record) -> str:
    return printable(f"{message['kind']}: {message['detail']}")


def _quoted(message: Record) -> Iterator[str]:
    if message.get("cited_lines"):
        for number, line in enumerate(message["cited_lines"].split("\n"), message["start"]):
            yield f"{number:>8} | {printable(line.expandtabs())}".rstrip()


def _escaped(text: str, more: str = "") -> str:
    return "".join(f"%{ord(char):02X}" if char in f"%\r\n{more}" else char for char in text)


def _in_words(report: Record) -> str:
    total = report["summary"]
    questions = counted(total["questions"], "question")
    if report["dry_run"]:
        parts = [f"at most {questions} to ask, of about {counted(total['input_tokens'], 'input token')}"]
    else:
        checked = f"{total['checked']} of {counted(total['pages'], 'page')} checked"
        parts = [checked, f"{questions} asked", counted(total["findings"], "finding")]
    if total["over_cap"] or total["unreadable"]:
        parts.append(skipped_in_words(total["over_cap"], total["unreadable"]))
    if total["stopped_at"]:
        parts.append(f"stopped at {total['stopped_at']}")
    return printable(", ".join(parts))
