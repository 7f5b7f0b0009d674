"""Pages spread over real worker processes."""

import importlib
import json
import os
import signal
import threading

import pytest

from command.arguments import parser
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


def test_a_cluster_of_one_that_loses_its_worker(lint, monkeypatch):
    cluster = importlib.import_module("command.cluster")
    monkeypatch.setattr(cluster, "_WORKERLESS_SECONDS", 1)
    options = parser().parse_args(list(map(str, lint[:5])))
    with pytest.raises(Exception, match="no workers for 1 s"), cluster.cluster(None, 1) as check:
        dask = check.args[0]
        assert list(dask.ncores().values()) == [1]
        dask.cluster.scale(0)
        while dask.ncores():
            pass
        list(check(options.pages(options.target), options, lambda: False))


@pytest.mark.parametrize("spread, stalling_page, findings", [(["--workers", 2], 0, 0), ([], 8, 3)])
def test_interrupt_while_the_server_stalls(lint, spread, stalling_page, findings):
    stalling, ended = threading.Event(), threading.Event()

    def stall(handler, sentence):
        if sentence.startswith(f"Page {stalling_page} "):
            stalling.set()
            ended.wait(60)
        contradict(handler, sentence)

    with model_server(stall) as server:
        running = start([*lint, *spread, "--model-url", server.url], start_new_session=True)
        assert stalling.wait(20)
        os.killpg(running.pid, signal.SIGINT)
        output, errors = running.communicate(timeout=15)
        ended.set()
    assert (running.returncode, errors, output.count("citation-contradicted")) == (2, "", findings)
    assert "the run was asked to stop" in output and f"{stalling_page} of 40 pages checked" in output
