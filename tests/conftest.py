"""The module and its plain Python form, and a repository, for each test."""

from inspect import signature

import pytest

pytest.register_assert_rewrite("support")
from support import agree, fresh  # puts the rest on the path
from bench.load import load_module, load_plain
from harden.ways import repository


@pytest.fixture
def both():
    """A copy of the module for one test, which may change it as it likes, and of its plain Python form."""
    return fresh(load_module()), fresh(load_plain())


@pytest.fixture
def one(both):
    """The module, or its plain form: the test is called with each, and what it returns has to agree."""
    return both


@pytest.hookimpl(tryfirst=True)
def pytest_pyfunc_call(pyfuncitem):
    if "one" in pyfuncitem.funcargs:
        given = {name: pyfuncitem.funcargs[name] for name in signature(pyfuncitem.obj).parameters}
        results = [pyfuncitem.obj(**given | {"one": one}) for one in given["one"]]
        agree(results, lambda result: result)
        return True


@pytest.fixture
def repo(tmp_path):
    return repository(tmp_path / "repo")
