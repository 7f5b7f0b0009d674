"""Each function takes the very steps that its plain form takes, whatever happens at one of them."""

import gc
from collections import Counter
from functools import partial
from unittest.mock import patch

import pytest
from harden.recorder import STYLES, Recorder, Watch, settle
from support import READ, fail, find, outcome

from harden.ways import SCENARIOS

METHODS = """CitedClaim.__eq__ CitedClaim.__init__ CitedClaim.__hash__ CheckedClaim.__init__
CitedSources.passage CitedSources.__init__ CitedSources._read CitationCheck.findings""".split()


def play(module, repo, scenario, style, at=0, act=None):
    """What the scenario came to, its trace, and what is left of it; the module is as it was before."""
    host = Recorder(module, style, at, act)
    with patch.dict(vars(module)), pytest.MonkeyPatch.context() as host.patched:
        came_to = outcome(SCENARIOS[scenario], module, host, settle(host, repo))
        # What the host alone still holds is let go; the rest has to be gone as soon as in the plain form.
        host.lists.clear()
        host.watches.clear()
        return came_to, host.trace, [type(one()).__name__ for one in host.made if one() is not None]


@pytest.fixture
def stages(both, repo):
    gc.disable()
    yield [partial(play, one, repo) for one in both]
    gc.enable()


def replace_names(host):
    for name in READ:
        if name in vars(host.module):
            setattr(host.module, name, Watch(host, f"own new {name}", vars(host.module)[name]))


def delete_names(host):
    for name in READ:
        vars(host.module).pop(name, None)


def patch_classes(host):
    for qualname in METHODS:
        owner, name = qualname.split(".")
        if type(vars(host.module).get(owner)) is type:
            method = host.method(name, find(host.module, qualname))
            host.patched.setattr(vars(host.module)[owner], name, method)


def empty_lists(host):
    for one in host.lists:
        one.clear()


ERRORS = StopIteration, LookupError, OSError, KeyboardInterrupt
ACTS = [partial(fail, error=error) for error in ERRORS]
ACTS += replace_names, delete_names, patch_classes, empty_lists


def compare(stages, *how):
    (got, trace, left), (expected, steps, held) = (stage(*how) for stage in stages)
    for number, (one, other) in enumerate(zip(trace, steps)):
        assert one == other, (how, number, trace[max(0, number - 5) : number])
    assert (got, len(trace)) == (expected, len(steps)), how
    assert not Counter(left) - Counter(held), how
    return len(steps)


@pytest.mark.parametrize("scenario", SCENARIOS)
@pytest.mark.parametrize("style", STYLES)
def test_steps(stages, scenario, style):
    steps = compare(stages, scenario, style)
    for at in range(1, steps + 1, 1 + steps // 300):
        # Where a scenario has many steps, the acts take turns.
        for act in ACTS if steps < 60 else [ACTS[at % len(ACTS)]]:
            compare(stages, scenario, style, at, act)
