"""The `wiki` command with its embedded model: pages, options, messages, exit statuses."""

import os
import re
import subprocess
import sys

import pytest

from command import pages
from command.arguments import parsed
from wiki_command import ENVIRONMENT, ROOT, wiki

TRUE, WRONG, OTHER = (
    "The download makes 3 attempts [src/app.py:L1].\n", "The download makes 5 attempts [src/app.py:L1].\n",
    "P\xc3\xa4nguins migrate across antarctic glaciers [src/app.py:L1].\n")
GONE = "".join(TRUE.replace("src/app.py:L1", cited) for cited in (
    "/src/gone.py:L1", "src/app.py:L7", "../wiki/good.md:L1", "src/app.py:L3-L1"))
KNOWN = {"repo/known": f"../wiki/a.md\t[src/app.py:L1]\tThe download makes 5 attempts.\n{'x' * 300}\t\t\n"}
NEAR = ("Attempts [src/app.py:1-3] and [app.py#L1] are [a](b.md#L1) `[a.py:1]`.\n\n# As in [src/app.py:L1]\n"
        f"* ```x```\n- ```\n  [a.py:1]\n  {WRONG}\n  ```\n{TRUE}\n")
LINT, CHECK = ([*start, "--repo", "repo", "--consent"] for start in (["lint", "wiki"], ["check", "page.md"]))


ONE_WRONG, SETTINGS = {"wiki/a.md": WRONG}, 'fail-on = "never"\nexclude = ["b.md"]\nshow-lines = true'


@pytest.fixture
def files(repo, monkeypatch):
    """Writes files beside a repository of one source file, and a wiki of one good page."""

    def write(**texts):
        given = {"wiki/good.md": TRUE, "repo/src/app.py": "def download(attempts=3): pass\n"}
        for name, text in (given | texts).items():
            (path := repo.parent / name).parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(text.encode("latin-1"))
        return repo.parent

    monkeypatch.chdir(repo.parent)
    return write


@pytest.mark.parametrize("arguments, texts, status, said", [
    (LINT, {"wiki/b.md": WRONG, "wiki/a.md": OTHER}, 1, [
        'a.md:1:1: low: citation-unsupported: [src/app.py:L1] the cited lines say nothing about: "P\\xe4n',
        'b.md:1:1: medium: citation-contradicted: [src/app.py:L1] the cited lines contradict: "The download',
        '" (the sentence says 5', "3 of 3 pages checked"]),
    (LINT[:-1], {}, 2, ["nothing is checked without --consent"]),
    (LINT, {"wiki/bad.md": "\xff"}, 2, ["wiki/bad.md is not UTF-8", "1 of 2 pages checked"]),
    (["lint", "nowhere", *LINT[2:]], {}, 2, ["no such folder or page: /", "/nowhere ("]),
    (["lint", "wiki", "b.md", "wiki/good.md", *LINT[2:]], {"b.md": OTHER}, 1, ["b.md:1:1: low", "2 of 2"]),
    (CHECK, {"page.md": TRUE}, 0, ["1 of 1 page checked, 1 question asked, 0 findings, score 1.00"]),
    (CHECK, {"page.md": f"{WRONG}\n{TRUE}"}, 1, ["page.md:1:1: medium: citation-contra", "score 0.50"]),
    (["check", *LINT[1:]], {}, 2, ["takes one page"]),
    (LINT, {"wiki/a.md": GONE}, 1, ["a.md:1:1: medium: citation-unreadable: [/src/gone.py:L1]",
        "no such file", "has only 1 line\n", "outside the repo", "last line is before"]),
    (LINT, {"wiki/good.md": OTHER.replace("app", "a") + OTHER.replace("src", "b")}, 1, [
        "note: 2 of 2 citations cannot be read: is ", "/repo the repository"]),
    (LINT, {"wiki/a.md": NEAR}, 0, ["not checked: 3 references", "as [src/app.py:1-3] in wiki/a.md", " 0 "]),
    ([*LINT, "--wiki-check-citations-per-page", "1"], {"wiki/a.md": f"{TRUE}\n{OTHER}"}, 1, [
        "a.md: low: citations-skipped: 1 claim", "(1 over the cap, 0 unreadable)"]),
    ([*LINT, "--exclude", "old", "--exclude", "*.draft.md"], dict.fromkeys(["wiki/old/x/a.md",
        "wiki/b.draft.md", "wiki/.git/a.md", "wiki/node_modules/a.md"], WRONG), 0, ["1 of 1"]),
    ([*LINT, "--fail-on", "low"], ONE_WRONG | {"wiki/b.md": WRONG, "repo/wiki.toml": SETTINGS}, 1, [
        " 1 | def", "1 finding"]),
    (LINT, {"repo/pyproject.toml": '[tool.wiki]\nfail-on = "never"', **ONE_WRONG}, 0, ["1 finding"]),
    (LINT, {"repo/wiki.toml": "fail_hard = 1"}, 2, ["wiki.toml: unknown key: fail_hard"]),
    (LINT, {"repo/wiki.toml": 'cache = "/x"'}, 2, ["wiki.toml: cache is for the command line"]),
    (LINT, {"repo/pyproject.toml": "tool.wiki = 1"}, 2, ["cannot read", "pyproject.toml"]),
    ([*LINT, "--baseline", "repo/src/app.py"], {}, 2, ["is no baseline"]),
    ([*LINT, "--baseline", "no/known", "--write-baseline"], {}, 2, ["no baseline can be written in"]),
    ([*LINT, "--max-calls-per-batch", "-1"], {}, 2, ["not a count"]),
    (LINT, {"repo/wiki.toml": "exclude = ['a', 1]"}, 2, ["wiki.toml: exclude takes a value of type list"]),
    ([*LINT, "--output", "new.md"], {}, 2, ["the report would replace, or be, a page"]),
    ([*LINT, "--output", "repo/known", "--baseline", "repo/known"], KNOWN, 2, ["a page or the baseline"]),
    ([*LINT, "--output", "/dev/stdout", "--fail-on", "medium"], {"wiki/a.md": OTHER}, 0, ["1 finding"]),
    (LINT, {"wiki/a.md": f"\xef\xbb\xbf{WRONG}"}, 1, [': "The']),
    (LINT, {"repo/wiki.toml": 'show-lines=false\nbaseline="known"', **KNOWN, **ONE_WRONG}, 0, [" 1 known"]),
    ([*LINT, "--dry-run", "--baseline", "repo/known", "--write-baseline"], KNOWN, 0, [
        "wiki/good.md: 1 question\nat most 1 question to ask"]),
])
def test_command(files, arguments, texts, status, said):
    files(**texts)
    ended, output, errors = wiki(*arguments)
    printed = errors + output
    assert ended == status and re.search(".*".join(map(re.escape, said)), printed, re.DOTALL), printed
    assert "Traceback" not in printed and "qep" not in printed and errors.count("\n") <= 1


def test_a_folder_that_cannot_be_read(files, monkeypatch):
    top, scandir = files(**{"wiki/shut/a.md": TRUE, "wiki/open/a.md": TRUE}), os.scandir
    # As it is deleted while the others are read: root, who may run this, is refused nothing.
    monkeypatch.setattr(os, "scandir", lambda path: scandir(path.replace("shut", "lost")))
    found, findings = pages.find_pages(parsed(LINT))
    assert [page.id for page in found] == ["good", "open/a"]
    assert [(one.kind, one.file) for one in findings] == [("folder-unreadable", "wiki/lost")]


def test_baseline(files):
    lint = [*LINT, "--baseline", "repo/known", "--write-baseline"]
    top = files(**{"wiki/a.md": f"{WRONG}\n{OTHER}", "wiki/b.md": WRONG})
    assert wiki(*lint) == (0, "3 of 3 pages checked, 3 questions asked, 0 findings, 3 known\n", "")
    known = (top / "repo/known").read_text().splitlines()
    assert known == sorted(known)
    assert known[2] == "../wiki/b.md\t[src/app.py:L1]\tThe download makes 5 attempts."
    files(**{"wiki/a.md": f"New here.\n\n{OTHER}", "wiki/c.md": WRONG})
    status, output, _ = wiki(*lint[:-1])
    assert status == 1 and "c.md:1:1: medium" in output and "1 finding, 2 known" in output
    assert "note: no longer found: ../wiki/a.md [src/app.py:L1] The download makes 5" in output
    # What was not looked at stays known.
    assert wiki("lint", "wiki/a.md", *lint[2:])[0] == 0
    assert (top / "repo/known").read_text().splitlines() == [known[0], known[2]]


@pytest.mark.parametrize("redirected, status", [
    (">&-", 0), ("2>&-", 0), (">/dev/full", 2), ("| true; exit ${PIPESTATUS[0]}", 2)])
def test_an_output_that_takes_nothing(files, redirected, status):
    files(**{f"wiki/{number}.md": TRUE for number in range(9)})
    call = f"{sys.executable} -P -m command {' '.join(LINT)} --format json {redirected}"
    ended = subprocess.run(["bash", "-c", call], env=ENVIRONMENT, capture_output=True, text=True, timeout=60)
    assert (ended.returncode, ended.stderr.count("\n")) == (status, redirected == ">/dev/full"), ended


def test_types():
    checked = subprocess.run([sys.executable, "-m", "mypy"], cwd=ROOT, capture_output=True, text=True)
    assert checked.returncode == 0, checked.stdout
