"""Pages spread over real worker processes."""

import json
import os
import signal
import subprocess
import threading
from collections.abc import Iterator
from http.server import BaseHTTPRequestHandler
from pathlib import Path
from typing import Any

import pytest

from wiki_command import COMMAND, ENVIRONMENT, Respond, completion, model_server, says, wiki, write_wiki

distributed = pytest.importorskip("distributed")

QUESTIONS = 120
GOOD = says(completion("supports"))


@pytest.fixture(scope="module")
def cluster() -> Iterator[Any]:
    with pytest.MonkeyPatch.context() as patch:
        for name in ("PYTHONPATH", "WIKI_MODEL_KEY"):
            patch.setenv(name, ENVIRONMENT[name])
        with distributed.LocalCluster(2, threads_per_worker=1, dashboard_address=None) as local:
            yield local


@pytest.fixture
def lint(repo: Path, tmp_path: Path) -> list[object]:
    pages = write_wiki(tmp_path / "wiki", 40, 3)
    return ["lint", pages, "--repo", repo, "--consent", "--max-parallel-calls", 1, "--model", "small"]


def contradict(handler: BaseHTTPRequestHandler, sentence: str) -> None:
    says(completion("contradicts" if "Page 7 " in sentence or "Page 33 " in sentence else "supports"))(handler, sentence)


class Gate:
    """Holds back a question of each of two workers until it is opened."""

    def __init__(self, respond: Respond) -> None:
        self.respond = respond
        self.held = iter([True, True])
        self.both_there = threading.Barrier(3)
        self.opened = threading.Event()

    def __call__(self, handler: BaseHTTPRequestHandler, sentence: str) -> None:
        if next(self.held, False):
            self.both_there.wait(20)
            self.opened.wait(20)
        self.respond(handler, sentence)


def test_a_lost_worker_changes_nothing(cluster: Any, lint: list[object]) -> None:
    with model_server(contradict) as server:
        lint += ["--format", "json", "--model-url", server.url]
        expected = wiki(*lint)
        server.sentences.clear()
        server.respond = gate = Gate(contradict)
        call = [*COMMAND, *map(str, lint), "--scheduler", cluster.scheduler_address]
        running = subprocess.Popen(call, env=ENVIRONMENT, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        gate.both_there.wait(20)
        os.kill(cluster.workers[0].pid, signal.SIGKILL)
        gate.opened.set()
        output, errors = running.communicate(timeout=60)
    assert (running.returncode, errors) == (expected.returncode, "") == (1, "")
    assert len(set(server.sentences)) == QUESTIONS < len(server.sentences)
    assert output == expected.stdout and json.loads(output)["summary"]["findings"] == 6


@pytest.mark.parametrize(
    ("option", "needed", "missing"),
    [
        ("--max-calls-per-batch", "questions", 0),
        ("--max-calls-per-batch", "questions", 1),
        ("--max-calls-per-batch", "questions", QUESTIONS - 5),
        ("--max-calls-per-batch", "questions", QUESTIONS),
        ("--max-input-tokens-per-batch", "input_tokens", 0),
        ("--max-input-tokens-per-batch", "input_tokens", 1),
    ],
)
def test_a_run_stops_only_when_its_limits_are_spent(
    cluster: Any, lint: list[object], option: str, needed: str, missing: int
) -> None:
    with model_server(GOOD) as server:
        lint += ["--model-url", server.url, "--format", "json"]
        limit = json.loads(wiki(*lint, "--dry-run").stdout)["summary"][needed] - missing
        run = wiki(*lint, option, limit, "--scheduler", cluster.scheduler_address)
    summary = json.loads(run.stdout)["summary"]
    assert run.returncode == (2 if missing else 0) and (summary["checked"] < 40) == bool(missing)
    assert bool(summary["stopped_at"]) == bool(missing)
    assert len(server.sentences) == summary["questions"] and limit - 60 < summary[needed] <= limit


def test_a_failure_ends_the_run_at_its_page(cluster: Any, lint: list[object]) -> None:
    def refuse(handler: BaseHTTPRequestHandler, sentence: str) -> None:
        (says(b"no", 400) if "Page 21 " in sentence else contradict)(handler, sentence)

    with model_server(refuse) as server:
        lint += ["--model-url", server.url, "--format", "github"]
        alone, spread = wiki(*lint), wiki(*lint, "--scheduler", cluster.scheduler_address)
    assert alone.returncode == spread.returncode == 2
    assert alone.stdout.splitlines()[:-1] == spread.stdout.splitlines()[:-1]
    assert "p21.md::citation-check-failed: the citation check stopped here" in spread.stdout
    assert spread.stdout.splitlines()[-1].startswith("21 of 40 pages checked")


def test_interrupt(lint: list[object]) -> None:
    gate = Gate(contradict)
    with model_server(gate) as server:
        call = [*COMMAND, *map(str, lint), "--workers", "2", "--model-url", server.url]
        running = subprocess.Popen(
            call, env=ENVIRONMENT, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True
        )
        gate.both_there.wait(20)
        os.killpg(running.pid, signal.SIGINT)
        threading.Timer(1.5, gate.opened.set).start()
        output, errors = running.communicate(timeout=30)
    assert (running.returncode, errors) == (2, "")
    assert "the run was asked to stop" in output and "0 of 40 pages checked" in output
    assert len(server.sentences) < 10
