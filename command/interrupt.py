"""Ctrl-C as a request to stop."""

import signal
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from types import FrameType


@contextmanager
def stop_on_interrupt() -> Iterator[Callable[[], bool]]:
    """Gives the run's `should_stop`, true from the first Ctrl-C on; the second one kills."""
    stop = threading.Event()

    def request_stop(_signal: int, _frame: FrameType | None) -> None:
        signal.signal(signal.SIGINT, signal.SIG_DFL)
        stop.set()

    before = signal.signal(signal.SIGINT, request_stop)
    try:
        yield stop.is_set
    finally:
        signal.signal(signal.SIGINT, before)
