"""The contestants by name: the plain Python form stands beside the built module in the host's package."""

from __future__ import annotations

import importlib
import importlib.util
import sys
from pathlib import Path
from types import ModuleType

ROOT = Path(__file__).resolve().parent.parent
PLAIN = Path(__file__).with_name("plain.py")
PACKAGE = "quenlow.workers.wiki"


def host_on_path() -> None:
    if str(ROOT / "host") not in sys.path:
        sys.path.insert(0, str(ROOT / "host"))


def load_file(name: str, file: Path) -> ModuleType:
    """A module of the wiki package made from a file; the one already loaded under that name, if any."""
    host_on_path()
    importlib.import_module(PACKAGE)
    full_name = f"{PACKAGE}.{name}"
    if full_name not in sys.modules:
        origin = importlib.util.spec_from_file_location(full_name, file)
        module = sys.modules[full_name] = importlib.util.module_from_spec(origin)
        try:
            origin.loader.exec_module(module)
        except BaseException:
            del sys.modules[full_name]
            raise
    return sys.modules[full_name]


def load_plain(name: str = "citation_check_plain") -> ModuleType:
    return load_file(name, PLAIN)


def load_module() -> ModuleType:
    host_on_path()
    return importlib.import_module(f"{PACKAGE}.citation_check")
