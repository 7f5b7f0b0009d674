"""The decision client that the command checks with."""

from quenlow.engines.decision import DecisionClient, DecisionConfig
from quenlow.engines.word_model import WordModel


def decision_client(consent: bool) -> DecisionClient:
    config = DecisionConfig(wiki_check_citations=True, allow_source_upload=consent)
    return DecisionClient(config, WordModel())
