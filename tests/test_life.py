"""Objects that die at an inconvenient time, and interpreters that end meanwhile: as on the plain form."""

import pytest
from support import ended

START = """
import bench.load, gc, itertools, sys, threading, time
from pathlib import Path
from support import Client, odd
from types import SimpleNamespace
module, repo = getattr(bench.load, sys.argv[1])(), Path(sys.argv[2])
page = "Reads files [src/app.py:L1]. Writes files [src/app.py:L2].\\n\\n- An item"
inside, sources = threading.Semaphore(0), module.CitedSources(repo)
claim, depth, others = module.CitedClaim("a", "src/app.py", 1, 2), [], []
module.logger = SimpleNamespace(warning=lambda *_given, **_named: None)

def dying(call, base=object, *value):
    return type("Dying", (base,), {"__del__": lambda _self: call()})(*value)

def collect():
    gc.collect()
    if not depth:
        depth.append(1)
        depth.remove(module.cited_claims(page) and 1)

def suspended(call):
    try: yield
    finally: call()

def stay(*_given):
    inside.release()
    while True: time.sleep(0.01)

def daemons(call, count=4):
    for _ in range(count): threading.Thread(target=call, daemon=True).start()
    for _ in range(count): assert inside.acquire(timeout=10)
    # The end takes long enough for every thread to come for the lock.
    sys.late = type("Late", (), {"__del__": lambda _self, sleep=time.sleep: sleep(0.3)})()

def subinterpreter(code):
    import _xxsubinterpreters as interpreters
    start = f"import sys; sys.path[:] = {sys.path}; import bench.load; module = bench.load.{sys.argv[1]}()\\n"
    others.append(interpreters.create())
    interpreters.run_string(others[0], start + code)
    again = "import builtins; builtins.one.cited_claims('a')"
    return lambda other=others[0]: interpreters.run_string(other, again)
"""
READ = "print(sources._read('src/app.py'), sources.passage(claim))"
# Each makes the module release something whose `__del__` stays for ever, or calls what does.
RELEASES = {
    "unpacked": "module.citation_key = lambda match: (dying(stay), 1, 2, 3)",
    "claim": "module._claim_text = lambda text: dying(stay, str, 'a')",
    "match": "module._CITATION_RE = SimpleNamespace(finditer=lambda text: [dying(stay)])\n"
    "module._claim_text = str.upper; module.citation_key = lambda match: ('a', 1, 1)",
    "fence": "module._FENCE_RE = SimpleNamespace(match=lambda line: dying(stay))",
    "line": "module._LIST_MARK_RE = SimpleNamespace(match=bool, sub=lambda *_two: dying(stay, str, 'a'))",
    "call": "module._norm = stay", "item": "module._prose_blocks = lambda text: (stay() for _item in text)",
}
CALL = "\ndaemons(lambda: module.cited_claims(page))"
SCRIPTS = {f"daemon, {name}": code + CALL for name, code in RELEASES.items()} | {
    "daemon, reading": "daemons(lambda: [inside.release()] + [sources._read('src') for _ in iter(int, 1)])",
    "daemon, error in a handler": """
def fail(*_given, **_named): raise type("Error", (Exception,), {"__del__": stay})
module.check_citations = fail
daemons(lambda: module.CitationChecker(Client(), repo).check(page))""",
    "daemon, pool's exit": """
module.ThreadPoolExecutor = lambda **_given: odd(enter=list, exit=stay)()
daemons(lambda: module.check_citations(Client(), page, repo, max_questions=9))""",
    "daemon, collected in score": """
answer = type("Answer", (itertools.chain,), {"verdict": property(next)})()
checked = type("Checked", (), {"answer": property(lambda _self: gc.enable() or answer)})()
def score():
    gc.disable()
    gc.set_threshold(1)
    dead = dying(stay)
    dead.cycle = dead
    del dead
    module.CitationCheck([checked]).score
daemons(score, 1)""",
    "daemon, generator": "daemons(lambda: [stay() for block in module._prose_blocks(page)])",
    "generator at the end": f"kept = suspended(lambda: {READ}); next(kept)",
    "object at the end": f"sys.kept = dying(lambda: {READ})",
    "cycle at the end": f"kept = dying(lambda: {READ}); kept.cycle = kept",
    "subinterpreter at exit": "subinterpreter('import atexit; atexit.register(module.cited_claims, str())')",
    "subinterpreter's generator": "subinterpreter(f'kept = module._prose_blocks({page!r}); next(kept)')",
    "subinterpreter entered again": "kept = dying(subinterpreter('import builtins; builtins.one = module'))",
    "stored through another's dictionary": """
view = type("View", (), {})()
view.__dict__ = vars(module)
def store(value): view._CLAIM_MIN_CHARS = value
for number in range(64): store(number)
limit = type("Limit", (int,), {"__del__": lambda _self: print(module.cited_claims(page))})
for make in (lambda: limit(7), lambda: 40, lambda: limit(12), lambda: 13, lambda: limit(15), lambda: 9):
    store(make())
    print(len(module.cited_claims(page)))""",
    "dying lines": """
mark = SimpleNamespace(match=lambda text: text[0] == '-', sub=lambda new, text: dying(collect, str, text))
module._LIST_MARK_RE = mark
lines = odd(iter=lambda _self: dying(lambda: print("dies"), map, str.__add__, ["a", 1], "bc"))()
try: list(module._prose_blocks(SimpleNamespace(split=lambda _end: lines)))
except TypeError as error: print(error)
print(list(module._prose_blocks(page * 3)), module.cited_claims(page))""",
    "dying values": """
module.citation_key = lambda match: (dying(collect), dying(collect, int, 1), dying(collect))
module._norm = lambda path: dying(collect)
without = lambda new, text: dying(collect, str, text)
module._CITATION_RE = SimpleNamespace(finditer=lambda text: [dying(collect), 1], sub=without)
print(len(module.cited_claims(page)))""",
    "list emptied in a comparison": """
def empty(self, other): [found.clear() for found in gc.get_referrers(self) if type(found) is list]
module.CitedClaim = type("Claim", (module.CitedClaim,), {"__eq__": empty})
print(len(module.cited_claims(page * 9 + page.replace("files", "lines"))))""",
    "list emptied by a trace function": """
def trace(frame, event, arg):
    for one in made if frame.f_code.co_name == "__eq__" else ():
        [found.clear() for found in gc.get_referrers(one) if type(found) is list and found is not made]
def norm(path):
    made.extend(one for one in gc.get_objects() if type(one) is module.CitedClaim)
    return path
made, module._norm = [], norm
sys.settrace(trace)
module.cited_claims("\\n\\n".join((page, page, page.replace("files", "all"))))""",
}


@pytest.mark.parametrize("script", SCRIPTS.values(), ids=SCRIPTS)
def test_ends_as_the_plain_form(repo, script):
    expected, got = (ended("-c", START + script, load, repo)[:2] for load in ("load_plain", "load_module"))
    assert got == expected and expected[0] == 0


def test_a_subinterpreter_reads_at_exit(repo):
    """The plain form gives the interpreter's lock up meanwhile, and never gets it back."""
    script = f"import atexit, os, pathlib; sources = module.CitedSources(pathlib.Path({str(repo)!r}))"
    script += "; atexit.register(lambda: os._exit(len(sources._read('src/app.py'))))"
    assert ended("-c", START + f"subinterpreter({script!r})", "load_module", repo)[0] == 9 * len("line 1\n")
