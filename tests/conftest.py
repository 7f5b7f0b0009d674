import importlib
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "host"), str(ROOT)]
pytest.register_assert_rewrite("support")


@pytest.fixture(scope="session")
def imported():
    return importlib.import_module("quenlow.workers.wiki.citation_check")


@pytest.fixture
def both(imported):
    """A copy of the module for one test, which may change it as it likes, and of its plain Python form."""
    plain = importlib.import_module("bench.load").load_plain()
    return tuple(map(importlib.import_module("support").fresh, (imported, plain)))


@pytest.fixture
def repo(tmp_path):
    return importlib.import_module("harden.ways").repository(tmp_path / "repo")
