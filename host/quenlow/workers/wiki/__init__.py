"""The wiki worker. Its `citation_check` is the built extension module, found in the build folder."""

import os
from pathlib import Path

__path__.append(os.environ.get("CITATION_CHECK_BUILD") or str(Path(__file__).resolve().parents[4] / "build"))
