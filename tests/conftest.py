import importlib
import sys
from pathlib import Path
from types import ModuleType

import pytest

ROOT = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "host"), str(ROOT)]
pytest.register_assert_rewrite("support")


@pytest.fixture(scope="session")
def imported() -> ModuleType:
    return importlib.import_module("quenlow.workers.wiki.citation_check")


@pytest.fixture
def module(imported: ModuleType) -> ModuleType:
    """A copy of the module for one test, which may change it as it likes."""
    return importlib.import_module("support").fresh(imported)


@pytest.fixture
def both(module: ModuleType) -> tuple[ModuleType, ModuleType]:
    """The module, and the same module written in Python."""
    plain = importlib.import_module("bench.load").load_plain()
    return module, importlib.import_module("support").fresh(plain)


@pytest.fixture
def repo(tmp_path: Path) -> Path:
    """A repository whose one source file holds the lines "line 1" to "line 9"."""
    root = tmp_path / "repo"
    (root / "src").mkdir(parents=True)
    (root / "src/app.py").write_text("".join(f"line {number}\n" for number in range(1, 10)))
    return root
