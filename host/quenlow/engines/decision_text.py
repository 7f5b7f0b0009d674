"""Consent to uploading text to the decision model."""

from quenlow.engines.decision import DecisionClient


def source_consented(client: DecisionClient) -> bool:
    """Whether the user has consented to uploading source lines (`qep.allow_source_upload`)."""
    return client.config.allow_source_upload
