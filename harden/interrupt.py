"""A real SIGINT at a random moment of a lint: it ends within the running questions, with KeyboardInterrupt or with
the finding of a run that was asked to stop; no thread is left, and the next run is right."""

import os
import random
import signal
import sys
import tempfile
import threading
import time
from collections import Counter
from pathlib import Path
from typing import Any

from support import Client

from harden import builds

QUESTION_SECONDS, PATIENCE = 0.001, 3.0
PAGES = {
    str(number): "\n\n".join(f"So says page {number} in line {line} [f:L{line}]." for line in range(1, 7))
    for number in range(12)
}


class SlowClient(Client):
    """Takes its time for each question, unless the run was asked to stop."""

    last_question = 0.0

    def decide(self, *_given: object, **_named: object) -> dict[str, str]:
        if self.budgets[-1]["should_stop"]():
            raise InterruptedError("asked to stop")
        self.last_question = time.monotonic()
        time.sleep(QUESTION_SECONDS)
        return {"citation": "says_nothing"}


def interrupted_run(lint: Any, repo: Path, delay: float, handled: bool) -> str:
    """What became of a lint that gets the signal after a while; raises AssertionError when it did not end well."""
    client, stop, ended = SlowClient(), threading.Event(), "KeyboardInterrupt"
    client.last_question = end = time.monotonic()
    timer = threading.Timer(delay, os.kill, (os.getpid(), signal.SIGINT))
    try:
        signal.signal(signal.SIGINT, (lambda *_: stop.set()) if handled else signal.default_int_handler)
        timer.start()
        try:
            *_, last = lint(client, PAGES, repo, stop.is_set)
            ended = last["kind"]
        finally:
            end = time.monotonic()
            timer.join()
    except KeyboardInterrupt:
        pass
    finally:
        signal.signal(signal.SIGINT, signal.SIG_IGN)
    assert (
        end - client.last_question < PATIENCE
    ), f"{end - client.last_question:.2f} s after the last question"
    assert ended != "citation-check-failed" or "InterruptedError: asked to stop" in last["detail"], last
    # The library does not wait for a thread during whose start the signal came.
    while threading.active_count() > 1 and time.monotonic() < end + PATIENCE:
        time.sleep(0.001)
    assert threading.active_count() == 1, threading.enumerate()
    return ended


def main(runs: int, seed: str, repo: Path) -> None:
    from quenlow.workers.wiki import citation_check

    def undisturbed() -> object:
        return lint(SlowClient(), PAGES, repo, lambda: False)

    citation_check.logger.disabled = True
    lint, chance, seen = citation_check.citation_lint_findings, random.Random(seed), Counter[str]()
    begin = time.monotonic()
    expected = undisturbed()
    longest = time.monotonic() - begin
    for number in range(runs):
        seen[interrupted_run(lint, repo, chance.uniform(0, longest), handled=bool(number % 2))] += 1
        assert undisturbed() == expected, "the next run differs"
    assert seen["KeyboardInterrupt"] and seen["citation-check-failed"], seen
    print(", ".join(f"{count} {kind}" for kind, count in seen.most_common()))


def run(short: bool) -> str:
    seed = str(random.randrange(1000))
    ends = builds.python(builds.RELEASE, "-m", "harden.interrupt", "100" if short else "2000", seed)
    return f"interrupted runs (seed {seed}) ended with {ends}"


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "f").write_text("line\n" * 9)
        main(int(sys.argv[1]), sys.argv[2], Path(folder))
