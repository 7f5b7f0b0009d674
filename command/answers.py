"""Who answers the questions of a run: a decision model, and what it answered in earlier runs."""

import os
import sqlite3
import threading
from argparse import Namespace
from functools import lru_cache
from pathlib import Path
from typing import Any

from command.terminal import CommandError, complain
from quenlow.engines.decision import DecisionClient, DecisionConfig
from quenlow.engines.word_model import WordModel

KEY_VARIABLE = "WIKI_MODEL_KEY"


def decision_client(options: Namespace) -> DecisionClient:
    """The client of one run; what the run may spend, its budgets say."""
    model = _model(options.model_url, options.model, options.timeout, options.dry_run)
    model.costs |= options.dry_run  # then it is charged for what no kept answer spares, and not asked
    return DecisionClient(DecisionConfig(), model, options.cache and _kept(options.cache, options.run))


_kept = lru_cache(maxsize=1)(lambda folder, _run: AnswerCache(folder))  # a worker takes many looks in one run


@lru_cache(maxsize=1)  # with its connections to the server
def _model(url: str | None, name: str | None, timeout: int, _dry_run: bool) -> Any:
    if not url and not name:
        return WordModel()
    if not url or not name:
        raise CommandError("--model-url and --model go together: which server, and which of its models")
    from quenlow.engines.chat_model import ChatModel

    try:
        return ChatModel(url, name, os.environ.get(KEY_VARIABLE, "").strip(), timeout, complain)
    except ValueError as error:
        raise CommandError(error) from error


class AnswerCache(dict[bytes, str]):
    """Answers by question, in a file that processes may share. After a damaged file comes the next."""

    def __init__(self, folder: Path) -> None:
        self._lock = threading.Lock()
        self._keeping = True
        try:
            folder.mkdir(parents=True, exist_ok=True)
            # Processes that share a damaged file go on to the same next one.
            number = len(list(folder.glob("answers-*.sqlite"))) or 1
            while not self._loaded(folder / f"answers-{number}.sqlite"):
                number += 1
        except (OSError, sqlite3.OperationalError) as error:
            raise CommandError(f"no answers can be kept in {folder}: {error}") from error

    def _loaded(self, file: Path) -> bool:
        self._database = sqlite3.connect(file, timeout=30, isolation_level=None, check_same_thread=False)
        try:
            # What a power failure takes from a cache can be asked again.
            self._database.execute("PRAGMA synchronous = OFF")
            self._database.execute(
                "CREATE TABLE IF NOT EXISTS answers (question PRIMARY KEY, answer) WITHOUT ROWID")
            [[sound]] = self._database.execute("PRAGMA quick_check(1)")
            if sound != "ok":
                raise sqlite3.DatabaseError(sound)
            self.update(self._database.execute("SELECT question, answer FROM answers").fetchall())
        except sqlite3.OperationalError:
            raise
        except sqlite3.DatabaseError as error:
            complain(f"the kept answers in {file} are of no use ({error}): starting afresh")
            return False
        return True

    def __setitem__(self, question: bytes, answer: str) -> None:
        with self._lock:
            super().__setitem__(question, answer)
            try:
                if self._keeping:
                    self._database.execute("INSERT OR REPLACE INTO answers VALUES (?, ?)", (question, answer))
            except sqlite3.DatabaseError as error:
                complain(f"no more answers are kept: {error}")
                self._keeping = False
