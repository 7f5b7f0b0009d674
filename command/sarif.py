"""The report of a run as SARIF, the format of code scanning."""

import hashlib
import json
import os
from pathlib import Path
from typing import Any, TextIO
from urllib.parse import quote

from command.report import UNCHECKED, Finding, Report
from command.terminal import printable

_SCHEMA = "https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/sarif-schema-2.1.0.json"
_LEVELS = {"medium": "warning", "low": "note"}


def write(report: Report, out: TextIO) -> None:
    located = [finding for finding in report.findings if finding.file]
    # Code scanning shows a result in its file; what has none is told as a notice about the run.
    notices = [_said(note) | {"level": "note"} for note in report.notes]
    notices += [_said(f.detail) | {"level": _LEVELS[f.severity]} for f in report.findings if not f.file]
    successful = not any(finding.kind in UNCHECKED for finding in report.findings)
    invocation = {"executionSuccessful": successful, "toolExecutionNotifications": notices}
    rules = [{"id": kind, "shortDescription": {"text": kind.replace("-", " ").capitalize()}}
             for kind in sorted({finding.kind for finding in located})]
    run = {"tool": {"driver": {"name": "wiki", "rules": rules}}, "columnKind": "unicodeCodePoints",
           "invocations": [invocation], "results": located}
    json.dump({"$schema": _SCHEMA, "version": "2.1.0", "runs": [run]}, out, indent=2, default=_result)
    out.write("\n")


def _result(finding: Finding) -> dict[str, Any]:
    known_by = "\0".join((finding.page, finding.citation, finding.sentence)).encode(errors="replace")
    cited = _location(finding.path, finding.start, endLine=max(finding.start, finding.end, 1))
    return {
        "ruleId": finding.kind,
        "level": _LEVELS[finding.severity],
        **_said(f"{finding.detail} ({finding.reason})" if finding.reason else finding.detail),
        "locations": [_location(finding.file, finding.line, startColumn=max(finding.column, 1))],
        "relatedLocations": [cited | {"id": 1} | _said(f"cited: {finding.citation}")] if finding.path else [],
        "partialFingerprints": {"sentence/v1": hashlib.sha256(known_by).hexdigest()},
    }


def _said(text: str) -> dict[str, Any]:
    # Nothing that a page says becomes a link of the viewer's, as [text](address) would.
    return {"message": {"text": printable(text).replace("](", "] (")}}


def _location(file: str, line: int, **region: int) -> dict[str, Any]:
    path = Path(file)
    uri = path.as_uri() if path.is_absolute() else quote(os.fsencode(path))
    place = {"artifactLocation": {"uri": uri}, "region": {"startLine": max(line, 1), **region}}
    return {"physicalLocation": place}
