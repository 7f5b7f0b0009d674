"""The built file as the interpreters see it: what it exports, what it leaves behind, who can load it."""

import gc
import os
import shutil
import subprocess
import weakref
from pathlib import Path

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
