"""A small host in types. It runs, and a type checker proves it; `ignore` marks what has to be refused."""

import sys
from pathlib import Path
from typing import Any, assert_type

from quenlow.engines.decision import DecisionClient, DecisionConfig, RunBudget
from quenlow.engines.word_model import WordModel
from quenlow.workers.wiki import citation_check as module
from quenlow.workers.wiki.citation_check import CheckedClaim, CitationCheck, CitationChecker, CitedClaim


class Generator(module.CitationCheckMixin):
    def __init__(self, client: DecisionClient, repo_root: Path) -> None:
        self.decision_client, self.repo_root, self.should_stop = client, repo_root, lambda: False

    def warnings(self, markdown: str) -> list[str]:
        check = self._citation_check(markdown)
        return [] if check is None else check.warnings()


def see(client: DecisionClient, root: Path, page: str) -> None:
    (claim,) = assert_type(module.cited_claims(page), list[CitedClaim])
    passage = assert_type(module.CitedSources(root).passage(claim), str)
    assert passage == module.cited_lines((root / claim.path).read_text(), claim.start, end=claim.end)
    check = module.check_citations(client, page, root, max_questions=1, budget=None)
    assert check == CitationCheck([CheckedClaim(claim, check.checked[0].answer)], skipped=0)
    assert assert_type(check.score, float | None) == 0 and assert_type(claim.ref, str) in page
    checker = assert_type(CitationChecker.enabled(client, root), CitationChecker | None)
    assert checker and assert_type(checker.check(page), CitationCheck | None) == check
    assert assert_type(checker.budget, RunBudget).calls == 0
    assert assert_type(checker.failure, str | None) is None
    found = assert_type(check.findings("page"), list[dict[str, Any]])
    linted = module.citation_lint_findings(client, {"page": page}, root)
    assert assert_type(linted, list[dict[str, Any]]) == found
    assert Generator(client, root).warnings(page) == [f"{found[0]['kind']}: {found[0]['detail']}"]
    module.logger.info("seen")


def be_refused(client: DecisionClient, root: Path, claim: CitedClaim, checked: CheckedClaim) -> None:
    claim.start = 1  # type: ignore[misc]
    checked.claim = claim  # type: ignore[misc]
    CitationCheck().score = 1.0  # type: ignore[misc]
    CitationChecker(client, root, lambda: True)  # type: ignore[misc]
    module.check_citations(client, "", root)  # type: ignore[call-arg]
    module.check_citations(client, "", root, 5)  # type: ignore[misc]


if __name__ == "__main__":
    settings = DecisionConfig(wiki_check_citations=True, allow_source_upload=True)
    (Path(sys.argv[1]) / "app.py").write_text("LIMIT = 7\n")
    see(DecisionClient(settings, WordModel()), Path(sys.argv[1]), "The default `LIMIT` is 8 [app.py:L1].")
