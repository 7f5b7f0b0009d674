"""Answers kept between runs, in a folder that several processes may share."""

import hashlib
import json
import re
import sqlite3
import threading
from pathlib import Path
from typing import Any

from command.report import CommandError, complain
from quenlow.engines.model import Decision, QuestionKey

_WAIT_SECONDS = 30.0


class AnswerCache:
    """Answers by question, in an SQLite file of the folder. After a damaged one comes the next."""

    def __init__(self, folder: Path) -> None:
        self._folder = folder
        self._lock = threading.Lock()
        try:
            folder.mkdir(parents=True, exist_ok=True)
            names = (re.fullmatch(r"answers-([0-9]{1,9})\.sqlite", file.name) for file in folder.iterdir())
            self._number = max((int(name[1]) for name in names if name), default=1)
            self._open(self._file)
        except (OSError, sqlite3.OperationalError) as error:
            raise CommandError(f"no answers can be kept in {folder}: {error}") from error
        except sqlite3.DatabaseError as error:
            self._begin_the_next(error)
        # A look into the file lets all threads of a page take turns, which costs more than the look.
        self._known = dict(self._execute("SELECT question, answer FROM answers"))

    def get(self, key: QuestionKey) -> Decision | None:
        question = _digest(key)
        kept = self._known.get(question)
        if kept is None:  # not when this run began
            rows = self._execute("SELECT answer FROM answers WHERE question = ?", question)
            kept = rows[0][0] if rows else "null"
        try:
            answer = json.loads(kept)
        except (TypeError, ValueError):
            return None
        return answer if isinstance(answer, dict) else None

    def __setitem__(self, key: QuestionKey, decision: Decision) -> None:
        question, answer = _digest(key), json.dumps(dict(decision))
        self._known[question] = answer
        self._execute("INSERT OR REPLACE INTO answers VALUES (?, ?)", question, answer)

    @property
    def _file(self) -> Path:
        return self._folder / f"answers-{self._number}.sqlite"

    def _open(self, file: Path | str) -> None:
        self._database = sqlite3.connect(
            file, timeout=_WAIT_SECONDS, isolation_level=None, check_same_thread=False
        )
        # What a power failure takes from a cache can be asked again.
        self._database.execute("PRAGMA synchronous = OFF")
        self._database.execute("CREATE TABLE IF NOT EXISTS answers (question PRIMARY KEY, answer)")

    def _execute(self, statement: str, *values: object) -> list[Any]:
        with self._lock:
            while True:
                try:
                    return self._database.execute(statement, values).fetchall()
                except sqlite3.DatabaseError as error:
                    self._begin_the_next(error)

    def _begin_the_next(self, error: sqlite3.DatabaseError) -> None:
        complain(f"the kept answers in {self._file} are of no use ({error}): starting afresh")
        # Processes that share the damaged file go on to the same next one.
        self._number += 1
        try:
            self._open(self._file)
        except sqlite3.DatabaseError:
            self._open(":memory:")


def _digest(key: QuestionKey) -> bytes:
    return hashlib.sha256(json.dumps(key, default=str).encode()).digest()
