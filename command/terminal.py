"""How the command speaks with whoever called it."""

import signal
import sys
import threading
from collections.abc import Callable


class CommandError(Exception):
    """The command cannot do what it was asked to; the message is one line that says why."""


def complain(message: object) -> None:
    print(f"wiki: {printable(str(message))}", file=sys.stderr)


def printable(text: str) -> str:
    """Text on one line, without the control characters that a page could steer a terminal with."""
    return "".join(char if char.isprintable() else ascii(char)[1:-1] for char in text)


def counted(number: int, noun: str) -> str:
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def stop_on_interrupt() -> Callable[[], bool]:
    """The run's `should_stop`, true from the first Ctrl-C on; the second one kills."""
    stop = threading.Event()

    def request_stop(*_signal: object) -> None:
        signal.signal(signal.SIGINT, signal.SIG_DFL)
        stop.set()

    signal.signal(signal.SIGINT, request_stop)
    return stop.is_set
