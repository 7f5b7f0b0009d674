"""Where findings stand, and the reports that people and other programs read."""

import io
import json
import random
from dataclasses import replace
from html.parser import HTMLParser

import pytest

from command import html_report, sarif
from command.page_check import places
from command.report import Finding, Report
from command.terminal import printable
from quenlow.workers.wiki.citation_check import cited_claims
from wiki_command import wiki

PAGE = "# Title\n\n" + "".join(f"One sentence of words [src/app.py:L{line}].\n" for line in range(1, 6))
PARTS = [
    "A sentence of words", "[src/app.py:L1]", "[src/app.py:L2-L3]", "[src/a b.py:L4]", "[src/app.py:L0]",
    ".", "!", " ", " ", "  ", "\n", "\n", "\n\n", "\r\n", "\t", "\u2028", "\x0b", "\xa0", "\ue000", "- ", "-",
    "1. ", "7)", "# ", "> ", "|", "```", "~~~\n", "    ", "`code`", "*", "Zwölf", "٣. ",
    "[src/b.py:\nL1]", "]"]
HOSTILE = [
    "</script><script>document.title = 'run'</script>", "\"><img src=x onerror=\"document.title = 'run'\">",
    "{{ 7 * 7 }}{% raw %}", "' onfocus='alert(1)' x='", "<!-- <![CDATA[",
    "</style></title></ol><base href=//x>", "&lt;b&gt; &#60;", "\u202el\u2066\x1b[31m\x00", "\udcff \xe4"]
TEXTS = ("kind", "detail", "page", "file", "citation", "sentence", "verdict", "reason")


def test_the_sentence_of_every_claim_begins_at_its_place():
    dice = random.Random(5)
    for _ in range(2000):
        markdown = "".join(dice.choices(PARTS, k=dice.randint(1, 40)))
        found = places(markdown)
        for claim in cited_claims(markdown):
            line, column, _ = found[claim]
            lines = markdown.split("\n")
            lines[line - 1] = f"{lines[line - 1][: column - 1]}Q{lines[line - 1][column - 1 :]}"
            begun_by_q = [other for other in cited_claims("\n".join(lines)) if other.claim.startswith("Q")]
            assert (claim.path, claim.start) in [(other.path, other.start) for other in begun_by_q], markdown
            assert any(other.claim.endswith(claim.claim[-9:]) for other in begun_by_q), markdown
    assert places(PAGE + "".join(map(chr, range(0xE000, 0xF900))))  # of which any may serve as a mark


@pytest.fixture
def lint(repo, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "wiki").mkdir()
    (tmp_path / "wiki/a,b%.md").write_text(f"{PAGE}Its file is gone [src/gone.py:L1].\n")
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
    (["--format", "github"], 1, "::warning file=wiki/a%2Cb%25.md,line=8,col=1::citation-unreadable: ["),
    (["--format", "sarif"], 1, '"uri": "wiki/a%2Cb%25.md"'), (["--format", "html"], 1, "<figure>"),
    (["--dry-run", "--model-url", "http://127.0.0.1:1/v1", "--model", "none"], 0,
     "wiki/a,b%.md: 5 questions\nwiki/none.md: 0 questions\n")])
def test_format(lint, options, status, part):
    ended, output, errors = wiki(*lint, *options)
    assert (ended, errors) == (status, "") and part in output, output


def written(writer, findings, **figures):
    writer.write(Report(findings=findings, **figures), out := io.StringIO())
    return out.getvalue().encode("ascii").decode()


def outline(html):
    """The elements of a page with the names of their attributes, and its text."""
    parser, elements, text = HTMLParser(), [], []
    parser.handle_starttag = lambda tag, attributes: elements.append((tag, [name for name, _ in attributes]))
    parser.handle_data = text.append
    parser.feed(html)
    return [element for element in elements if element[0] != "span"], "".join(text)


@pytest.mark.parametrize("text", HOSTILE)
def test_no_text_becomes_markup(text):
    def told(each):
        texts = dict.fromkeys(TEXTS, each) | {"lines": f"\n\u2028x = '{each}'"}
        finding = Finding("low", **texts, path="a.py", start=7, end=9)
        return outline(written(html_report, [finding], stopped_at=each, notes=[each]))

    (plain, plain_text), (hostile, hostile_text) = told("plain"), told(text)
    assert plain == hostile and hostile_text.count(printable(text)) == plain_text.count("plain") > 10
    assert f"\\u2028x = '{printable(text)}'" in hostile_text


def test_every_line_is_kept_even_if_a_lexer_does_not_end():
    assert html_report.highlighted('"' + "\n" * 40 + "<b>", "a.smithy")[39:] == ["", "&lt;b&gt;"]
    assert html_report.highlighted("\n\nelse\n\n", "a.py") == ["", "", '<span class="k">else</span>', "", ""]


def test_sarif():
    finding = Finding("medium", "k", "d [x](y:1)", "p", "a b%:\xfc.md", 3, 5, "[c]", "/c\udcff.py", 7, 9, "s")
    moved = replace(finding, line=0, column=0, reason="r", path="")
    other = replace(moved, sentence="o")
    failed = replace(moved, file="", kind="citation-check-failed")
    text = written(sarif, [finding, moved, other, failed], notes=["n"])
    results = json.loads(text)["runs"][0]["results"]
    assert [one["message"]["text"] for one in results] == ["d [x] (y:1)", *["d [x] (y:1) (r)"] * 2]
    prints = [one["partialFingerprints"]["sentence/v1"] for one in results]
    assert prints[0] == prints[1] != prints[2]
    assert results[1]["locations"][0]["physicalLocation"]["region"] == {"startLine": 1, "startColumn": 1}
    assert '"a%20b%25%3A%C3%BC.md"' in text and '"file:///c%FF.py"' in text
    assert text.count('"level": ') == len(results) + 2 and '"executionSuccessful": false' in text
