"""Answers kept between runs, in a folder that several processes may share."""

import sqlite3
import threading
from pathlib import Path

from command.terminal import CommandError, complain


class AnswerCache(dict[bytes, str]):
    """Answers by question, in an SQLite file of the folder. After a damaged file comes the next."""

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
            table = "answers (question PRIMARY KEY, answer) WITHOUT ROWID"
            self._database.execute(f"CREATE TABLE IF NOT EXISTS {table}")
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
