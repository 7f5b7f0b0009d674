"""What the command prints, and what it means to whoever called it."""

import sys

CLEAN, FOUND, INCOMPLETE = 0, 1, 2


class CommandError(Exception):
    """The command cannot do what it was asked to; the message is one line that says why."""


def complain(message: object) -> None:
    print(f"wiki: {printable(str(message))}", file=sys.stderr)


def printable(text: str) -> str:
    """Text on one line, without the control characters that a page could steer a terminal with."""
    return "".join(char if char.isprintable() else ascii(char)[1:-1] for char in text)


def counted(number: int, noun: str) -> str:
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def skipped_in_words(over_cap: int, unreadable: int) -> str:
    claims = counted(over_cap + unreadable, "claim")
    return f"{claims} skipped ({over_cap} over the cap, {unreadable} unreadable)"
