"""Prose blocks, and the generator that yields them."""

import inspect
import sys
from collections.abc import Generator
from itertools import product
from types import SimpleNamespace

import pytest
from support import Text, agree, fail, outcome, traced


@pytest.mark.parametrize(
    "markdown, blocks",
    [
        ("", []), (" \n\t", []), ("- a\n\n  b", ["a", "b"]), ("Alpha\nbeta\n\nBeta", ["Alpha beta", "Beta"]),
        ("Intro\n- one\n- two\n  more\n3) three", ["Intro", "one", "two more", "three"]),
        ("Text\n# Heading\nMore", ["Text", "More"]), ("A\n| x | y |\nB", ["A", "B"]),
        ("a\n> q\nb\n  #tag\nc", ["a", "b", "c"]), ("   indented text", ["indented text"]),
        ("Alpha\r\nbeta\r\n", ["Alpha beta"]), ("Title\n---\n===", ["Title --- ==="]), ("* * *", ["* *"]),
        ("1.5 million\nrows\n-x\n**bold**\n1.", ["1.5 million rows -x **bold** 1."]), ("-\nx", ["- x"]),
        ("a\n+ b\n\u0663) d\n\U0001d7d8. e\n\u00b2. f", ["a", "b", "d", "e \u00b2. f"]),
        ("x\n```\ncode\n```\ny", ["x", "y"]), ("x\n```py\n~~~\n# y", ["x"]), ("x\n~~~\r\n```\ny", ["x", "y"]),
        ("A\tb  c\x0cd\x00e", ["A\tb  c\x0cd\x00e"]), ("\ud800\n\U0001f600", ["\ud800 \U0001f600"]),
        (Text("- one\ntwo"), ["one two"]), ("a\x1b\n\u200b\n\ufeff# b", ["a\x1b \u200b \ufeff# b"]), ("12\n1 x\n2024", ["12 1 x 2024"]),
    ],
)
def test_blocks(module, markdown, blocks):
    assert list(module._prose_blocks(markdown)) == blocks


def test_every_whitespace_character(module):
    spaces = [chr(code) for code in range(sys.maxunicode + 1) if chr(code).isspace()]
    assert len(spaces) == 29
    # A table tells whitespace below U+0100, and the interpreter from there on.
    for letter, space in product("aĀ", set(spaces) - {"\n"}):
        blocks = module._prose_blocks(f"{space}{letter}{space}b\n{space}-{space}{space}c{space}\n{space}")
        assert list(blocks) == [f"{letter}{space}b", "c"]


class Own(str):
    """A line that stays what it is when it is stripped."""

    def strip(self):
        return Own(super().strip())


def test_pages_of_any_kind(both):
    def road(one):
        trace = []
        for name in ("_FENCE_RE", "_LIST_MARK_RE"):
            pattern = getattr(one, name)
            match, sub = traced(trace, name, pattern.match), traced(trace, "sub", pattern.sub)
            setattr(one, name, SimpleNamespace(match=match, sub=sub))
        blocks = outcome(lambda: [(block, len(trace)) for block in one._prose_blocks(markdown)])
        return blocks, [(name, given) for name, given, _named in trace]

    lines = ["a", b"b"], None, "ab", [Text(" a ")], list(map(Own, [" a ", "- b", "# c", "", "d"]))
    pages = [SimpleNamespace(split=lambda _end, made=made: made) for made in lines]
    pages.append(SimpleNamespace(split=lambda _end: map(fail, "ab")))
    pages += "  a\nb\n\n- c\n```\nd", "", None, b"a", 7, ["a"]
    for markdown in pages:
        agree(both, lambda one: list(one._prose_blocks(markdown)))
    for markdown in pages:
        agree(both, road)


def raised():
    try:
        fail()
    except LookupError as error:
        return error


STEPS = {
    "next": next,
    "send None": lambda blocks: blocks.send(None),
    "send": lambda blocks: blocks.send("a value"),
    "throw": lambda blocks: blocks.throw(ValueError("thrown")),
    "throw a class": lambda blocks: blocks.throw(ValueError, "thrown", None),
    "throw an end": lambda blocks: blocks.throw(StopIteration(1)),
    "throw an exit": lambda blocks: blocks.throw(GeneratorExit),
    "throw no exception": lambda blocks: blocks.throw(1),
    "throw no traceback": lambda blocks: blocks.throw(ValueError, "thrown", 1),
    "throw what was raised": lambda blocks: blocks.throw(raised()),
    "throw as from elsewhere": lambda blocks: blocks.throw(ValueError("thrown"), None, raised().__traceback__),
    "throw no exception's class": lambda blocks: blocks.throw(int),
    "throw from elsewhere": lambda blocks: blocks.throw(LookupError, None, raised().__traceback__),
    "throw two values": lambda blocks: blocks.throw(ValueError("thrown"), 1),
    "throw too much": lambda blocks: blocks.throw(ValueError, 1, None, None),
    "throw nothing": lambda blocks: blocks.throw(),
    "close": lambda blocks: blocks.close(),
}


@pytest.mark.parametrize("first", STEPS)
def test_generator_protocol(both, first):
    def road(one):
        blocks = one._prose_blocks("One\n\ntwo")
        for step in steps:
            try:
                yield outcome(STEPS[step], blocks)
            except GeneratorExit:
                yield "exit"
            yield inspect.getgeneratorstate(blocks)

    for steps in product([first], STEPS, STEPS):
        agree(both, lambda one: list(road(one)))


@pytest.mark.parametrize("step", ["next", "send", "throw", "close"])
def test_reentry(both, step):
    def road(one):
        def match(_line):
            states.append((inspect.getgeneratorstate(blocks), outcome(STEPS[step], blocks)))

        states, one._FENCE_RE = [], SimpleNamespace(match=match)
        blocks = one._prose_blocks("a\n\nb")
        return list(blocks), states

    assert "ValueError: generator already executing" in agree(both, road)


def test_generator_is_one(module):
    def delegate():
        return (yield from blocks)

    blocks = module._prose_blocks("One\n\ntwo")
    assert isinstance(blocks, Generator) and iter(blocks) is blocks
    assert (blocks.__name__, blocks.__qualname__) == ("_prose_blocks", "_prose_blocks")
    assert list(delegate()) == ["One", "two"] and list(blocks) == []


def test_generator_of_a_renamed_function(both):
    def road(one):
        one._prose_blocks.__name__, one._prose_blocks.__qualname__ = "other", "one.other"
        return one._prose_blocks("page"), one._prose_blocks("page").__name__

    assert "one.other" in agree(both, road)


def test_context_of_what_is_thrown(both):
    def road(one, thrown):
        try:
            fail()
        except LookupError:
            try:
                one._prose_blocks("page").throw(thrown)
            except Exception as error:
                return error, error.__context__, error.__cause__

    for thrown in (ValueError, ValueError("a"), raised(), StopIteration(1)):
        agree(both, lambda one: road(one, thrown))


@pytest.mark.parametrize("name", ["__name__", "__qualname__"])
def test_generator_attributes_change_as_ever(both, name):
    def changed(one):
        blocks = one._prose_blocks("page")
        for value in (7, "text", Text("own"), None):
            yield outcome(setattr, blocks, name, value), getattr(blocks, name)
        yield outcome(delattr, blocks, name), repr(blocks)

    agree(both, lambda one: list(changed(one)))


@pytest.mark.parametrize("error, seen", [
    (KeyError("host"), KeyError), (StopIteration(1), RuntimeError), (SystemExit(1), SystemExit)])
def test_host_errors_end_the_generator(module, error, seen):
    def match(line):
        if line == "bad":
            raise error

    module._FENCE_RE = SimpleNamespace(match=match)
    blocks = module._prose_blocks("a\n\nb\nbad\nc")
    assert next(blocks) == "a"
    with pytest.raises(seen) as raised:
        next(blocks)
    assert error in (raised.value, raised.value.__cause__) and list(blocks) == []
