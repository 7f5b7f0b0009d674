"""Pages spread over real worker processes."""

import json
import os
import signal
import threading

import pytest

from wiki_command import ENVIRONMENT, SUPPORTS, completion, model_server, says, start, wiki, write_wiki

distributed = pytest.importorskip("distributed")
pytestmark = pytest.mark.filterwarnings("ignore:make_current is deprecated")

PAGES, QUESTIONS = 40, 120
CONTRADICTS = says(completion("contradicts"))


@pytest.fixture(scope="module")
def scheduler():
    with pytest.MonkeyPatch.context() as patch:
        for name in ("PYTHONPATH", "WIKI_MODEL_KEY"):
            patch.setenv(name, ENVIRONMENT[name])
        two = {"n_workers": 2, "threads_per_worker": 1}
        with distributed.LocalCluster(**two, dashboard_address="127.0.0.1:0") as cluster:
            yield cluster


@pytest.fixture
def lint(repo, tmp_path):
    pages = write_wiki(tmp_path / "wiki", PAGES, QUESTIONS // PAGES)
    return ["lint", pages, "--repo", repo, "--consent", "--max-parallel-calls", 1, "--model", "small"]


def contradict(handler, sentence):
    respond = CONTRADICTS if sentence.startswith(("Page 7 ", "Page 33 ")) else SUPPORTS
    respond(handler, sentence)


class Gate:
    """Holds back a question of each of two workers until it is opened."""

    def __init__(self):
        self.to_hold = iter("12")
        self.both_there = threading.Barrier(3)
        self.opened = threading.Event()

    def __call__(self, handler, sentence):
        if next(self.to_hold, None):
            self.both_there.wait(20)
            self.opened.wait(20)
        contradict(handler, sentence)


def test_a_lost_worker_changes_nothing(scheduler, lint):
    with model_server(contradict) as server:
        lint += ["--format", "json", "--model-url", server.url]
        expected = wiki(*lint)
        server.sentences.clear()
        server.respond = gate = Gate()
        running = start([*lint, "--scheduler", scheduler.scheduler_address])
        gate.both_there.wait(20)
        os.kill(scheduler.workers[0].pid, signal.SIGKILL)
        gate.opened.set()
        output, errors = running.communicate(timeout=60)
    assert (running.returncode, output, errors) == expected
    assert json.loads(output)["summary"]["findings"] == 6
    assert len(set(server.sentences)) == QUESTIONS < len(server.sentences)


@pytest.mark.parametrize("option, needed, missing", [
    ("--max-calls-per-batch", "questions", 0),
    ("--max-calls-per-batch", "questions", 1),
    ("--max-calls-per-batch", "questions", QUESTIONS),
    ("--max-input-tokens-per-batch", "input_tokens", 0),
    ("--max-input-tokens-per-batch", "input_tokens", 1),
])
def test_a_run_stops_only_when_its_limits_are_spent(scheduler, lint, option, needed, missing):
    with model_server(SUPPORTS) as server:
        lint += ["--model-url", server.url, "--format", "json"]
        limit = json.loads(wiki(*lint, "--dry-run")[1])["summary"][needed] - missing
        status, output, _ = wiki(*lint, option, limit, "--scheduler", scheduler.scheduler_address)
    summary = json.loads(output)["summary"]
    assert status == (2 if missing else 0)
    assert (summary["checked"] < PAGES) == bool(summary["stopped_at"]) == bool(missing)
    assert len(server.sentences) == summary["questions"] and limit - 60 < summary[needed] <= limit


def test_a_failure_ends_the_run_at_its_page(scheduler, lint):
    def refuse(handler, sentence):
        respond = says(b"no", 400) if sentence.startswith("Page 21 ") else contradict
        respond(handler, sentence)

    with model_server(refuse) as server:
        lint += ["--model-url", server.url]
        alone, spread = wiki(*lint), wiki(*lint, "--scheduler", scheduler.scheduler_address)
    reports = [output.splitlines() for _status, output, _errors in (alone, spread)]
    assert alone[0] == spread[0] == 2 and reports[0][:-1] == reports[1][:-1]
    assert "p21.md: low: citation-check-failed: the citation check stopped here" in reports[1][-2]
    assert reports[1][-1].startswith("21 of 40 pages checked") and reports[1][-1].endswith("wiki/p21.md")


def test_a_local_cluster_is_as_large_as_asked_for():
    cluster = pytest.importorskip("command.cluster").cluster
    with cluster(None, 1) as dask:
        assert list(dask.ncores().values()) == [1]


def test_interrupt(lint):
    gate = Gate()
    with model_server(gate) as server:
        running = start([*lint, "--workers", 2, "--model-url", server.url], start_new_session=True)
        gate.both_there.wait(20)
        os.killpg(running.pid, signal.SIGINT)
        threading.Timer(1.5, gate.opened.set).start()
        output, errors = running.communicate(timeout=30)
    assert (running.returncode, errors) == (2, "")
    assert "the run was asked to stop" in output and "0 of 40 pages checked" in output
    assert len(server.sentences) < 10
