"""The language model behind `--model-url`, asked over a real connection."""

import time

import pytest

from quenlow.engines.decision import citation_request
from quenlow.engines.model import DecisionError
from wiki_command import SUPPORTS, completion, model_server, says, wiki, write_wiki

chat_model = pytest.importorskip("quenlow.engines.chat_model")

STATE, QUESTION = citation_request("A sentence \ud800 of words.", "the cited lines")


def ask(url, should_stop=lambda: False, pauses=(0, 0.01, 0.01, 0.01)):
    model = chat_model.ChatModel(url, "small", "sesame")
    model.seconds, model.pauses = 0.4, pauses
    return model.answer(STATE, QUESTION, should_stop)


def trickle(handler, _sentence):
    handler.send_response(200)
    handler.end_headers()
    for _ in range(12):
        handler.wfile.write(b" ")
        time.sleep(0.05)


def hang_up(handler, _sentence):
    handler.connection.close()


def in_turn(*responses):
    turns = iter(responses)
    return lambda handler, sentence: next(turns)(handler, sentence)


@pytest.mark.parametrize("respond, verdict", [
    (SUPPORTS, "supports"),
    (says(completion(' "**Says_Nothing.**"\n')), "says_nothing"),
    (in_turn(says(b"later", 429), says(b"broken", 500), SUPPORTS), "supports"),
    (in_turn(hang_up, trickle, SUPPORTS), "supports"),
])
def test_verdict(respond, verdict):
    with model_server(respond) as server:
        assert ask(server.url) == verdict
    assert server.keys == {"Bearer sesame"} and server.sentences[0] == STATE[0][1]


@pytest.mark.parametrize("respond, attempts, message", [
    (says(b"no such model", 404), 1, ".404.: 'no such model'"),
    (says(b"", 302), 1, ".302."),
    (says(b"busy", 503), 4, ".503.: 'busy'"),
    (says(b"slow down", 429), 4, ".429."),
    (trickle, 4, "cannot be asked: TimeoutError"),
    (hang_up, 4, "cannot be asked: RemoteProtocolError"),
    (says(b"x" * 2**21), 1, "reply has no end"),
    *((says(body), 1, "unusable answer") for body in (
        b"", b"supports", b"\xff\xfe", b"[" * 5000, b"[]", b'{"choices": []}', completion(None),
        completion(["supports"]), completion("supports, or contradicts"), completion("I think it supports"))),
])
def test_no_verdict(respond, attempts, message):
    with model_server(respond) as server, pytest.raises(DecisionError, match=message):
        ask(server.url)
    assert len(server.sentences) == attempts


def test_nobody_there():
    with model_server(SUPPORTS) as server:
        pass
    with pytest.raises(DecisionError, match="cannot be asked: ConnectError"):
        ask(server.url)


def test_a_stopped_run_retries_no_more():
    with model_server(says(b"busy", 503)) as server, pytest.raises(DecisionError, match="asked to stop"):
        ask(server.url, lambda: bool(server.sentences), pauses=(0, 60))
    assert len(server.sentences) == 1


@pytest.mark.parametrize("url", ["localhost:80", "ftp://host", "http://", "http://[::1"])
def test_an_address_that_is_none(url, repo, tmp_path):
    lint = ["lint", write_wiki(tmp_path / "wiki", 1), "--repo", repo, "--consent", "--model", "small"]
    status, _, errors = wiki(*lint, "--model-url", url)
    assert status == 2 and errors.count("\n") == 1 and "address of a model server" in errors


@pytest.mark.parametrize("body, reply", [(b"wrong key: sesame", 401), (completion("sesame"), 200)])
def test_the_key_is_never_printed(body, reply, repo, tmp_path):
    lint = ["lint", write_wiki(tmp_path / "wiki", 1), "--repo", repo, "--consent", "--model", "small"]
    with model_server(says(body, reply)) as server:
        status, output, errors = wiki(*lint, "--model-url", server.url)
    assert status == 2 and "***" in output and "sesame" not in output + errors
    assert server.keys == {"Bearer sesame"}
