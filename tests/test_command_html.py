"""The reports that other programs display: HTML in a browser, SARIF in code scanning."""

import io
import json
from dataclasses import replace
from html.parser import HTMLParser

import pytest

from command import html_report, sarif
from command.html_report import highlighted
from command.report import Finding, Report
from command.terminal import printable

HOSTILE = [
    "</script><script>document.title = 'run'</script>", "\"><img src=x onerror=\"document.title = 'run'\">",
    "{{ 7 * 7 }}{% raw %}", "' onfocus='alert(1)' x='", "<!-- <![CDATA[",
    "</style></title></ol><base href=//x>", "&lt;b&gt; &#60;", "\u202el\u2066\x1b[31m\x00", "\udcff \xe4"]
TEXTS = ("kind", "detail", "page", "file", "citation", "sentence", "verdict", "reason")


def written(writer, findings, **figures):
    writer.write(Report(findings=findings, **figures), out := io.StringIO())
    return out.getvalue().encode("ascii").decode()


def said(text, lines, severity="low"):
    return Finding(severity, **dict.fromkeys(TEXTS, text), path="a.py", start=7, end=9, lines=lines)


class Outline(HTMLParser):
    """The elements of a page with the names of their attributes, and its text."""

    def __init__(self, html):
        super().__init__()
        self.elements, self.text = [], ""
        self.feed(html)

    def handle_starttag(self, tag, attributes):
        self.elements += [(tag, [name for name, _ in attributes])] * (tag != "span")

    def handle_data(self, data):
        self.text += data


@pytest.mark.parametrize("text", HOSTILE)
def test_no_text_becomes_markup(text):
    plain, hostile = (
        Outline(written(html_report, [said(each, f"\n\u2028x = '{each}'")], stopped_at=each, notes=[each]))
        for each in ("plain", text))
    assert plain.elements == hostile.elements
    assert hostile.text.count(printable(text)) == plain.text.count("plain") > 10
    assert f"\\u2028x = '{printable(text)}'" in hostile.text


def test_every_line_is_kept_even_if_a_lexer_does_not_end():
    assert highlighted('"' + "\n" * 40 + "<b>", "a.smithy")[39:] == ["", "&lt;b&gt;"]
    assert highlighted("\n\nelse\n\n", "a.py") == ["", "", '<span class="k">else</span>', "", ""]


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
