"""The host's workers."""
