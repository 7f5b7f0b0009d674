"""Texts against the plain form: each member of each set, its neighbours, every place and every width."""

import sys
from itertools import product
from types import SimpleNamespace

import pytest
from support import LINE_ENDS, SPACES, Client, Text, outcome

MARKS, ENDS, STARTS = ".,;:!?", ".!?]", "ABMYZ`*_"
FILLERS = "a", "é", "日", "𝒳"  # of each width a text may be stored in; the first two share one
PLACES = range(40)  # more than two steps of 16 characters


def around(members):
    """The members, and what a wrong test would take for one: next to it, or with some of its bits."""
    codes = {ord(one) for one in members if len(one) == 1}
    near = {code + by for code in codes for by in (-1, 1, 0x20, 0x80, 0x100, 0x2000, 0x10000)}
    return [*members, *(chr(code) for code in sorted(near - codes) if 0 < code)]


def placed(inserts):
    """Every insert at every place of a text of every width, and at its end."""
    for insert, filler in product(inserts, FILLERS):
        for place in PLACES:
            yield f"{filler * place}{insert}{filler * (39 - place)}"


@pytest.mark.parametrize("spaces", [[" "], ["  "], ["\n \u3000"], ["\x1c"], SPACES], ids=repr)
def test_tidying(one, spaces):
    marks = around(MARKS) if len(spaces) == 1 else [".", "?", "b"]
    texts = list(placed(f"{space}{mark}" for space, mark in product(spaces, marks)))
    return list(map(one._claim_text, texts))


def test_runs_of_whitespace(one):
    inserts = [first + second for first, second in product(around(SPACES), (" ", "\t", "\u2003", "x"))]
    inserts += [" " * size for size in range(40)] + [", " * 9, " ," * 9, "  a  " * 9, "  .  " * 5]
    inserts += [f"  a{space}a" for space in SPACES]
    texts = [f"{filler * size}{insert}{filler * after}" for insert in inserts for filler in FILLERS
             for size, after in ((0, 1), (7, 0), (14, 3), (15, 20), (16, 0), (31, 9))]
    return list(map(one._claim_text, texts))


@pytest.mark.parametrize("ends, spaces, starts", [
    (around(ENDS), " ", "A"), (".]", " ", around(STARTS)), ("!", around(SPACES), "Z"), ("?", ["  "], "*_"),
], ids=["ends", "starts", "spaces", "runs"])
def test_sentences(one, ends, spaces, starts):
    inserts = [end + space + start for end, space, start in product(ends, spaces, starts)]
    blocks = [text for insert in inserts for filler in FILLERS for text in (
        f"{filler * 3}{insert}{filler * 36}{insert}", f"{filler * 14}{insert * 3}", f"{filler * 31}{insert}")]
    blocks += list(placed(inserts[:2]))
    cut = []
    one._CITATION_RE = SimpleNamespace(finditer=lambda sentence: cut.append(sentence) or ())
    one.cited_claims("\n\n".join(blocks))
    return cut


def test_lines(one):
    """Every line end at every place, alone and in runs; lines before, at and behind it, cut near it."""
    texts = list(placed(around(LINE_ENDS)))
    texts += list(placed(map("".join, product(["\r", "\n", "\r\n", "\x85", "\u2028", "\x1e"], repeat=2))))
    texts += [f"{filler * size}{end}{'b' * 300}{end}" for filler in FILLERS for end in LINE_ENDS
              for size in (127, 128, 255, 256, 257, 511)]
    texts += [(filler * 3 + end) * 200 for filler in FILLERS for end in LINE_ENDS]

    seen = []
    for limit in (2200, 20, 39):
        one._PASSAGE_CHARS = limit
        for first, last in ((1, 1), (2, 2), (1, 9), (2, 150)):
            seen += [one.cited_lines(text, first, last) for text in texts]
    return seen


NUMBERS = [0, 1, 2, 3, 5, -1, -2, -9, True, 2**63 - 1, 2**63, -(2**63), 10**30, -(10**30), None, 1.0, "1"]


@pytest.mark.parametrize("limit", [2200, 3, 0, -2, 10**30, None])
def test_lines_by_number(one, limit):
    texts = "", "one", "one\n", "one\r\ntwo\rthree\n\nfive", "\n\n", Text("a\x0bb"), b"a\nb", None
    one._PASSAGE_CHARS = limit
    return [outcome(one.cited_lines, *given) for given in product(texts, NUMBERS, NUMBERS)]


def test_stripping_and_starts(one):
    lines = [f"{space * 2}{filler}{space}{filler}{space}" for space in around(SPACES) for filler in FILLERS]
    lines += [start + rest for start in around("#|>-*+") for rest in ("", " x", "x", "\u3000日", "\t𝒳")]
    lines += [f"{space}# x" for space in SPACES] + "``` x ```py y ~~~ z ~~~  # end".split(" ")
    pages = [joint.join(lines) for joint in ("\n", "\n\n", "\n- a\n", "\r\n")]
    return [list(one._prose_blocks(page)) for page in pages]


def test_every_line_is_looked_at(one):
    seen = []
    one._FENCE_RE = SimpleNamespace(match=seen.append)
    blocks = [list(one._prose_blocks(page)) for page in ("", "\n", "a\n", "a\n\n", "a\nb")]
    assert blocks == [[], [], ["a"], ["a"], ["a b"]]
    assert seen == ["", "", "", "a", "", "a", "", "", "a", "b"]


def test_list_marks(one):
    digits = [chr(code) for code in range(sys.maxunicode + 1) if chr(code).isdigit() or chr(code).isdecimal()]
    numbers = [*digits, "12", "1\u0661", "²2", "1²", "Ⅷ", "½", "0" * 40, "", "a"]
    marks = [number + mark for number in numbers for mark in ".),"] + [*around("-*+"), "1", "--", "1.)"]
    lines = [mark + rest for mark in marks for rest in (" x", "\u2003日", "", "x")]
    lines += [mark + space + "x" for mark in ("-", "7)") for space in around(SPACES)]
    return list(one._prose_blocks("\n".join(lines)))


def test_blank_passages(one, repo):
    texts = [f"{space * size}{end}" for space in SPACES for size in (1, 17, 40) for end in ("", "x", "\0")]
    texts += ["", Text(" "), Text("x"), *around(SPACES)]
    one.cited_claims = lambda _page: [SimpleNamespace(claim=text) for text in texts]
    one.CitedSources = lambda _root: SimpleNamespace(passage=lambda claim: claim.claim)
    one.citation_request = lambda *two: ([two], two)
    return one.check_citations(Client(str), "", repo, max_questions=10**6)


PIECES = ["Reads files", "It", " ", "  ", ". ", " .", "! `x` ", "?\u2003*b*", "é日", "𝒳", "\n", "\n\n", "\n- "]
PIECES += "\ud800 [a:L1] [./a:L1-L2] [b:L0] [a\u3000b:L1] [é:L3] [日:L4] [𝒳:L5] [a:L٣] [a:L1".split(" ")
PIECES.append(f"[c:L{10**30}]")


@pytest.mark.parametrize("first", PIECES)
def test_claims(one, first):
    """Citations among all that may stand around them, in every order."""
    pages = ["Reads files " + "".join(pieces) for pieces in product([first], PIECES, PIECES)]
    pages += [page * 4 + "[a:L7]" for page in pages[::5]]
    return [[(claim, claim.ref) for claim in one.cited_claims(page)] for page in pages]


def test_shortest_claim(one):
    sizes = product(FILLERS, range(9, 15), ("", ".", " .", " !?"))
    texts = [f"{filler * size} [a:L1]{end}" for filler, size, end in sizes]
    claims = list(map(one.cited_claims, texts))
    assert sum(map(len, claims)) == 4 * 16
    return claims
