"""Reads a chat model's answer out of what its server replied."""

import json
import re

from quenlow.engines.model import Answer

_REASON_CHARS = 300
_MARKS = r"[\s\"'`*_#]*"
# Models that think aloud end that with this tag, and not all begin it with one.
_THINKING_RE = re.compile(r"\A(?!\s*(?:\{|```)).*</think>", re.DOTALL)


def read_answer(reply: str, choices: tuple[str, ...]) -> Answer | None:
    """The answer in a chat completion: a word, or JSON that has it as its verdict. None: it has no answer."""
    try:
        content = _THINKING_RE.sub("", json.loads(reply)["choices"][0]["message"]["content"])
        if answer := _said(content, choices):
            return answer
        # The JSON may stand in a code fence, or behind an introduction.
        told = json.JSONDecoder().raw_decode(content[content.index("{") :])[0]
        answer = _said(told.get("verdict") or told["answer"], choices)
        reason = told.get("reason")
    except (ValueError, LookupError, TypeError, AttributeError, RecursionError):
        return None
    return Answer(answer.choice, _one_line(reason)) if answer and isinstance(reason, str) else answer


def _said(text: str, choices: tuple[str, ...]) -> Answer | None:
    """The choice that a text begins with, and what follows it; a text that lists the choices has none."""
    word = "|".join(re.escape(choice).replace("_", "[_ -]") for choice in choices)
    leading = rf"{_MARKS}({word}){_MARKS}(?:\Z|[.,:;!\n–—-](?!\W*(?:or\W+)?(?:{word})))"
    said = re.match(leading, text, re.IGNORECASE)
    if not said:
        return None
    return Answer(re.sub("[ -]", "_", said[1].lower()), _one_line(text[said.end() :].lstrip("*_\"' ")))


def _one_line(text: str) -> str:
    """A reason, without what no file could hold."""
    return " ".join(text.split()).encode(errors="replace").decode()[:_REASON_CHARS]
