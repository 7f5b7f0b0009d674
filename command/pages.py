"""The wiki's pages: which they are, and what they hold."""

import os
from argparse import Namespace
from fnmatch import fnmatch
from pathlib import Path
from typing import NamedTuple

from command.report import Finding
from command.terminal import CommandError


class Page(NamedTuple):
    id: str  # its path in the wiki, without the suffix
    shown: str  # its path as the user is shown it
    file: Path


def find_pages(options: Namespace) -> tuple[list[Page], list[Finding]]:
    """The named pages and those below the named folders, each once; and the folders that cannot be read."""
    pages, errors = dict[Path, Page](), list[OSError]()
    repo = options.repo.resolve()
    for target in options.targets:
        top, files = (target, list[Path]()) if target.is_dir() else (target.parent, [target])
        resolved = top.resolve()
        root = repo if resolved.is_relative_to(repo) else resolved

        def is_excluded(path: Path) -> bool:
            named = f"/{(resolved / path.relative_to(top)).relative_to(root).as_posix()}/"
            return any(fnmatch(named, f"*/{os.path.normpath(glob).strip('/')}/*") for glob in options.exclude)

        for folder, folders, names in os.walk(top, onerror=errors.append) if top is target else ():
            seen = (name for name in folders if not name.startswith(".") and name != "node_modules")
            folders[:] = [name for name in seen if not is_excluded(Path(folder, name))]
            files += [Path(folder, name) for name in names if name.endswith(".md")]
        if not files and not errors:
            raise CommandError(f"no pages (*.md) below {target}")
        ids = {file.relative_to(top).as_posix().removesuffix(".md"): file for file in files}
        for page, file in sorted(ids.items()):
            if not is_excluded(file):
                pages.setdefault(resolved / file.relative_to(top), Page(page, shown(file), file))
    return list(pages.values()), [
        Finding("medium", "folder-unreadable", f"cannot be read: {one.strerror}", file=shown(one.filename))
        for one in errors]


def shown(file: str | Path) -> str:
    return str(file).removeprefix(f"{Path.cwd()}{os.sep}")


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
