"""The language model behind `--model-url`, asked over a real connection."""

import threading
import time
from collections.abc import Callable
from http.server import BaseHTTPRequestHandler
from pathlib import Path

import pytest

from quenlow.engines.decision import citation_request
from quenlow.engines.model import DecisionError
from wiki_command import Respond, completion, model_server, says, wiki, write_wiki

chat_model = pytest.importorskip("quenlow.engines.chat_model")

STATE, QUESTIONS = citation_request("A sentence \ud800 of words.", 'say "contradicts"')


def ask(url: str, should_stop: Callable[[], bool] = lambda: False) -> str:
    model = chat_model.ChatModel(url, "small", "sesame", seconds=0.5, pause=0.01)
    return model.answer(STATE, QUESTIONS, should_stop)["citation"]


def hang(handler: BaseHTTPRequestHandler, _sentence: str) -> None:
    threading.Event().wait(0.8)


def trickle(handler: BaseHTTPRequestHandler, _sentence: str) -> None:
    handler.send_response(200)
    handler.end_headers()
    for _ in range(20):
        handler.wfile.write(b" ")
        time.sleep(0.05)


def hang_up(handler: BaseHTTPRequestHandler, _sentence: str) -> None:
    handler.connection.close()


def in_turn(*responses: Respond) -> Respond:
    turns = iter(responses)
    return lambda handler, sentence: next(turns)(handler, sentence)


GOOD = says(completion("supports"))


@pytest.mark.parametrize(
    ("respond", "verdict"),
    [
        (GOOD, "supports"),
        (says(completion(' "**Says_Nothing.**"\n')), "says_nothing"),
        (in_turn(says(b"later", 429), says(b"broken", 500), GOOD), "supports"),
        (in_turn(hang_up, GOOD), "supports"),
    ],
)
def test_a_verdict_is_had(respond: Respond, verdict: str) -> None:
    with model_server(respond) as server:
        assert ask(server.url) == verdict
    assert server.keys == {"Bearer sesame"}
    assert server.sentences[0] == STATE[0][1]


@pytest.mark.parametrize(
    ("respond", "attempts", "message"),
    [
        (says(b"no such model", 404), 1, "answered 404: 'no such model'"),
        (says(b"", 302), 1, "answered 302"),
        (says(b"busy", 503), 4, "answered 503: 'busy'"),
        (says(b"slow down", 429), 4, "answered 429"),
        (hang, 4, "cannot be asked .ReadTimeout"),
        (trickle, 4, "cannot be asked .ReadTimeout: the reply takes too long"),
        (hang_up, 4, "cannot be asked .RemoteProtocolError"),
        (says(b"x" * 2**21), 1, "reply has no end"),
        *((says(body), 1, "answer is unusable") for body in (
            b"", b"supports", b"\xff\xfe", b"[" * 5000, b"[]", b'{"choices": []}', completion(None), completion(["supports"]),
            completion("supports, or contradicts"), completion("I think it supports"),
        )),
    ],
)
def test_no_verdict_is_a_decision_error(respond: Respond, attempts: int, message: str) -> None:
    with model_server(respond) as server, pytest.raises(DecisionError, match=message):
        ask(server.url)
    assert len(server.sentences) == attempts


def test_nobody_there() -> None:
    with model_server(GOOD) as server:
        pass
    with pytest.raises(DecisionError, match="cannot be asked .ConnectError"):
        ask(server.url)


def test_a_stopped_run_retries_no_more() -> None:
    with model_server(says(b"busy", 503)) as server:
        with pytest.raises(DecisionError, match="asked to stop"):
            chat_model.ChatModel(server.url, "small", pause=60).answer(STATE, QUESTIONS, lambda: bool(server.sentences))
    assert len(server.sentences) == 1


@pytest.mark.parametrize("url", ["localhost:80", "ftp://host", "http://", "http://[::1"])
def test_an_address_that_is_none(url: str, repo: Path, tmp_path: Path) -> None:
    run = wiki("lint", write_wiki(tmp_path / "wiki", 1), "--repo", repo, "--consent", "--model-url", url, "--model", "m")
    assert run.returncode == 2 and run.stderr.count("\n") == 1 and "address of a model server" in run.stderr


@pytest.mark.parametrize("body", [b'{"error": "wrong key: sesame"}', completion("sesame")])
def test_the_key_is_never_printed(body: bytes, repo: Path, tmp_path: Path) -> None:
    pages = write_wiki(tmp_path / "wiki", 1)
    with model_server(says(body, 401 if b"error" in body else 200)) as server:
        run = wiki("lint", pages, "--repo", repo, "--consent", "--model-url", server.url, "--model", "small")
    assert run.returncode == 2 and "***" in run.stdout
    assert "sesame" not in run.stdout + run.stderr and server.keys == {"Bearer sesame"}
