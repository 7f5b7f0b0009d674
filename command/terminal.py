"""Colour and the progress bar, where a terminal shows them."""

import os
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from typing import TextIO

from command.run import Advance


def coloured(text: str, colour: str, out: TextIO) -> str:
    return f"\033[{colour}m{text}\033[0m" if out.isatty() and not os.environ.get("NO_COLOR") else text


@contextmanager
def progress(pages: int) -> Iterator[Advance]:
    """A bar on standard error, when that is a terminal."""
    if not sys.stderr.isatty():
        yield lambda _pages, _questions, _findings: None
        return
    from tqdm import tqdm

    asked = found = 0

    def advance(pages: int, questions: int, findings: int) -> None:
        nonlocal asked, found
        asked, found = asked + questions, found + findings
        bar.set_postfix_str(f"{asked} questions asked, {found} findings", refresh=False)
        bar.update(pages)

    with tqdm(total=pages, unit=" pages", leave=False) as bar:
        yield advance
