"""The page generator: saves a page and reports what its checks found."""

from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from quenlow.engines.decision import DecisionClient
from quenlow.workers.wiki.citation_check import CitationCheckMixin


@dataclass(eq=False)
class PageGenerator(CitationCheckMixin):
    """One run over a wiki's pages. Saving a page returns its warnings."""

    wiki_dir: Path
    repo_root: Path
    decision_client: DecisionClient | None = None
    should_stop: Callable[[], bool] = lambda: False

    def save_page(self, page_id: str, markdown: str) -> list[str]:
        page = self.wiki_dir / f"{page_id}.md"
        if not page.resolve().is_relative_to(self.wiki_dir.resolve()):
            raise ValueError(f"page id leads out of the wiki: {page_id!r}")
        page.parent.mkdir(parents=True, exist_ok=True)
        page.write_text(markdown, encoding="utf-8", newline="")
        check = self._citation_check(markdown)
        return [] if check is None else check.warnings()
