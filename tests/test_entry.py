"""The host's two entries: the lint over pages and the generator's mix-in."""

from types import SimpleNamespace

import pytest
from support import Client, Text, agree, fail, page, traced

SKIPPED = {
    "severity": "low", "kind": "citation-check-skipped", "pages": [],
    "detail": "qep.wiki_check_citations is on, but the check uploads the cited source lines and "
    "qep.allow_source_upload is off: the identifier check stays",
}
FAILED = {
    "severity": "low", "kind": "citation-check-failed", "pages": ["stop"],
    "detail": "the citation check stopped here (LookupError: failed); "
    "this page and the ones after it were not checked",
}


def verdict(sentence):
    verdicts = {"L1.": "supports", "L2.": "contradicts", "L3.": "says_nothing"}
    return verdicts.get(sentence.split()[-1]) or fail()


@pytest.mark.parametrize("texts, found, asked", [
    ({}, [], 0), ({"a": "No claims.", "b": page("L1")}, [], 1), ({"stop": page("L9"), "b": ""}, [FAILED], 1),
    ({"b": page("L2", "L1"), "a": page("L3")}, [("b", "contradicted"), ("a", "unsupported")], 3),
    ({"a": page("L2"), "b": page("L3"), "stop": page("L9"), "d": page("L2")},
     [("a", "contradicted"), ("b", "unsupported"), FAILED], 3),
])
def test_lint(module, repo, texts, found, asked):
    client = Client(verdict)
    findings = module.citation_lint_findings(client, texts, repo, should_stop := object())
    for finding, expected in zip(findings, found, strict=True):
        assert expected in (finding, (finding["pages"][0], finding["kind"].removeprefix("citation-")))
        assert list(finding) == list(SKIPPED)
    assert len(client.asked) == asked and client.budgets == [{"should_stop": should_stop}]


def test_lint_without_a_checker(module):
    def lint(client):
        return module.citation_lint_findings(client, None, "root")

    trace, client, switch = [], Client(), iter([True, 0, True, "on", 7, True, "", ""])
    client.feature_enabled = traced(trace, "switch", lambda _name: next(switch))
    module.source_consented = traced(trace, "consent", lambda _client: 0)
    assert lint(None) == [] == lint(client) and client.budgets == []
    assert trace == [("switch", ("wiki_check_citations",), {}), ("consent", (client,), {}), trace[0]]
    first, again = lint(client), lint(client)
    assert first == again == [SKIPPED] and list(first[0]) == list(SKIPPED) and lint(client) == []
    assert first[0] is not again[0] and first[0]["pages"] is not again[0]["pages"]


@pytest.mark.parametrize("place", ["feature_enabled", "new_budget", "source_consented"])
def test_errors_before_the_run_pass(module, monkeypatch, place):
    client = Client()
    monkeypatch.setattr(module if place == "source_consented" else client, place, fail)
    with pytest.raises(LookupError):
        module.CitationChecker.enabled(client, "root")
    with pytest.raises(LookupError):
        module.citation_lint_findings(client, {}, "root")


@pytest.mark.parametrize("items, findings, failure", [
    ([("a", "text"), ["b", "text"], "ct"], ["xy", [], {2: 3}], None), ([("a", "text"), ("b",)], [[]], None),
    ([("a", "b", "c")], [], None), ([None], [], None), (None, [], None), ([("a", "b")], [None], None),
    ([("a", "b")], ["failed"], None), ([(7, "b")], ["failed"], Text("own")), ([("a", "b")], ["failed"], []),
    ([("a", "b")], ["no check"], None),
])
def test_lint_of_odd_things(both, items, findings, failure):
    def check(found):
        return {"failed": None, "no check": 0}.get(str(found), SimpleNamespace(findings=lambda _page: found))

    def lint(one):
        checks = map(check, findings)
        checker = SimpleNamespace(check=lambda _markdown: next(checks), failure=failure)
        one.CitationChecker = SimpleNamespace(enabled=lambda *_three: checker)
        return one.citation_lint_findings(Client(), SimpleNamespace(items=lambda: items), "root")

    agree(both, lint)


class Equal:
    """A decision client that equals every other, with the check switched on or off."""

    on = True

    def __eq__(self, _other):
        return True


@pytest.fixture
def generator(module):
    """A page generator, and what it asked of the checker class."""

    def enabled(client, *_two):
        if client is not None and client.on:
            checker = SimpleNamespace(client=client)
            checker.check = lambda markdown: (checker, markdown)
            return checker

    asked = []
    module.CitationChecker = SimpleNamespace(enabled=traced(asked, "enabled", enabled))
    host = module.CitationCheckMixin()
    type(host).repo_root, type(host).should_stop = "root", "stop"
    return host, asked


def test_mixin(generator):
    host, asked = generator
    assert host._citation_check("page") is host._citation_check("page") is None
    assert asked == [("enabled", (None, "root", "stop"), {})] * 2
    assert vars(host) == {"_citation_checker": None}
    host.decision_client = first = Equal()
    first.on = False
    assert host._citation_check("page") is None
    first.on = True
    checker, markdown = host._citation_check("page")
    assert markdown == "page" and host._citation_checker is checker and checker.client is first
    first.on = False
    assert host._citation_check("next") == (checker, "next") and len(asked) == 4
    host.decision_client = second = Equal()
    assert host._citation_check("page")[0].client is second and len(asked) == 5
    host.decision_client = None
    assert host._citation_check("page") is host._citation_checker is None


@pytest.mark.parametrize("name", ["repo_root", "should_stop", "decision_client"])
def test_mixin_lets_host_errors_through(generator, name):
    host, asked = generator
    host.decision_client = Equal()
    kept = host._citation_check("page")[0]
    host.decision_client = Equal()
    host.__class__ = type("Broken", (type(host),), {name: property(fail)})
    with pytest.raises(LookupError):
        host._citation_check("page")
    assert host._citation_checker is kept and len(asked) == 1


def test_mixin_after_a_failure(module, repo, caplog):
    host = module.CitationCheckMixin()
    host.repo_root, host.should_stop, host.decision_client = repo, None, Client(verdict)
    assert "citation-contradicted: [src/app.py:L2] " in host._citation_check(page("L2")).warnings()[0]
    assert host._citation_check(page("L9")) is host._citation_check(page("L2")) is None
    assert len(host.decision_client.asked) == 2
    assert len(host.decision_client.budgets) == len(caplog.records) == 1
    host.decision_client = Client(verdict)
    assert host._citation_check(page("L1")).score == 1.0
