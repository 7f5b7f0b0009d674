"""Answers kept between runs."""

import shutil
import sqlite3

import pytest

from command.cache import AnswerCache
from quenlow.engines.decision import DecisionClient, DecisionConfig, citation_request
from quenlow.engines.model import DecisionError
from wiki_command import completion, model_server, says, start, wiki, write_wiki

REQUEST = citation_request("A sentence of words.", "the lines")


class Model:
    def __init__(self, *answers, name="one"):
        self.name, self.answers = name, list(answers)

    def answer(self, *_arguments):
        if not self.answers:
            raise DecisionError("no more answers")
        return self.answers.pop(0)


def decide(cache, model, version=1):
    client = DecisionClient(DecisionConfig(), model, AnswerCache(cache))
    return client.decide(*REQUEST, question_version=version)["citation"]


def test_only_successes_are_kept_by_version_model_and_question(tmp_path):
    for failing in (Model(), Model("nonsense")):
        with pytest.raises(DecisionError):
            decide(tmp_path, failing)
    assert decide(tmp_path, Model("supports")) == "supports"
    assert decide(tmp_path, Model("contradicts", name="two")) == "contradicts"
    assert decide(tmp_path, Model("says_nothing"), version=2) == "says_nothing"
    assert decide(tmp_path, Model()) == "supports"


def spoil(at):
    def overwrite(file):
        content = bytearray(file.read_bytes())
        content[at : at + 200] = b"\xa5" * 200
        file.write_bytes(content)

    return overwrite


def set_answer(answer):
    def update(file):
        with sqlite3.connect(file) as database:
            database.execute("UPDATE answers SET answer = ?", (answer,))
        database.close()

    return update


def no_database(file):
    file.write_bytes(b"nothing of the sort" * 100)


@pytest.mark.parametrize("damage, fresh_start", [
    (no_database, True), (spoil(0), True), (spoil(100), True), (spoil(4096), True),
    (lambda file: file.write_bytes(file.read_bytes()[:5000]), True),
    (lambda file: file.write_bytes(b""), False), (set_answer("maybe"), False), (set_answer(b"\x80"), False),
])
def test_what_is_damaged_is_asked_again(damage, fresh_start, tmp_path, capsys):
    decide(tmp_path, Model("supports"))
    damage(tmp_path / "answers-1.sqlite")
    assert decide(tmp_path, Model("contradicts")) == "contradicts"
    assert decide(tmp_path, Model()) == "contradicts"
    complaints = capsys.readouterr().err.splitlines()
    assert ["are of no use" in line for line in complaints] == [True] * fresh_start


@pytest.mark.parametrize("damage", [
    no_database, lambda file: file.write_bytes(b""), lambda file: shutil.rmtree(file.parent)])
def test_damage_while_in_use(damage, tmp_path):
    model = Model("supports", "contradicts")
    client = DecisionClient(DecisionConfig(), model, AnswerCache(tmp_path / "cache"))
    client.decide(*REQUEST, question_version=1)
    damage(tmp_path / "cache/answers-1.sqlite")
    for _ in range(2):
        assert client.decide(*REQUEST, question_version=2) == {"citation": "contradicts"}


@pytest.fixture
def lint(repo, tmp_path):
    pages = write_wiki(tmp_path / "wiki", 9, 3)
    return ["lint", pages, "--repo", repo, "--consent", "--cache", tmp_path / "cache"]


def test_a_second_lint_asks_nothing(lint):
    with model_server(says(completion("contradicts"))) as server:
        lint += ["--model-url", server.url, "--model", "small"]
        first = wiki(*lint)
        server.respond = says(b"", 500)
        again = wiki(*lint)
        dry = wiki(*lint, "--dry-run")
    assert first[0] == 1 and "27 questions asked, 27 findings" in first[1] and len(server.sentences) == 27
    assert again == (1, first[1].replace("27 questions", "0 questions"), "")
    assert dry[0] == 0 and dry[1].endswith("at most 0 questions to ask, of about 0 input tokens\n")


def test_two_processes_share_a_cache(lint):
    assert [running.communicate()[1] for running in (start(lint), start(lint))] == ["", ""]
    assert "0 questions asked" in wiki(*lint)[1]


def test_a_folder_that_cannot_be(lint, tmp_path):
    (tmp_path / "cache").touch()
    status, _, errors = wiki(*lint)
    assert status == 2 and errors.count("\n") == 1 and "no answers can be kept" in errors
