"""A decision client that answers at once, so that what is measured is the check itself."""

from __future__ import annotations

from bench.load import host_on_path

host_on_path()

from quenlow.engines.decision import DecisionClient, DecisionConfig  # noqa: E402

_DECISION = {"citation": "contradicts"}


class InstantClient(DecisionClient):
    def __init__(self) -> None:
        super().__init__(DecisionConfig(wiki_check_citations=True, allow_source_upload=True), model=None)

    def decide(self, state, questions, *, question_version, budget):
        return _DECISION
