"""The wiki about the module itself holds against the lines that it cites, and a falsified page does not."""

import re
from pathlib import Path

import pytest
from quenlow.engines.decision import DecisionClient, DecisionConfig
from quenlow.engines.word_model import WordModel

ROOT = Path(__file__).resolve().parent.parent
PAGES = {page.stem: page.read_text(encoding="utf-8") for page in sorted((ROOT / "docs/wiki").glob("*.md"))}


@pytest.fixture
def check(module):
    """Checks a page; its result."""
    config = DecisionConfig(wiki_check_citations=True, allow_source_upload=True)
    return lambda page: module.check_citations(
        DecisionClient(config, WordModel()), page, ROOT, max_questions=1000
    )


@pytest.mark.parametrize("page", PAGES)
def test_true_page(check, page):
    result = check(PAGES[page])
    assert (result.findings(page), result.skipped) == ([], 0)
    assert len(result.checked) >= 10


@pytest.mark.parametrize("page, number, wrong, moved", [
    ("way-of-a-page", "2200", "2300", "cuts passages out of them"),
    ("failure-and-threads", "is 200", "is 300", "each reference is released exactly once"),
    ("fast-roads", "256", "512", "it made one space"),
    ("function-type", "has 8", "has 9", "go by the qualified name"),
    ("confinement", "4096", "8192", "a device is not touched"),
])
def test_falsified_page(check, page, number, wrong, moved):
    falsified, numbers = re.subn(number, wrong, PAGES[page])
    falsified, citations = re.subn(rf"({moved}\s)\[[^]]*]", r"\1[scripts/setup:L1-L9]", falsified)
    assert numbers == citations == 1
    kinds = [finding["kind"] for finding in check(falsified).findings(page)]
    assert sorted(kinds) == ["citation-contradicted", "citation-unsupported"]
