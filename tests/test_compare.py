"""The module against its plain Python form on random and hostile input, names replaced in the middle of a page included."""

import pytest
from bench.compare import compare
from bench.load import load_plain


@pytest.mark.parametrize("seed", [1, 2])
def test_module_and_plain_agree(module, seed):
    compare(load_plain(), module, 4_000, seed)
