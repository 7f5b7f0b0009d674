"""Where findings stand, and the formats of the report."""

import json
import random

import pytest

from command.page_check import places
from quenlow.workers.wiki.citation_check import cited_claims
from wiki_command import wiki

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


def test_the_sentence_of_every_claim_begins_at_its_place():
    dice = random.Random(5)
    for _ in range(2000):
        markdown = "".join(dice.choices(PARTS, k=dice.randint(1, 40)))
        found = places(markdown)
        for claim in cited_claims(markdown):
            line, column, written = found[claim]
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
    told = [line for line in text[:-1] if " | " not in line]
    for line, one in zip(told, report["findings"], strict=True):
        place = ":".join(str(one[key]) for key in ("file", "line", "column") if one[key])
        assert line.startswith(f"{place}: {one['severity']}: {one['kind']}: {one['detail']}")
    assert text[0].startswith("wiki/a,b%.md:3:1: low: citation-unsupported: [src/app.py:L1]")
    assert text[1] == "       1 | line 1"
    assert text[-1].endswith("6 findings, 2 claims skipped (1 over the cap, 1 unreadable)")
    assert report["summary"]["over_cap"] == report["pages"][0]["over_cap"] == 1


@pytest.mark.parametrize("options, status, part", [
    (["--format", "github"], 1, "::warning file=wiki/a%2Cb%25.md,line=13,col=1::citation-unreadable: ["),
    (["--format", "sarif"], 1, '"uri": "wiki/a%2Cb%25.md"'), (["--format", "html"], 1, "<!doctype html>"),
    (["--dry-run", "--model-url", "http://127.0.0.1:1/v1", "--model", "none"], 0,
     "wiki/a,b%.md: 5 questions\nwiki/none.md: 0 questions\n")])
def test_format(lint, options, status, part):
    ended, output, errors = wiki(*lint, *options)
    assert (ended, errors) == (status, "") and part in output, output
