"""Consent to uploading text to the decision model."""

from quenlow.engines.decision import DecisionClient


def source_consented(client: DecisionClient) -> bool:
    return client.config.allow_source_upload
