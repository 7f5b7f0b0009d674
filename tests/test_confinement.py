"""Nothing from outside the repository reaches a page's questions, whatever is cited and whoever swaps files meanwhile."""

import os
from types import SimpleNamespace

import pytest
from support import Client

from harden.confinement import ATTACKS, FAR_ROOTS, HOSTILE, INSIDE, OUTSIDE, Layout, check_paths, withstand


@pytest.fixture
def layout(tmp_path):
    return Layout(tmp_path)


def test_paths(module, layout):
    assert check_paths(module, layout) >= 60


@pytest.mark.parametrize("attack", ATTACKS, ids=lambda attack: attack.name)
def test_attackers(both, attack):
    withstand(*both, attack, reads=2000)


def test_page_check_of_hostile_citations(module, layout):
    """The page's citations lead outside; only the one that stays inside is asked about."""
    paths = [path for path in map(layout.path, HOSTILE) if not path.startswith("loop") and "\0" not in path]
    module.cited_claims = lambda _page: [module.CitedClaim("A hostile claim", path, 1, 9) for path in (*paths, "f")]
    texts, client = [], Client()
    module.citation_request = lambda _claim, passage: texts.append(passage) or ((("", ""), ("", "")), ())
    result = module.check_citations(client, "", layout.repo, max_questions=10**6)
    assert texts == [INSIDE.strip()] and result.skipped == len(paths)


def test_a_root_that_is_changed_after_the_fact(module, layout):
    """The root that the instance holds at the time of the reading is the one that counts."""
    sources = module.CitedSources(layout.repo)
    for root in FAR_ROOTS:
        sources.root = (layout.folder / root).resolve()
        assert OUTSIDE not in map(sources._read, ("../secret", "away", str(layout.folder / "secret")))
    sources.root = layout.folder
    assert sources._read("secret") == OUTSIDE


def test_no_descriptor_is_left(module, layout):
    sources, before = module.CitedSources(layout.repo), len(os.listdir("/proc/self/fd"))
    for path in (*map(layout.path, HOSTILE), "f", "src", "fifo", "socket", "missing", "loop", "x" * 5000):
        try:
            sources.passage(SimpleNamespace(path=path, start=1, end=1))
        except (RuntimeError, ValueError):
            continue
    assert len(os.listdir("/proc/self/fd")) == before
