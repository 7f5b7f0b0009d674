"""A real SIGINT at a random moment of a lint."""

import os
import random
import signal
import tempfile
import threading
import time
from pathlib import Path

from bench.load import load_module
from harden.load import Client, answering

PAGES = {str(number): f"Page {number} reads lines [f:L1].\n\n" * 4 for number in range(30)}


def interrupted_after(seconds: float, lint) -> list[dict] | None:
    """What the lint gives while a SIGINT comes after so many seconds; None when it was interrupted."""

    def interrupt() -> None:
        time.sleep(seconds)
        os.kill(os.getpid(), signal.SIGINT)

    sender = threading.Thread(target=interrupt)
    result = None
    try:
        sender.start()
        result = lint()
        sender.join()
    except KeyboardInterrupt:
        sender.join()
    return result


def run(short: bool) -> str:
    module = load_module()
    rounds = 100 if short else 2_000
    chance = random.Random(rounds)
    with tempfile.TemporaryDirectory() as folder, answering(module, "contradicts"):
        Path(folder, "f").write_text("one\n")

        def lint() -> list[dict]:
            return module.citation_lint_findings(Client(fails=10**9), PAGES, Path(folder))

        begin = time.perf_counter()
        expected = lint()
        assert expected
        whole = time.perf_counter() - begin
        interrupted = 0
        for _ in range(rounds):
            result = interrupted_after(chance.uniform(0, 1.2 * whole), lint)
            interrupted += result is None
            assert result in (None, expected)
            # A signal in the very waiting for the workers leaves them to end their running question.
            end = time.monotonic() + 5
            while threading.active_count() > 1 and time.monotonic() < end:
                time.sleep(0.001)
            assert threading.active_count() == 1, threading.enumerate()
            assert lint() == expected
    return f"{rounds} signals, {interrupted} lints interrupted, each next one right"
