"""Where findings stand, what was skipped, and the formats of the report."""

import json
import os
import pty
import random

import pytest

from command.locate import places
from quenlow.workers.wiki.citation_check import cited_claims
from wiki_command import ENVIRONMENT, start, wiki

PAGE = """\
# Title

One sentence of words [src/app.py:L1]. Another sentence
  of words [src/app.py:L2], which goes on. `Code`
begins a third [src/app.py:L3-L4].

```
Not this sentence [src/app.py:L5].
```
12)   An item [src/app.py:L6]
\tgoes on. Not this sentence [src/app.py:L5].
One sentence of words [src/app.py:L1].\r
Its file is gone \ue000 [src/gone.py:L1].
"""
PARTS = [
    "A sentence of words", "[src/app.py:L1]", "[src/app.py:L2-L3]", "[src/a b.py:L4]", "[src/app.py:L0]",
    ".", "!", " ", " ", "  ", "\n", "\n", "\n\n", "\r\n", "\t", "\u2028", "\x0b", "\xa0", "\ue000", "- ", "-",
    "1. ", "7)", "# ", "> ", "|", "```", "~~~\n", "    ", "`code`", "*", "Zwölf", "٣. ",
    "[src/b.py:\nL1]", "]"]


def test_places():
    found = {(claim.path[4:], claim.start): tuple(place.values()) for claim, place in places(PAGE).items()}
    assert found == {
        ("app.py", 1): (3, 1), ("app.py", 2): (3, 40), ("app.py", 3): (4, 44), ("app.py", 6): (10, 7),
        ("app.py", 5): (11, 11), ("gone.py", 1): (13, 1)}


def test_the_sentence_of_every_claim_begins_at_its_place():
    dice = random.Random(5)
    for _ in range(2000):
        markdown = "".join(dice.choices(PARTS, k=dice.randint(1, 40)))
        found = places(markdown)
        for claim in cited_claims(markdown):
            line, column = found[claim].values()
            lines = markdown.split("\n")
            lines[line - 1] = f"{lines[line - 1][: column - 1]}Q{lines[line - 1][column - 1 :]}"
            begun_by_q = [other for other in cited_claims("\n".join(lines)) if other.claim.startswith("Q")]
            assert (claim.path, claim.start) in [(other.path, other.start) for other in begun_by_q], markdown
            assert any(other.claim.endswith(claim.claim[-9:]) for other in begun_by_q), markdown


@pytest.fixture
def lint(repo, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "wiki").mkdir()
    (tmp_path / "wiki/a,b%.md").write_text(PAGE)
    (tmp_path / "wiki/none.md").write_text("Nothing cited.\n")
    return ["lint", "wiki", "--repo", "repo", "--consent"]


def test_json_holds_what_the_text_says(lint, tmp_path):
    lint += ["--show-lines", "--wiki-check-citations-per-page", 4]
    text = wiki(*lint)[1].splitlines()
    assert wiki(*lint, "--format", "json", "--output", "report") == (1, "", "")
    report = json.loads((tmp_path / "report").read_text())
    told = []
    for message in report["messages"]:
        place = ":".join(str(message[key]) for key in ("file", "line", "column") if key in message)
        told.append(f"{place}: {message['severity']}: {message['kind']}: {message['detail']}")
        cited = message.get("cited_lines", "").splitlines()
        told += [f"{number:>8} | {line}" for number, line in enumerate(cited, message.get("start", 0))]
    assert text[:-1] == told
    assert text[0].startswith("wiki/a,b%.md:3:1: low: citation-unsupported: [src/app.py:L1]")
    assert text[1] == "       1 | line 1" and text[-1].startswith("2 of 2 pages checked, 4 questions asked, ")
    assert text[-1].endswith(", 4 findings, 2 claims skipped (1 over the cap, 1 unreadable)")
    assert report["summary"]["over_cap"] == report["pages"][0]["over_cap"] == 1


def test_github_annotations(lint):
    printed = wiki(*lint, "--format", "github")[1].splitlines()
    start_of_page = "::notice file=wiki/a%2Cb%25.md"
    assert printed[0].startswith(f"{start_of_page},line=3,col=1::citation-unsupported: [src/app.py:L1]")
    assert printed[5].startswith(f"{start_of_page},line=13,col=1::citation-unreadable: [src/gone.py:L1]")
    assert printed[6].endswith("::citations-skipped: 1 claim skipped (0 over the cap, 1 unreadable)")


def test_dry_run_asks_nothing(lint):
    lint[-1:] = ["--dry-run", "--model-url", "http://127.0.0.1:1/v1", "--model", "none"]
    status, output, _ = wiki(*lint)
    assert status == 0 and output.startswith("wiki/a,b%.md: 5 questions\nwiki/none.md: 0 questions\n")


@pytest.mark.parametrize("arguments, error", [
    (["--output", "missing/report"], "No such file or directory"),
    (["--model", "small"], "--model-url and --model go together"),
    (["--max-calls-per-batch", "-1"], "not a count"),
    (["--workers", "1", "--scheduler", "x"], "not allowed with"),
    (["--scheduler", "nonsense"], "the Dask cluster nonsense does not answer"),
])
def test_errors_are_one_line(lint, arguments, error):
    status, _, errors = wiki(*lint, *arguments)
    assert status == 2 and errors.count("\n") == 1 and error in errors


@pytest.mark.parametrize("no_color", ["", "1"])
def test_a_terminal_shows_colour_and_progress(lint, no_color):
    ours, theirs = pty.openpty()
    start(lint, env=ENVIRONMENT | {"NO_COLOR": no_color}, stdout=theirs, stderr=theirs).wait()
    os.close(theirs)
    shown = os.read(ours, 65536).decode()
    assert ("\033[33mlow\033[0m" in shown) == (not no_color) and "/2 [" in shown


def test_version():
    assert wiki("--version")[1].startswith("wiki 1.")
