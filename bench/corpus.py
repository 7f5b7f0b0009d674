"""Wikis to measure with: Python's own documentation strings as pages that cite Python's own source files."""

from __future__ import annotations

import ast
import itertools
import re
import sysconfig
import textwrap
import warnings
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from pathlib import Path

_FULL_STOP_RE = re.compile(r"(?<=\w|[)`'\"])[.!?](?=\s+[A-Z`*_]|\s*\Z)")
_LEFT_OUT = {"dist-packages", "site-packages", "test", "tests", "idlelib"}


@dataclass(frozen=True)
class Wiki:
    pages: dict[str, str]
    repo: Path


@dataclass(frozen=True)
class Definition:
    """A function, class or method of a source file, with what its documentation string says."""

    name: str
    depth: int
    doc: str
    path: str
    start: int
    end: int

    @property
    def ref(self) -> str:
        last = f"-L{self.end}" if self.end > self.start else ""
        return f"[{self.path}:L{self.start}{last}]"


def wiki_of(pages: Path, repo: Path) -> Wiki:
    """The Markdown files of a folder, each under its path without the ending."""
    files = sorted(pages.rglob("*.md"))
    texts = {str(file.relative_to(pages).with_suffix("")): file.read_text(encoding="utf-8") for file in files}
    return Wiki(texts, repo)


def standard_library() -> Wiki:
    """A page a module of the standard library."""
    repo = Path(sysconfig.get_path("stdlib"))
    pages = {}
    for file in sorted(repo.rglob("*.py")):
        if _LEFT_OUT.isdisjoint(file.relative_to(repo).parts):
            page = _page(file, repo)
            if page:
                pages[str(file.relative_to(repo).with_suffix(""))] = page
    return Wiki(pages, repo)


def distinct_claims(cited: Iterable[tuple[str, str]], count: int) -> str:
    """One page of so many claims, from sentences and their files, no two citing the same lines."""
    usable = [(text.rstrip(".!?"), path) for text, path in cited if text[0].isalpha() and len(text) > 20]
    sentences = (
        f"{text[0].upper()}{text[1:]} [{path}:L{number}-L{number + 9}]."
        for number, (text, path) in zip(range(1, count + 1), itertools.cycle(usable))
    )
    paragraphs = iter(lambda: "\n".join(itertools.islice(sentences, 5)), "")
    return "# Index\n\n" + "\n\n".join(paragraphs) + "\n"


def _page(file: Path, repo: Path) -> str:
    path = file.relative_to(repo).as_posix()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        try:
            tree = ast.parse(file.read_bytes())
        except (SyntaxError, ValueError):
            return ""
    sections = [_section(definition) for definition in _definitions(tree, path)]
    if not sections:
        return ""
    title = f"# {path.removesuffix('.py').replace('/', '.')}"
    intro = ast.get_docstring(tree) or f"What `{path}` offers."
    return "\n\n".join([title, intro, *sections]) + "\n"


def _definitions(node: ast.AST, path: str, outer: str = "", depth: int = 2) -> Iterator[Definition]:
    for child in ast.iter_child_nodes(node):
        if isinstance(child, (ast.FunctionDef, ast.AsyncFunctionDef, ast.ClassDef)):
            name = f"{outer}{child.name}"
            doc = ast.get_docstring(child)
            if doc:
                yield Definition(name, depth, doc, path, child.lineno, child.end_lineno or child.lineno)
            yield from _definitions(child, path, f"{name}.", min(depth + 1, 4))


def _section(definition: Definition) -> str:
    blocks = re.split(r"\n[ \t]*\n", definition.doc)
    body = "\n\n".join(_block(block, definition.ref) for block in blocks)
    return f"{'#' * definition.depth} `{definition.name}`\n\n{body}"


def _block(block: str, ref: str) -> str:
    """A paragraph or list whose sentences cite; an example or what else is indented becomes fenced code."""
    if block.lstrip().startswith(">>>") or block.startswith("    "):
        return f"```\n{textwrap.dedent(block)}\n```"
    cited = _FULL_STOP_RE.sub(lambda end: f" {ref}{end[0]}", block.rstrip())
    return cited if cited.endswith((".", "!", "?")) else f"{cited} {ref}"
