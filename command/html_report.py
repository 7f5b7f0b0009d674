"""The report of a run as one HTML file that needs nothing else."""

import signal
from base64 import b64encode
from datetime import datetime
from functools import lru_cache
from hashlib import sha256
from pathlib import Path
from typing import TextIO

from jinja2 import Environment, FileSystemLoader, StrictUndefined
from markupsafe import Markup
from pygments import format as formatted
from pygments.formatters import HtmlFormatter
from pygments.lexers import find_lexer_class_for_filename
from pygments.token import Comment, Keyword, Name, Number, String, Text

from command.report import Report
from command.terminal import counted, printable

# What the style sheet colours. Other tokens stay plain text, which keeps a large report small.
_COLOURED = (Comment, Keyword, Name.Class, Name.Function, Number, String)
_lexer_for = lru_cache(find_lexer_class_for_filename)
_unfit = set[object]()


def write(report: Report, out: TextIO) -> None:
    folder = Path(__file__).parent
    parts = {name: Markup((folder / f"report.{name}").read_text(encoding="utf-8")) for name in ("css", "js")}
    # A browser applies and runs only what has one of these hashes, even if markup slipped through.
    hashes = {name: b64encode(sha256(part.encode()).digest()).decode() for name, part in parts.items()}
    environment = Environment(
        loader=FileSystemLoader(folder), undefined=StrictUndefined, trim_blocks=True, lstrip_blocks=True,
        # Control characters are made visible in whatever is printed; then it is escaped.
        autoescape=True, finalize=lambda value: value if isinstance(value, Markup) else printable(str(value)))
    template, now = environment.get_template("report.html.jinja"), datetime.now().astimezone()
    helpers = {"counted": counted, "highlighted": highlighted, "now": now}
    for part in template.generate(report=report, hashes=hashes, **parts, **helpers):
        # In ASCII, so that the encoding of `out` does not matter.
        out.write(part.encode("ascii", "xmlcharrefreplace").decode())


def highlighted(lines: str, path: str) -> list[Markup]:
    """Each of the lines as markup of its own, coloured by the language of the file."""
    code = "".join(f"{printable(line.expandtabs())}\n" for line in lines.split("\n"))
    tokens = [(Text, code)]
    if (lexer := _lexer_for(path)) and lexer not in _unfit:
        # Some text, such as a string that does not end, keeps some lexers busy for ever.
        signal.signal(signal.SIGALRM, signal.default_int_handler)
        try:
            signal.alarm(1)
            try:
                tokens = [*lexer(stripnl=False).get_tokens(code)]
            finally:
                signal.alarm(0)
        except (Exception, KeyboardInterrupt):  # no flaw of a lexer shall cost the report
            _unfit.add(lexer)
    kinds = ((next((kind for kind in _COLOURED if token in kind), Text), text) for token, text in tokens)
    html = formatted(kinds, HtmlFormatter(nowrap=True))
    return [*map(Markup, html.removesuffix("\n").split("\n"))]
