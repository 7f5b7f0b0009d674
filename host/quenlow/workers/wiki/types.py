"""The wiki's syntax for citations: `[src/app.py:L10-L12]`, `[src/app.py:L7]`, and `L0` for a whole file."""

import re

# A path holds no bracket, so a match never reaches over the next "[" and hostile pages cost linear time.
# 640 digits are what int() takes under every limit that the interpreter can be given.
_CITATION_RE = re.compile(
    r"\[([^\[\]\s\x00-\x1f\x7f][^\[\]\x00-\x1f\x7f]*):L([0-9]{1,640})(?:-L([0-9]{1,640}))?\]"
)


def citation_key(match: re.Match[str]) -> tuple[str, int, int]:
    """The path, first line and last line of a citation; the first line is 0 when it cites the file."""
    path, first, last = match.groups()
    start = int(first)
    return path, start, start if last is None else int(last)
