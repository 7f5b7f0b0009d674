"""Pages spread over a real cluster of two processes."""

import os
import signal
import subprocess
import threading
from collections.abc import Iterator
from http.server import BaseHTTPRequestHandler
from pathlib import Path

import pytest

from wiki_command import COMMAND, ENVIRONMENT, ROOT, ModelServer, completion, model_server, says, wiki, write_wiki

distributed = pytest.importorskip("distributed")

PAGES, SENTENCES = 40, 3


class Gate:
    """Contradicts page 7, says nothing of page 30; questions wait until `held` of them are there."""

    def __init__(self, held: int = 0) -> None:
        self.held = threading.Barrier(held + 1) if held else None
        self.open = threading.Event()
        if not held:
            self.open.set()

    def __call__(self, handler: BaseHTTPRequestHandler) -> None:
        ...


@pytest.fixture(scope="module")
def cluster() -> Iterator["distributed.LocalCluster"]:
    with pytest.MonkeyPatch.context() as patch:
        for name in ("PYTHONPATH", "WIKI_MODEL_KEY"):
            patch.setenv(name, ENVIRONMENT[name])
        with distributed.LocalCluster(2, threads_per_worker=1, dashboard_address=None) as local:
            yield local
