"""The wiki's pages, read from their folder."""

import os
from pathlib import Path

from command.terminal import CommandError


def page_files(wiki_dir: Path) -> dict[str, Path]:
    """The pages below a folder, by page id, in the order of their ids."""

    def unreadable(error: OSError) -> None:
        raise error

    files = {}
    for folder, _folders, names in os.walk(wiki_dir, onerror=unreadable):
        for file in (Path(folder, name) for name in names if name.endswith(".md")):
            files[file.relative_to(wiki_dir).as_posix().removesuffix(".md")] = file
    if not files:
        raise CommandError(f"no pages (*.md) below {wiki_dir}")
    return dict(sorted(files.items()))


def read_page(file: Path) -> str:
    """A page's Markdown, its line ends as they are."""
    try:
        # A FIFO or a device could keep the reader waiting for ever.
        if file.exists() and not file.is_file():
            raise CommandError(f"not a file: {file}")
        return file.read_bytes().decode("utf-8-sig")
    except OSError as error:
        raise CommandError(f"cannot read {file}: {error.strerror}") from error
    except UnicodeDecodeError as error:
        raise CommandError(f"{file} is not UTF-8: {error.reason} at byte {error.start}") from error
