"""The page generator: saves a page and reports what its checks found."""

from collections.abc import Callable
from pathlib import Path

from quenlow.engines.decision import DecisionClient
from quenlow.workers.wiki.citation_check import CitationCheckMixin


class VerifyMixin(CitationCheckMixin):
    """The checks that a page goes through when it is saved."""

    def _verify(self, markdown: str) -> list[str]:
        check = self._citation_check(markdown)
        return [] if check is None else check.warnings()


class PageGenerator(VerifyMixin):
    """One run over a wiki's pages."""

    def __init__(
        self,
        wiki_dir: Path,
        repo_root: Path,
        decision_client: DecisionClient | None = None,
        should_stop: Callable[[], bool] = lambda: False,
    ) -> None:
        self.wiki_dir = wiki_dir
        self.repo_root = repo_root
        self.decision_client = decision_client
        self.should_stop = should_stop

    def save_page(self, page_id: str, markdown: str) -> list[str]:
        """Write the page below the wiki's folder; returns its warnings."""
        page = self.wiki_dir / f"{page_id}.md"
        if not page.resolve().is_relative_to(self.wiki_dir.resolve()):
            raise ValueError(f"page id leads out of the wiki: {page_id!r}")
        page.parent.mkdir(parents=True, exist_ok=True)
        page.write_text(markdown, encoding="utf-8", newline="")
        return self._verify(markdown)
