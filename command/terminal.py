"""How the command speaks with whoever called it."""

import os
import shutil
import signal
import sys
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import TextIO

from tqdm import tqdm

STOP_SIGNALS = (signal.SIGINT, signal.SIGTERM)


class CommandError(Exception):
    """The command cannot do what it was asked to; the message is one line that says why."""


def complain(message: object) -> None:
    tqdm.write(f"wiki: {printable(str(message))}", file=sys.stderr)  # beside the bar, if there is one


def printable(text: str) -> str:
    """Text on one line, without the control characters that a page could steer a terminal with."""
    if text.isprintable():
        return text
    return "".join(char if char.isprintable() else ascii(char)[1:-1] for char in text)


def counted(number: int, noun: str) -> str:
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def stop_on_signals() -> Callable[[], bool]:
    """The run's `should_stop`, true from the first Ctrl-C or SIGTERM on; the second one kills."""
    stop = threading.Event()

    def request_stop(*_signal: object) -> None:
        for each in STOP_SIGNALS:
            signal.signal(each, signal.SIG_DFL)
        stop.set()

    for each in STOP_SIGNALS:
        signal.signal(each, request_stop)
    return stop.is_set


@contextmanager
def replacing(file: Path) -> Iterator[TextIO]:
    """Opens what becomes the file when it is whole: until then the file stays as it is."""
    is_device = file.exists() and not file.is_file()
    file = file if is_device else Path(os.path.realpath(file))
    beside = file if is_device else file.with_name(f".{file.name[:99]}.{os.getpid()}")
    try:
        with open(beside, "w", encoding="utf-8", errors="backslashreplace") as out:
            if file.is_file():
                shutil.copymode(file, beside)
            yield out
        if not is_device:
            beside.replace(file)
    finally:
        if not is_device:
            beside.unlink(missing_ok=True)
