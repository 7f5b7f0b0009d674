"""Answers kept between runs."""

import shutil
import sqlite3
import subprocess
from collections.abc import Callable
from pathlib import Path

import pytest

from command.cache import AnswerCache
from quenlow.engines.decision import DecisionClient, DecisionConfig, citation_request
from quenlow.engines.model import DecisionError
from wiki_command import COMMAND, ENVIRONMENT, completion, model_server, says, wiki, write_wiki

REQUEST = citation_request("A sentence of words.", "the lines")


class Model:
    def __init__(self, name: str = "one", *answers: str) -> None:
        self.name = name
        self.answers = list(answers)

    def answer(self, *_arguments: object) -> dict[str, str]:
        if not self.answers:
            raise DecisionError("no more answers")
        return {"citation": self.answers.pop(0)}


def decide(cache: Path, model: Model, version: int = 1) -> str:
    client = DecisionClient(DecisionConfig(), model, AnswerCache(cache))
    return client.decide(*REQUEST, question_version=version)["citation"]


def test_only_successes_are_kept_by_version_model_and_question(tmp_path: Path) -> None:
    for failing in (Model("one"), Model("one", "nonsense")):
        with pytest.raises(DecisionError):
            decide(tmp_path, failing)
    assert decide(tmp_path, Model("one", "supports")) == "supports"
    assert decide(tmp_path, Model("one")) == "supports"
    assert decide(tmp_path, Model("two", "contradicts")) == "contradicts"
    assert decide(tmp_path, Model("one", "says_nothing"), version=2) == "says_nothing"
    assert decide(tmp_path, Model("one")) == "supports"


def spoil(at: int) -> Callable[[Path], None]:
    def overwrite(file: Path) -> None:
        content = bytearray(file.read_bytes())
        content[at : at + 200] = b"\xa5" * 200
        file.write_bytes(content)

    return overwrite


def set_answer(answer: object) -> Callable[[Path], None]:
    def update(file: Path) -> None:
        with sqlite3.connect(file) as database:
            database.execute("UPDATE answers SET answer = ?", (answer,))
        database.close()

    return update


DAMAGE = {
    "no database": lambda file: file.write_bytes(b"nothing of the sort" * 100),
    "head": spoil(0),
    "schema": spoil(100),
    "table": spoil(4096),
    "cut": lambda file: file.write_bytes(file.read_bytes()[:5000]),
    "empty": lambda file: file.write_bytes(b""),
    "another verdict": set_answer('{"citation": "maybe"}'),
    "another type": set_answer(b"\x80\x04"),
    "no JSON": set_answer("{"),
    "no object": set_answer("[1]"),
}


@pytest.mark.parametrize("damage", DAMAGE.values(), ids=DAMAGE)
def test_what_is_damaged_is_asked_again(
    damage: Callable[[Path], None], tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    decide(tmp_path, Model("one", "supports"))
    damage(tmp_path / "answers-1.sqlite")
    assert decide(tmp_path, Model("one", "contradicts")) == "contradicts"
    assert decide(tmp_path, Model("one")) == "contradicts"
    complaints = capsys.readouterr().err.splitlines()
    assert len(complaints) == (tmp_path / "answers-2.sqlite").exists()
    assert all("of no use" in line for line in complaints)


@pytest.mark.parametrize("damage", [DAMAGE["no database"], DAMAGE["empty"], lambda file: shutil.rmtree(file.parent)])
def test_damage_while_in_use(damage: Callable[[Path], None], tmp_path: Path) -> None:
    client = DecisionClient(DecisionConfig(), Model("one", "supports", "contradicts"), AnswerCache(tmp_path / "c"))
    client.decide(*REQUEST, question_version=1)
    damage(tmp_path / "c/answers-1.sqlite")
    assert [client.decide(*REQUEST, question_version=2)["citation"] for _ in "12"] == ["contradicts"] * 2


def test_a_second_lint_asks_nothing(repo: Path, tmp_path: Path) -> None:
    lint = ["lint", write_wiki(tmp_path / "wiki", 3, 3), "--repo", repo, "--consent", "--cache", tmp_path / "cache"]
    with model_server(says(completion("contradicts"))) as server:
        lint += ["--model-url", server.url, "--model", "small"]
        first = wiki(*lint)
        server.respond = says(b"", 500)
        second = wiki(*lint)
        dry = wiki(*lint, "--dry-run")
    assert (first.returncode, second.returncode, dry.returncode) == (1, 1, 0)
    assert first.stdout.replace("9 questions asked", "0 questions asked") == second.stdout
    assert dry.stdout.endswith("0 questions to ask, of about 0 input tokens\n")
    assert len(server.sentences) == 9


def test_two_processes_share_a_cache(repo: Path, tmp_path: Path) -> None:
    lint = ["lint", write_wiki(tmp_path / "wiki", 20, 9), "--repo", repo, "--consent", "--cache", tmp_path / "cache"]
    calls = [subprocess.Popen([*COMMAND, *map(str, lint)], env=ENVIRONMENT, stderr=subprocess.PIPE) for _ in "12"]
    assert [call.communicate()[1] for call in calls] == [b"", b""]
    assert "0 questions asked" in wiki(*lint).stdout


def test_a_cache_that_cannot_be(repo: Path, tmp_path: Path) -> None:
    (tmp_path / "file").touch()
    run = wiki("lint", write_wiki(tmp_path / "wiki", 1), "--repo", repo, "--consent", "--cache", tmp_path / "file")
    assert run.returncode == 2 and run.stderr.count("\n") == 1 and "no answers can be kept" in run.stderr
