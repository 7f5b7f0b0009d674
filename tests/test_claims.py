"""Cited claims: sentences, claim texts, records."""

from itertools import product
from types import SimpleNamespace

import pytest
from support import Text, agree, fail, traced

A, W = "Reads files.", "Writes them!"


@pytest.mark.parametrize(
    "markdown, expected",
    [
        ("", []), ("A sentence without a citation.", []), ("Reads file [a:L1].", []),
        ("Reads files [a:L0].", []),
        ("# Reads files [a:L1]\n| Reads files [a:L1]\n> Reads files [a:L1]\n```\nReads files [a:L1]", []),
        ("Reads files [a:L1].", [(A, "a", 1, 1)]), ("Reads files [a:L0] [b:L2-L3].", [(A, "b", 2, 3)]),
        ("é" * 12 + " [a:L1]", [("é" * 12, "a", 1, 1)]), ("\U0001f600" * 11 + " [a:L1]", []),
        ("Reads files [a:L4-L2] [./b//c:L2].", [(A, "a", 4, 2), (A, "b/c", 2, 2)]),
        ("Reads files [a:L1] [a:L1] [./a:L1].\n\n- Reads files [a:L1].", [(A, "a", 1, 1)]),
        ("Reads files [a:L1].\n\nReads files [a:L2].", [(A, "a", 1, 1), (A, "a", 2, 2)]),
        ("Reads files [a:L1]. Writes them [b:L2]!", [(A, "a", 1, 1), (W, "b", 2, 2)]),
        (f"Reads\nfiles [a:L{10**30}].", [(A, "a", 10**30, 10**30)]),
        ("Lone \ud800 surrogate [\udfff:L1].", [("Lone \ud800 surrogate.", "\udfff", 1, 1)]),
        (Text("Reads \x00 files [a:L1]."), [("Reads \x00 files.", "a", 1, 1)]),
    ],
)
def test_claims(module, markdown, expected):
    assert module.cited_claims(markdown) == [module.CitedClaim(*values) for values in expected]


def test_page_of_many_claims(both):
    sentences = (f"Reads the files [a:L{number}] [b:L{number % 7}]." for number in [*range(70), *range(80)])
    markdown = "\n\n".join(sentences)
    assert agree(both, lambda one: one.cited_claims(markdown)).count("CitedClaim(") == 79 + 6


@pytest.mark.parametrize("sentences", [
    "It reads the file.| Then it parses it.", "It calls foo(). then it stops.", "See `x`.| `y` follows.",
    "Done!| **Bold** next", "Version 1.2 is used.", "Ends here]|  Next", "Fine.|\xa0Next?|\x1c\u3000_Last_",
    "No.\u200bSplit.Here. \u00c9t\u00e9. 7",
])
def test_sentences(module, sentences):
    seen = []
    module._CITATION_RE = SimpleNamespace(finditer=lambda sentence: seen.append(sentence) or ())
    assert module.cited_claims(sentences.replace("|", "")) == []
    assert seen == [sentence.strip() for sentence in sentences.split("|")]


@pytest.mark.parametrize("sentence, text", [
    ("  It calls  foo()\t, then stops !  ", "It calls foo(), then stops!"), ("A\tb", "A\tb"),
    ("A [a:L1] b[b:L0].", "A b."), ("A\u2028\u00a0b \x1f\x85; c \n ? ! . : ,d", "A b; c?!.:,d"),
    ("\x1c[a:L1]\x1d", ""), ("\ud800  \udc00 .", "\ud800 \udc00."), (Text("plain"), "plain"),
    ("a  b\u20ac " * 999 + ".", "a b\u20ac " * 998 + "a b\u20ac."),
])
def test_claim_text(module, sentence, text):
    assert module._claim_text(sentence) == text and type(module._claim_text(sentence)) is str


class Number:
    """A line number whose comparisons give what they are told to."""

    def __init__(self, result):
        self.result = result

    __ge__ = __eq__ = lambda self, _other: self.result or fail()


def test_odd_line_numbers(both):
    numbers = [0, 1, -1, True, 1.0, 0.5, float("nan"), 2**63, 10**30, -(10**30), "3", None, Text("3")]
    numbers += [Number([0]), Number(None)]
    for start, end in product(numbers, repeat=2):
        for one in both:
            one.citation_key = lambda _match: ("a", start, end)
        agree(both, lambda one: one.cited_claims("Reads files [a:L1] [b:L2]. Writes files [a:L3]."))
        agree(both, lambda one: one.CitedClaim("claim", "a", start, end).ref)


class Path(str):
    def __format__(self, how):
        return Text(f"formatted{how}") if self == "good" else fail()


def test_ref(both):
    for path in ("a\x00b", "\ud800", Text("a"), Path("good"), Path("bad"), 7, None, ["a"]):
        agree(both, lambda one: one.CitedClaim("claim", path, 3, 9).ref)
    for start, end, lines in ((3, 9, "L3-L9"), (3, 3, "L3"), (9, 3, "L9-L3"), (-5, 10**20, f"L-5-L{10**20}")):
        assert both[0].CitedClaim("claim", "a", start, end).ref == f"[a:{lines}]"


def test_order_of_formats(both):
    def road(one):
        trace = []
        values = [type(name, (Path,), {"__format__": traced(trace, name, format)})("good") for name in "abc"]
        return one.CitedClaim("claim", *values).ref, one.CitedClaim("claim", *values[:2], values[1]).ref, trace

    agree(both, road)


def test_length_that_changes_the_limit(both):
    def road(one):
        def __len__(_text):
            one._CLAIM_MIN_CHARS = 1000
            return 20

        one._claim_text = lambda _sentence: type("Long", (str,), {"__len__": __len__})("claim")
        return one.cited_claims("Reads files [a:L1].")

    assert agree(both, road) == "[]"


def test_order_of_calls(both):
    def road(one):
        def finditer(sentence):
            yield from sentence.split("|")
            trace.append(("found", sentence))

        trace, one._CITATION_RE = [], SimpleNamespace(finditer=finditer)
        one._prose_blocks = traced(trace, "blocks", lambda _page: iter(["One|two. Three", "None"]))
        one._claim_text = traced(trace, "text", lambda sentence: sentence * 3)
        one.citation_key = traced(trace, "key", lambda match: (match, len(match) - 3, 9))
        one._norm = traced(trace, "norm", str.upper)
        one.CitedClaim = traced(trace, "record", lambda *values: values)
        return one.cited_claims("the page"), trace

    assert agree(both, road).startswith("([('One|two.One|two.One|two.', 'TWO.', 1, 9), ('ThreeThreeThree',")


@pytest.mark.parametrize("change", [
    lambda one: setattr(one, "_norm", lambda path: f"new {path}"),
    lambda one: setattr(one, "_CLAIM_MIN_CHARS", 13),
    lambda one: setattr(one, "CitedClaim", lambda *values: values),
    lambda one: setattr(one.CitedClaim, "__eq__", lambda *_two: False),
    lambda one: setattr(one.CitedClaim, "__init__", fail),
])
def test_change_in_the_middle_of_a_page(both, change):
    def claims(one):
        key = one.citation_key
        one.citation_key = lambda match: [key(match), change(one)][0]
        return one.cited_claims("Reads files [a:L1] [a:L1]. Reads files [a:L1] [b:L2].\n\nWrites them [a:L1]")

    agree(both, claims)
