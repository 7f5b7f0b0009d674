"""A page's result: score, findings, warnings."""

from enum import StrEnum
from types import SimpleNamespace

import pytest
from support import Text, agree, fail, outcome


class Verdict(StrEnum):
    WRONG = "contradicts"
    RIGHT = "supports"


class Odd:
    """A verdict that hashes and compares as it is told to."""

    def __init__(self, hash_value=0, equal=True):
        self.hash_value, self.equal = hash_value, equal

    def __hash__(self):
        return self.hash_value

    def __eq__(self, _other):
        return fail() if self.equal is None else self.equal


def result(module, *verdicts, sentence="The sentence."):
    claim = module.CitedClaim(sentence, "a", 1, 2)
    checked = [module.CheckedClaim(claim, SimpleNamespace(verdict=verdict)) for verdict in verdicts]
    return module.CitationCheck(checked=checked, skipped=3)


@pytest.mark.parametrize(
    "verdicts, score, kinds",
    [
        ([], None, []), (["supports"], 1.0, []), (["supports", "supports", "other"], 2 / 3, []),
        (["supports", "contradicts", "says_nothing"], 1 / 3, ["contradicted", "unsupported"]),
        (["says_nothing", None, 7], 0.0, ["unsupported"]),
        ([Verdict.WRONG, Verdict.RIGHT, Text("contradicts"), Text("supports")], 0.5, ["contradicted"] * 2),
    ],
)
def test_score_and_findings(module, verdicts, score, kinds):
    check = result(module, *verdicts)
    findings = check.findings("the page")
    assert check.score == score and type(check.score) is type(score)
    assert [finding["kind"].removeprefix("citation-") for finding in findings] == kinds
    assert check.warnings() == [f"{finding['kind']}: {finding['detail']}" for finding in findings]


def test_finding(module):
    check = result(module, "contradicts", "says_nothing", sentence='The "é" ' * 25)
    one, two = check.findings("")
    detail = '[a:L1-L2] the cited lines contradict: "' + 'The "é" ' * 20 + '"'
    assert list(one) == ["severity", "kind", "pages", "detail"]
    assert list(one.values()) == ["medium", "citation-contradicted", [""], detail]
    assert two["severity"] == "low" and "[a:L1-L2] the cited lines say nothing about: " in two["detail"]
    one["pages"].append("mine")
    assert two["pages"] == check.findings("")[0]["pages"] == [""]


SAME = hash("contradicts")
ODD = {
    "verdict": [[], Odd(), Odd(None), Odd(SAME), Odd(SAME, None), Odd(0, [])],
    "sentence": [b"bytes", ["a", "b"], None, Text("text"), "\ud800", "a\x00b"],
    "checked": [None, (), "", [None], 7, {}],
}


@pytest.mark.parametrize("what, value", [(what, value) for what, values in ODD.items() for value in values])
def test_odd_results(both, what, value):
    def readings(one):
        verdicts = ["supports", value if what == "verdict" else "contradicts"]
        check = result(one, *verdicts, sentence=value if what == "sentence" else "The sentence.")
        if what == "checked":
            check.checked = value
        return [outcome(lambda: check.score), outcome(check.findings, "page"), outcome(check.warnings)]

    agree(both, readings)
