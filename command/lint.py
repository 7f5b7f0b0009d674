"""`wiki lint`: the findings of a whole wiki."""

from pathlib import Path

from command.client import decision_client
from command.interrupt import stop_on_interrupt
from command.pages import page_files, read_page
from command.report import CLEAN, FOUND, INCOMPLETE, CommandError, complain, counted, printable
from quenlow.workers.wiki.citation_check import citation_lint_findings


def lint(wiki_dir: Path, repo_root: Path, consent: bool) -> int:
    files = page_files(wiki_dir)
    texts = _read(files)
    client = decision_client(consent)
    with stop_on_interrupt() as should_stop:
        findings = citation_lint_findings(client, texts, repo_root, should_stop)
    checked = len(texts)
    for finding in findings:
        where = ", ".join(finding["pages"]) or "-"
        print(printable(f"{where}: {finding['severity']}: {finding['kind']}: {finding['detail']}"))
        if finding["kind"] == "citation-check-skipped":
            checked = 0
        elif finding["kind"] == "citation-check-failed":
            checked = list(texts).index(finding["pages"][0])
    print(
        f"{checked} of {counted(len(files), 'page')} checked, {counted(client.decisions, 'question')},"
        f" {counted(len(findings), 'finding')}"
    )
    if checked < len(files):
        return INCOMPLETE
    return FOUND if findings else CLEAN


def _read(files: dict[str, Path]) -> dict[str, str]:
    """The pages' texts. A page that cannot be read keeps no other from being checked."""
    texts = {}
    for page_id, file in files.items():
        try:
            texts[page_id] = read_page(file)
        except CommandError as error:
            complain(error)
    return texts
