"""What a type checker is told of the module: installed beside it, true of it, enough for a strict host."""

import inspect
import os
import shutil
import subprocess
import sys
from pathlib import Path
from types import ModuleType
from unittest.mock import Mock

import pytest
from support import find
from test_surface import CLASSES, FUNCTIONS, own

ROOT = Path(__file__).resolve().parent.parent
TYPED_HOST = str(ROOT / "tests/typed_host.py")
STUBTEST = ["mypy.stubtest", "quenlow.workers.wiki.citation_check"]
STRICT = ["mypy", "--strict", "quenlow/workers/wiki/citation_check.pyi", TYPED_HOST]


@pytest.fixture(scope="module")
def installed(imported, tmp_path_factory):
    """A copy of the host that the module was installed into, the only place to find it."""
    prefix = shutil.copytree(ROOT / "host", tmp_path_factory.mktemp("installed"), dirs_exist_ok=True)
    build = Path(imported.__file__).parent
    subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
    assert (prefix / "quenlow/workers/wiki/py.typed").exists()
    return prefix


@pytest.mark.parametrize("arguments", [["-m", *STUBTEST], ["-m", *STRICT], [TYPED_HOST, "."]])
def test_types_hold(installed, arguments):
    paths = dict.fromkeys(["PYTHONPATH", "MYPYPATH", "CITATION_CHECK_BUILD"], str(installed))
    run = subprocess.run([sys.executable, *arguments], cwd=installed, env=os.environ | paths, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert run.returncode == 0, run.stdout


def test_stub_says_what_the_module_shows(imported):
    stub = ModuleType(imported.__name__)
    exec((ROOT / "citation_check/citation_check.pyi").read_text(), vars(stub))
    assert own(stub).keys() | stub.__annotations__.keys() == own(imported).keys()
    for name in FUNCTIONS + CLASSES:
        assert inspect.signature(find(stub, name)) == inspect.signature(find(imported, name)), name
    assert stub.CitationCheckMixin.__annotations__ == imported.CitationCheckMixin.__annotations__
    for made in (imported.CitedSources(ROOT), imported.CitationChecker(Mock(), ROOT)):
        assert find(stub, type(made).__name__).__annotations__.keys() == vars(made).keys()
