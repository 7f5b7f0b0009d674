"""The decision models, one of them behind a real server on loopback, and the client that asks them."""

import time
from types import SimpleNamespace

import pytest

from quenlow.engines import chat_model
from quenlow.engines.decision import DecisionClient, DecisionConfig, citation_answer, citation_request
from quenlow.engines.model import Answer, DecisionError
from quenlow.engines.word_model import WordModel
from wiki_command import SUPPORTS, completion, model_server, says

STATE, QUESTION = REQUEST = citation_request("A sentence \ud800 of words.", "the cited lines")


def ask(url, should_stop=lambda: False, timeout=0.5, times=1):
    model = chat_model.ChatModel(url, "small", "sesame", timeout, str)
    model.first_pause = 0.01
    return [model.answer(*REQUEST, should_stop) for _ in range(times)][-1]


@pytest.mark.parametrize("reply, choice, reason", [
    ("**Supports**. The lines  show it.", "supports", "The lines show it."),
    ("<think>supports,\nor {not}</think>\n\ncontradicts", "contradicts", ""),
    ('{"reason": "`</think>`\\ud800 sesame.", "verdict": "supports"}', "supports", "`</think>`? ***."),
    ('Here it is:\n```json\n{"answer": "Says nothing.", "reason": ["x"]}\n```', "says_nothing", ""),
    *((content, "", "the model server gave an unusable answer (200): ") for content in (
        "", None, ["supports"], "supports, or contradicts", "<think>supports", "{" * 9999,
        '{"verdict": {}}')),
    (lambda *_: time.sleep(1), "", "the model server gave no answer within 0.5 s"),
    (says(b"too long", 400), "", "the model server refuses the question (400): 'too long'"),
])
def test_answers(reply, choice, reason):
    with model_server(reply if callable(reply) else says(completion(reply))) as server:
        answer = ask(server.url)
    assert answer == Answer(choice, reason) or answer.reason.startswith(reason) and not choice
    assert server.sentences == [STATE[0][1]] * (1 if choice else 3)


@pytest.mark.parametrize("seconds, responses", [
    (0, [says(b"", 204), says(b"x" * 2**21), says(b"", 429), lambda *_: None, says(b"", 500), says(b"{}")]),
    (0.5, [lambda *call: [(says(b"")(*call), time.sleep(0.05)) for _ in range(16)], says(b"", 422),
           says(b"", 400)]),
    (1, [says(b"", 429, retry_after="1"), says(b"", 503, retry_after="soon", content_type="text/html")]),
])
def test_asked_again(seconds, responses):
    turns = iter([*responses, SUPPORTS])
    with model_server(lambda *call: next(turns)(*call)) as server:
        began = time.monotonic()
        assert ask(server.url).choice == "supports"
        assert seconds <= time.monotonic() - began < seconds + 4
    assert [request["key"] for request in server.requests] == ["Bearer sesame"] * (len(responses) + 1)


@pytest.mark.parametrize("respond, attempts, message", [
    (says(b"wrong key: sesame", 401), 1, r"another key in WIKI_MODEL_KEY.* .401.: 'wrong key: \*\*\*'"),
    (says(b"", 404), 1, "not at 127.0.0.1:[0-9]+/v1/chat/completions .404."),
    (says(b"<html>", content_type="Text/HTML; charset=utf-8"), 1, "MODEL_KEY, or is not .*.200.: '<html>'"),
    (says(b"broken", 500), 6, "busy or fails .500.: 'broken'"),
    (says(b"sesame", 503, retry_after="301"), 1, "busy.*Retry-After: 301"),
    (says(b"", 503, retry_after="60"), 1, "asked to stop"),
    (lambda *_: time.sleep(4), 1, "asked to stop"),
])
def test_no_answer_at_all(respond, attempts, message):
    stop = time.monotonic() + 2
    with model_server(respond) as server, pytest.raises(DecisionError, match=message) as failure:
        ask(server.url, lambda: time.monotonic() > stop, timeout=60)
    assert time.monotonic() < stop + 1.5
    assert len(server.sentences) == attempts and "sesame" not in str(failure.value)
    with pytest.raises(DecisionError, match="ConnectError"):
        ask(server.url)


def test_what_a_server_refuses_is_asked_for_no_more():
    def respond(handler, sentence):
        (says(b"", 400) if "response_format" in sent[-1] else SUPPORTS)(handler, sentence)

    with model_server(respond) as server:
        sent = server.requests
        assert ask(server.url, times=2).choice == "supports"
    strings = sent[0].pop("response_format")["json_schema"]["schema"]["properties"]
    assert strings["verdict"]["enum"] == list(QUESTION.choices) and strings["reason"]["type"] == "string"
    assert sent[0]["max_tokens"] > 0 and sent == sent[:1] * 3


def test_unanswered_and_kept_questions():
    answers, kept, hums = [], {}, Answer("", "it hums")
    odd = SimpleNamespace(name="", costs=True, answer=lambda *_: (answers or [hums]).pop())
    client = DecisionClient(DecisionConfig(), odd, kept)
    budget = client.new_budget()

    def decided(number):
        return citation_answer(client.decide(*REQUEST, question_version=number, budget=budget))

    assert [decided(0) for _ in range(19)] == [None] * 19 and not kept
    answers += [Answer("maybe", ""), Answer("supports", "so")]
    assert decided(1).reason == decided(1).reason == "so" and len(kept) == 1
    for [question], damaged in zip([kept] * 5, ["supports", "5", '["no", ""]', '["supports"]', "null"]):
        answers, kept[question] = [Answer("contradicts", "")], damaged
        assert decided(1).verdict == "contradicts"
    assert [decided(2) for _ in range(20)] == [None] * 20 and decided(1).verdict == "contradicts"
    with pytest.raises(DecisionError, match="20 questions in a row left unanswered: it hums"):
        decided(2)
    assert (client.decisions, client.asked, budget.calls) == (8, 45, 45)
    assert client.unanswered == {STATE: "it hums"}


@pytest.mark.parametrize("answer, sentence, lines", [
    (("supports", ""), "`read` takes 1 MiB within two minutes.", "read(1024 * 1024, timeout=120)"),
    (("supports", ""), "Seconds: `1xDays` stops three hooks.", "// stop\nhooks = ['a', 'b, c', second]"),
    (("contradicts", "the sentence says 2 MiB, the lines 1048576"), "It reads 2 MiB.", "read(1 << 20)"),
    (("says_nothing", "not in the lines: 7, GPL"), "`drop` keeps 7 lines under GPL.", "keep(lines)  # MIT"),
    (("says_nothing", "not in the lines: ISO 8601"), "Dates are as in ISO 8601.", "dates = 'ISO 9001'"),
    (("supports", ""), "It waits and then it looks at what its behaviour has told.", "wait(behavior)"),
    (("supports", ""), "All of the planets orbit 8 distant stars below 65535.", "x = 8, 2 ** 16 - 1"),
    (("supports", ""), "It requires Python 3.11.", "require(python, (3, 11))"),
])
def test_words(answer, sentence, lines):
    assert WordModel().answer(*citation_request(sentence, lines), lambda: False) == answer
