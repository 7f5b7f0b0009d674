"""The report of a run, as text, as JSON and as GitHub's annotations."""

import json
import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any, TextIO

from command.run import COUNTS, Files, Message, PageCheck, skipped_in_words
from command.terminal import counted, printable

_JSON_VERSION = 1
_COLOURS = {"medium": "31", "low": "33"}
_LEVELS = {"medium": "warning", "low": "notice"}


def report(checks: list[PageCheck], files: Files, dry_run: bool) -> dict[str, Any]:
    """All that any format tells."""
    here = Path.cwd()
    shown = {"": ""}
    for page, file in files.items():
        shown[page] = str(file.relative_to(here) if file.is_relative_to(here) else file)
    whole = [check for check in checks if check.to_its_end]
    stopped_at = next((shown[check.page] for check in checks if check.ended_the_run), None)
    total = {count: sum(check.counts[count] for check in checks) for count in COUNTS}
    return {
        "version": _JSON_VERSION,
        "dry_run": dry_run,
        "messages": [{"file": shown[check.page]} | message for check in checks for message in check.messages],
        "pages": [{"file": shown[check.page], "pages": [check.page], **check.counts} for check in whole],
        "summary": {"pages": len(files), "checked": len(whole), **total, "stopped_at": stopped_at},
    }


def _text(report: dict[str, Any], out: TextIO) -> None:
    for page in report["pages"] if report["dry_run"] else ():
        print(printable(f"{page['file']}: {counted(page['questions'], 'question')}"), file=out)
    for message in report["messages"]:
        place = ":".join(str(message[part]) for part in ("file", "line", "column") if message.get(part))
        severity = message["severity"]
        if out.isatty() and not os.environ.get("NO_COLOR"):
            severity = f"\033[{_COLOURS[severity]}m{severity}\033[0m"
        print(f"{printable(place) or '-'}: {severity}: {_said(message)}", file=out)
        for line in _quoted(message):
            print(line, file=out)
    print(_in_words(report), file=out)


def _json(report: dict[str, Any], out: TextIO) -> None:
    print(json.dumps(report, indent=2), file=out)


def _github(report: dict[str, Any], out: TextIO) -> None:
    for message in report["messages"]:
        place = {"file": message["file"], "line": message.get("line"), "col": message.get("column")}
        given = [f"{name}={_escaped(printable(str(value)), ':,')}" for name, value in place.items() if value]
        text = _escaped("\n".join([_said(message), *_quoted(message)]))
        print(f"::{_LEVELS[message['severity']]} {','.join(given)}::{text}", file=out)
    print(_in_words(report), file=out)


def _warnings(report: dict[str, Any], out: TextIO) -> None:
    for message in report["messages"]:
        print(_said(message), file=out)
    for page in report["pages"]:
        sentences, skipped = page["sentences"], page["over_cap"] + page["unreadable"]
        score = f"{1 - report['summary']['findings'] / sentences:.2f}" if sentences else "none"
        print(f"score {score}, {counted(sentences, 'sentence')} checked, {skipped} skipped", file=out)


FORMATS = {"text": _text, "json": _json, "github": _github, "warnings": _warnings}


def _said(message: Message) -> str:
    return printable(f"{message['kind']}: {message['detail']}")


def _quoted(message: Message) -> Iterator[str]:
    if message.get("cited_lines"):
        for number, line in enumerate(message["cited_lines"].split("\n"), message["start"]):
            yield f"{number:>8} | {printable(line.expandtabs())}".rstrip()


def _escaped(text: str, more: str = "") -> str:
    return "".join(f"%{ord(char):02X}" if char in f"%\r\n{more}" else char for char in text)


def _in_words(report: dict[str, Any]) -> str:
    total = report["summary"]
    questions = counted(total["questions"], "question")
    if report["dry_run"]:
        parts = [f"at most {questions} to ask, of about {counted(total['input_tokens'], 'input token')}"]
    else:
        checked = f"{total['checked']} of {counted(total['pages'], 'page')} checked"
        parts = [checked, f"{questions} asked", counted(total["findings"], "finding")]
    if total["over_cap"] or total["unreadable"]:
        parts.append(skipped_in_words(total))
    if total["stopped_at"]:
        parts.append(f"stopped at {total['stopped_at']}")
    return printable(", ".join(parts))
