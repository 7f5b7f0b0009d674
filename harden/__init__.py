"""Hardening runs: what the module is put through beyond its tests."""
