"""The `wiki` command, with its embedded model; and the types of the command and the host."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent
TRUE, WRONG, OTHER = (
    "The download makes 3 attempts [src/app.py:L1].\n", "The download makes 5 attempts [src/app.py:L1].\n",
    "Penguins migrate across antarctic glaciers [src/app.py:L1].\n")
LINT, CHECK = ([*start, "--repo", "repo", "--consent"] for start in (["lint", "wiki"], ["check", "page.md"]))


@pytest.fixture
def run(repo, imported):
    """Runs a command beside a wiki of these pages; its exit status, and what it printed, errors first."""

    def run(arguments, pages, command=(sys.executable, "-P", "-m", "command")):
        for name, markdown in {"wiki/good": TRUE, **pages}.items():
            (path := repo.parent / f"{name}.md").parent.mkdir(exist_ok=True)
            path.write_bytes(markdown.encode("latin-1"))
        build = str(Path(imported.__file__).parent)
        paths = {"PYTHONPATH": f"{ROOT / 'host'}:{ROOT}", "CITATION_CHECK_BUILD": build}
        environment = os.environ | paths
        ended = subprocess.run([*command, *arguments], cwd=repo.parent, env=environment, capture_output=True)
        return ended.returncode, (ended.stderr + ended.stdout).decode()

    (repo / "src/app.py").write_text("def download(attempts=3):  # makes so many attempts\n")
    return run


@pytest.mark.parametrize("arguments, pages, status, lines", [
    (LINT, {}, 0, ["1 of 1 page checked"]),
    (LINT, {"wiki/b": WRONG, "wiki/a": OTHER}, 1, [
        'low: citation-unsupported: [src/app.py:L1] the cited lines say nothing about: "Penguins migrate',
        'medium: citation-contradicted: [src/app.py:L1] the cited lines contradict: "The download makes 5',
        "3 of 3 pages checked"]),
    (LINT[:-1], {}, 2, ["citation-check-skipped: qep.wiki_check_citations is on", "0 of 1 page"]),
    (LINT, {"wiki/bad": "\xff"}, 2, ["wiki/bad.md is not UTF-8", "1 of 2 pages checked"]),
    (["lint", "nowhere", *LINT[2:]], {}, 2, ["no such folder: "]),
    (CHECK, {"page": TRUE}, 0, ["score 1.00, 1 sentence checked, 0 skipped"]),
    (CHECK, {"page": WRONG + "\n" + TRUE}, 1, ["citation-contradicted: [src/app.py:L1]", "score 0.50"]),
    (CHECK[:-1], {"page": TRUE}, 2, ["citation-check-skipped: "]),
    (CHECK, {}, 2, ["page.md"]), (["bogus"], {}, 2, ["bogus"]), (["lint"], {}, 2, ["required"]),
    (["lint", "wiki", "--repo", "nowhere"], {}, 2, ["nowhere"]),
])
def test_command(run, arguments, pages, status, lines):
    ended, printed = run(arguments, pages)
    assert ended == status and re.search(".*".join(map(re.escape, lines)), printed, re.DOTALL), printed
    assert "Traceback" not in printed


@pytest.mark.skipif(hasattr(sys, "gettotalrefcount"), reason="the launcher runs the release interpreter")
def test_launcher(run):
    status, printed = run(LINT, {}, [ROOT / "wiki"])
    assert status == 0 and "1 of 1 page checked" in printed, printed


def test_types():
    checked = subprocess.run([sys.executable, "-m", "mypy"], cwd=ROOT, capture_output=True, text=True)
    assert checked.returncode == 0, checked.stdout
