"""The built file as the interpreters see it: what it exports, what it leaves behind, who can load it."""

import gc
import os
import shutil
import subprocess
import sys
import weakref
from pathlib import Path
from types import SimpleNamespace

import pytest
from drive import roads
from support import find, fresh, outcome
from test_surface import CLASSES, FUNCTIONS

ROOT = Path(__file__).resolve().parent.parent
DEBUG_BUILD = ROOT / "build-debug"


def test_one_exported_symbol(module):
    symbols = subprocess.check_output(["nm", "-D", "--defined-only", module.__file__], text=True)
    assert [line.split()[-1] for line in symbols.splitlines()] == ["PyInit_citation_check"]


def test_two_copies_share_nothing_and_both_go(imported, repo):
    copies = [fresh(imported), fresh(imported)]
    one, other = ({find(copy, name) for name in (*FUNCTIONS, *CLASSES)} for copy in copies)
    assert not one & other and copies[0]._VERDICT_FINDINGS is not copies[1]._VERDICT_FINDINGS
    for copy in copies:
        for _name, road in roads(copy, repo):
            outcome(road)
    gone = [weakref.ref(thing) for thing in (*copies, *one, *other)]
    del copies, one, other, copy, road
    gc.collect()
    assert [thing() for thing in gone if thing() is not None] == []


def test_collector_sees_what_is_held(module):
    def look(holder):
        for held in gc.get_referents(holder):
            assert any(holder is one for one in gc.get_referrers(held)), (holder, held)
        return len(gc.get_referents(holder))

    text, counts = type("Page", (str,), {})("a\n- b"), []
    unstarted, started, running = (module._prose_blocks(page) for page in (text, text, "a\nb\n- c\n\nd"))
    next(started)
    module.cited_lines.marker = [started]
    assert look(module) and [look(holder) for holder in (unstarted, started, module.cited_lines)] == [3, 4, 9]
    module._FENCE_RE = SimpleNamespace(match=lambda _line: counts.append(look(running)))
    assert (list(running), counts) == (["a b", "c", "d"], [3, 4, 5, 4, 3])


def test_dying_objects_tell_their_weak_references(imported):
    told = []
    for make in (lambda: imported._prose_blocks("a"), lambda: fresh(imported).cited_lines):
        reference = weakref.ref(make(), told.append)
        gc.collect()
        assert told.pop() is reference and reference() is None


def test_a_function_outlives_its_module_for_a_moment(imported):
    class First:
        """Told of its end when the collector has dealt with weak references, and has yet to clear anything."""

        def __del__(self):
            last.extend(map(weakref.ref, self.kept))

    def look(_watch):
        lines, blocks = (reference() for reference in last)
        told.extend((lines.__builtins__, blocks.gi_frame.f_globals is lines.__globals__))
        told.extend((outcome(lines, "text", 1, 1), outcome(next, blocks)))

    told, last, copy = [], [], fresh(imported)
    # A code object is no matter of the collector's: it dies with the namespace, when the module is cleared.
    copy.code, copy.first = compile("", "code", "exec"), First()
    copy.first.kept = copy.cited_lines, copy._prose_blocks("a\n\nb")
    watch = weakref.ref(copy.code, look)
    del copy
    gc.collect()
    assert watch() is None
    refused = "RuntimeError: {}() was called after its module had been collected".format
    assert told == [None, True, *map(refused, ("cited_lines", "_prose_blocks"))]


def test_a_function_keeps_its_module_usable(imported):
    lines = fresh(imported).cited_lines
    gc.collect()
    assert lines("a\nb", 2, 2) == "b"


@pytest.mark.skipif(not shutil.which("python3.11d"), reason="no debug interpreter")
@pytest.mark.skipif(not list(DEBUG_BUILD.glob("*-311d-*.so")), reason="no build for the debug interpreter")
def test_no_reference_grows(repo):
    paths = os.pathsep.join(str(ROOT / name) for name in ("host", "", "tests"))
    environment = os.environ | {"PYTHONPATH": paths, "CITATION_CHECK_BUILD": str(DEBUG_BUILD)}
    drive = ["python3.11d", str(ROOT / "tests/drive.py"), str(repo), "5"]
    run = subprocess.run(drive, env=environment, capture_output=True, text=True)
    assert (run.stdout, run.stderr, run.returncode) == ("", "", 0)


DAEMONS = """
import sys, threading, time
from contextlib import nullcontext
from pathlib import Path
from types import SimpleNamespace
from quenlow.workers.wiki import citation_check as module

def stay(*_given):
    inside.release()
    while True:
        time.sleep(60 if sys.argv[1] == "waits" else 0)

def read():
    sources = module.CitedSources(Path(sys.argv[2]))
    inside.release()
    while True:
        sources._read("src/app.py")

def look():
    Checker.__new__(Checker).check("page")

class Checker(module.CitationChecker):
    asked, _lock = sys.argv[1] == "looks", nullcontext()

    @property
    def _failed(self):
        return stay() if self.asked else setattr(self, "asked", True)

inside, module._CITATION_RE = threading.Semaphore(0), SimpleNamespace(finditer=stay)
roads = {"reads": read, "looks": look, "looks again": look}
road = roads.get(sys.argv[1], lambda: module.cited_claims("Any sentence."))
for _ in range(4):
    threading.Thread(target=road, daemon=True).start()
for _ in range(4):
    inside.acquire()
"""


@pytest.mark.parametrize("how", ["runs", "waits", "reads", "looks", "looks again"])
def test_the_process_ends_while_daemon_threads_are_inside(repo, how):
    environment = os.environ | {"PYTHONPATH": str(ROOT / "host")}
    run = subprocess.run([sys.executable, "-c", DAEMONS, how, repo], env=environment, capture_output=True, text=True)
    assert (run.returncode, run.stderr) == (0, "")
