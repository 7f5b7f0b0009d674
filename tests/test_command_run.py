"""Runs that ask a model behind a server: side by side, within limits, on a cluster, with kept answers."""

import json
import os
import signal
import threading
import time

import pytest

from command.answers import AnswerCache
from wiki_command import ENVIRONMENT, SUPPORTS, completion, model_server, says, started, wiki, write_wiki

dask, distributed = map(pytest.importorskip, ("dask", "distributed"))
pytestmark = pytest.mark.filterwarnings("ignore:make_current is deprecated")

PAGES, QUESTIONS = 30, 60
CONTRADICTS, MUMBLES = (says(completion(content)) for content in (
    '{"verdict": "contradicts", "reason": "Line 2 says so."}', "Who knows?"))
WORKERS = ["--workers", 2]


@pytest.fixture
def lint(repo, tmp_path):
    return ["lint", write_wiki(tmp_path / "wiki", PAGES, 2), "--repo", repo, "--consent", "--model", "small"]


def judge(answers):
    """The answers to the questions of these pages; two other pages are wrong, and the rest are right."""
    answers = {7: CONTRADICTS, 23: CONTRADICTS} | answers
    return lambda *call: answers.get(int(call[1].split()[1]), SUPPORTS)(*call)


def test_one_bound_holds_for_all_pages(lint):
    together, under_way, most = threading.Barrier(32), [], []

    def wait_for_others(handler, sentence):
        under_way.append(sentence)
        most.append(len(under_way))
        if len(most) <= 32:
            together.wait(20)
        time.sleep(0.01)
        under_way.remove(sentence)
        judge({29: MUMBLES})(handler, sentence)

    with model_server(wait_for_others) as server:
        status, output, errors = wiki(*lint, "--model-url", server.url, "--max-parallel-calls", 32)
    assert (status, errors, max(most)) == (1, "", 32)
    lines = output.splitlines()
    assert [line.partition(".md")[0][-3:] for line in lines[:4]] == ["p07", "p07", "p23", "p23"]
    assert lines[0].endswith('sentence 1." (Line 2 says so.)')
    assert "p29.md:1:1: low: citation-unanswered: [src/app.py:L1]" in lines[4]
    assert lines[6] == "30 of 30 pages checked, 60 questions asked, 6 findings, 2 unanswered"


@pytest.mark.parametrize("spread", [[], WORKERS])
def test_a_run_ends_at_its_first_failed_page(lint, spread):
    refused = {11: lambda *call: (time.sleep(1), says(b"no", 404)(*call)), 15: says(b"no", 404)}
    with model_server(judge(refused)) as server:
        status, output, _ = wiki(*lint, "--model-url", server.url, "--max-parallel-calls", 12, *spread)
    assert status == 2 and output.count("citation-contradicted") == 2
    assert "p11.md: medium: citation-check-failed: the check ended here: " in output.splitlines()[-2]
    assert output.splitlines()[-1].startswith("11 of 30 pages checked") and output.endswith("wiki/p11.md\n")


def test_what_is_not_answered_is_neither_known_nor_passed(lint, tmp_path):
    _, pages, *options = [*lint, "--baseline", tmp_path / "known", "--write-baseline", "--fail-on", "medium"]
    with model_server(CONTRADICTS) as server:
        options += ["--model-url", server.url]
        assert wiki("lint", pages / "p00.md", *options)[0] == 0
        known, server.respond = (tmp_path / "known").read_text(), says(b"too long", 400)
        status, output, _ = wiki("lint", pages / "p00.md", pages / "p01.md", *options)
    assert status == 2 and output.count("citation-unanswered") == 4 and known.count("\n") == 2
    assert "no question was answered: the model server refuses the question (400): 'too long'\n" in output
    assert (tmp_path / "known").read_text() == known


@pytest.mark.parametrize("spread, option, needed, missing", [
    ([], "--max-calls-per-batch", "questions", 0), (WORKERS, "--max-calls-per-batch", "questions", 41),
    ([], "--max-input-tokens-per-batch", "input_tokens", 0),
    ([], "--max-input-tokens-per-batch", "input_tokens", 1)])
def test_limits_are_spent_in_the_order_of_the_pages(lint, spread, option, needed, missing):
    with model_server(SUPPORTS) as server:
        lint += ["--model-url", server.url, "--format", "json", *spread]
        limit = json.loads(wiki(*lint, "--dry-run")[1])["summary"][needed] - missing
        # A page that asks what was asked before costs nothing, even while that is under way.
        (lint[1] / "p00-again.md").write_bytes((lint[1] / "p00.md").read_bytes())
        status, output, _ = wiki(*lint, option, limit, "--max-parallel-calls", 1)
    summary = json.loads(output)["summary"]
    assert status == (2 if missing else 0)
    assert summary["questions"] == len(server.sentences) == QUESTIONS - missing
    assert summary["checked"] == PAGES + 1 - (missing + 1) // 2
    assert bool(summary["stopped_at"]) == bool(missing)


@pytest.mark.parametrize("sent, spread", [
    (signal.SIGTERM, []), (signal.SIGINT, WORKERS), (signal.SIGTERM, WORKERS)])
def test_a_stopped_run_tells_what_it_found(lint, tmp_path, sent, spread):
    (report := tmp_path / "report").write_text("the last good one")
    before = sorted(os.listdir(tmp_path))
    busy = judge({9: says(b"", 503, retry_after="60")})
    lint += [*spread, "--output", report, "--max-parallel-calls", 1]
    temporary = {"env": ENVIRONMENT | {"TMPDIR": str(tmp_path)}}
    with model_server(busy) as server, started([*lint, "--model-url", server.url], **temporary) as running:
        assert "the run waits: the model server is busy or fails (503" in running.stderr.readline()
        assert report.read_text() == "the last good one"
        os.killpg(running.pid, sent)
        assert (*running.communicate(timeout=15), running.returncode) == ("", "", 2)
    told = report.read_text()
    assert told.count("citation-contradicted") == 2 and "9 of 30 pages checked" in told
    assert "p09.md: medium: citation-check-failed: the check ended here: the run was asked to stop" in told
    assert sorted(os.listdir(tmp_path)) == before


def test_a_lost_worker_changes_nothing(lint, tmp_path, monkeypatch):
    lint = ["lint", write_wiki(tmp_path / "long", 60, 99), *lint[2:5]]
    expected = wiki(*lint)
    monkeypatch.setenv("PYTHONPATH", ENVIRONMENT["PYTHONPATH"])
    two = {"n_workers": 2, "threads_per_worker": 1, "local_directory": tmp_path / "dask"}
    # Whoever connects to the lost worker for the first time gives up after this.
    config = dask.config.set({"distributed.comm.timeouts.connect": "3s"})
    with config, distributed.LocalCluster(**two, dashboard_address="127.0.0.1:0") as cluster:
        with started([*lint, "--scheduler", cluster.scheduler_address]) as running:
            while not any(task.state == "memory" for task in [*cluster.scheduler.tasks.values()]):
                assert running.poll() is None
            os.kill(cluster.workers[0].pid, signal.SIGKILL)
            output, errors = running.communicate(timeout=60)
    assert (running.returncode, output, errors) == expected and expected[0] == 1


@pytest.mark.parametrize("start, end, kept, complaints", [
    (0, 0, True, 0), (0, None, False, 0), (100, 300, False, 1), (5000, None, False, 1)])
def test_what_is_damaged_is_asked_again(start, end, kept, complaints, tmp_path, capsys):
    AnswerCache(tmp_path)[b"question"] = "one"
    content = bytearray((tmp_path / "answers-1.sqlite").read_bytes())
    content[start:end] = b"\xa5" * (end - start if end else 0)
    (tmp_path / "answers-1.sqlite").write_bytes(content)
    damaged = AnswerCache(tmp_path)
    assert (b"question" in damaged) == kept
    damaged[b"question"] = "two"
    assert AnswerCache(tmp_path) == {b"question": "two"}
    assert capsys.readouterr().err.count("are of no use") == complaints


def test_a_second_lint_asks_nothing(lint, tmp_path):
    lint = [*lint[:5], "--cache", tmp_path / "cache"]
    # Two processes may share the folder.
    with started(lint) as one, started(lint) as other:
        assert [running.communicate(timeout=60)[1] for running in (one, other)] == ["", ""]
    assert "0 questions asked" in wiki(*lint)[1]
    with model_server(CONTRADICTS) as server:
        lint += ["--model-url", server.url, "--model", "small"]
        first = wiki(*lint)
        server.respond = says(b"", 500)
        again = wiki(*lint)
        dry = wiki(*lint, "--dry-run")
    assert first[0] == 1 and "60 questions asked, 60 findings" in first[1]
    assert len(server.sentences) == QUESTIONS
    assert again == (1, first[1].replace("60 questions", "0 questions"), "")
    assert dry[0] == 0 and dry[1].endswith("at most 0 questions to ask, of about 0 input tokens\n")
