"""Facts about the repository that wiki pages speak of."""

from functools import lru_cache


@lru_cache(maxsize=1024)  # a page cites few files many times
def _norm(path: str) -> str:
    """A repository-relative path in normal form: "/" between components, none of them empty or ".".

    ".." stays: what it climbs out of is known only once symbolic links are resolved, by the reader.
    """
    return "/".join(part for part in path.replace("\\", "/").split("/") if part not in ("", "."))
