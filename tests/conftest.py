"""The module and its plain Python form, and a repository, for each test."""

import pytest

pytest.register_assert_rewrite("support")
from support import fresh  # puts the rest on the path
from bench.load import load_module, load_plain
from harden.ways import repository


@pytest.fixture(scope="session")
def imported():
    return load_module()


@pytest.fixture
def both(imported):
    """A copy of the module for one test, which may change it as it likes, and of its plain Python form."""
    return fresh(imported), fresh(load_plain())


@pytest.fixture
def repo(tmp_path):
    return repository(tmp_path / "repo")
