"""Findings that are known, and not told again: a sorted text file, one line each."""

import os
from collections.abc import Iterable
from contextlib import suppress
from pathlib import Path

from command.report import UNANSWERED, Finding
from command.terminal import CommandError, printable, replacing


class Baseline:
    """Its entries: the page's path from the file's folder, the citation, the sentence or else the kind."""

    def __init__(self, file: Path, rewrite: bool) -> None:
        self._file, self._rewrite = file, rewrite
        self._found = set[tuple[str, ...]]()
        try:
            lines = file.read_text("utf-8-sig").splitlines() if file.exists() or not rewrite else []
        except (OSError, ValueError) as error:
            raise CommandError(f"no baseline can be read (--write-baseline makes one): {error}") from error
        self._known = {tuple(line.split("\t")) for line in lines}
        folder = os.path.dirname(os.path.realpath(file))
        if rewrite and not os.access(f"{folder}/.", os.W_OK):
            raise CommandError(f"no baseline can be written in {folder}")
        if any(len(entry) != 3 for entry in self._known):
            raise CommandError(f"{file} is no baseline: a line is not a page, a citation and a sentence")

    def knows(self, finding: Finding) -> bool:
        sentence = printable(finding.sentence or finding.kind)
        entry = (self._path(finding.file), printable(finding.citation), sentence)
        if finding.kind == UNANSWERED:  # which says nothing of what is or was found
            self._found |= self._known & {entry}
            return False
        self._found.add(entry)
        return self._rewrite or entry in self._known

    def settle(self, pages: Iterable[str]) -> list[str]:
        """Notes of what is no longer found, of these pages or of lost ones; now the file is written."""
        checked, gone = {self._path(page) for page in pages}, []
        for entry in sorted(self._known - self._found):
            with suppress(OSError):  # what may not be looked at is kept
                if entry[0] in checked or not (self._file.parent / entry[0]).exists():
                    gone.append(entry)
        if self._rewrite:
            with replacing(self._file) as out:
                kept = (self._known | self._found).difference(gone)
                out.writelines("\t".join(entry) + "\n" for entry in sorted(kept))
        return [f"no longer found: {' '.join(entry)}" for entry in gone]

    def _path(self, file: str) -> str:
        return printable(os.path.relpath(os.path.realpath(file), os.path.realpath(self._file.parent)))
