"""The module against its plain Python form and against the floor.

One process, all contestants in turn, several rounds; what is printed are ratios of medians. The floor makes
only the calls into the host that nothing can spare, from C++, on strings already cut: nothing can be faster.
"""

from __future__ import annotations

import argparse
import gc
import math
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from statistics import linear_regression, median

from bench import workloads
from bench.corpus import Wiki, standard_library, wiki_of
from bench.load import ROOT

SHORTEST_SAMPLE = 0.02
LONG_ENOUGH = 12.0
SCALES = (1, 2, 4, 8)
DISTINCT = "cited_claims, a page of distinct claims"
DISTINCT_EXPONENT = 1.05
Medians = dict[str, float]


@dataclass(frozen=True)
class Row:
    """A line of the table, with the least gain over plain and the greatest distance to the floor."""

    title: str
    medians: Medians
    against_plain: float
    over_floor: float = math.inf

    def kept(self) -> bool:
        # By the two decimals that are printed: the third is noise.
        return round(self.gain(), 2) >= self.against_plain and round(self.distance(), 2) <= self.over_floor

    def gain(self) -> float:
        return self.medians["plain"] / self.medians["module"]

    def distance(self) -> float:
        return self.medians["module"] / self.medians["floor"] if "floor" in self.medians else 0.0

    def __str__(self) -> str:
        if self.against_plain > 1:
            plain = f"{self.gain():.2f}x faster (at least {self.against_plain:g}x)"
        else:
            plain = f"{1 / self.gain():.2f}x plain's (at most {1 / self.against_plain:g}x)"
        floor = f"{self.distance():.2f}x" if "floor" in self.medians else ""
        if self.over_floor < math.inf:
            floor += f" (at most {self.over_floor:g}x)"
        return f"{self.title:40} {plain:31} {floor:21} {'met' if self.kept() else 'NOT MET'}"


def measured(title: str, runs: workloads.Runs, rounds: int) -> Medians:
    """The median seconds of each contestant's run; fewer rounds where one alone takes long."""
    print(f"measuring {title} ...", file=sys.stderr)
    samples: dict[str, list[float]] = {name: [] for name in runs}
    repeats = {name: max(1, math.ceil(SHORTEST_SAMPLE / seconds(run))) for name, run in runs.items()}
    for done in range(1, rounds + 1):
        for name, run in runs.items():
            samples[name].append(seconds(run, repeats[name]))
        if done >= 3 and done * max(max(times) for times in samples.values()) > LONG_ENOUGH:
            break
    return {name: median(times) for name, times in samples.items()}


def seconds(run: Callable[[], object], repeats: int = 1) -> float:
    gc.collect()
    begin = time.perf_counter()
    for _ in range(repeats):
        run()
    return (time.perf_counter() - begin) / repeats


def peak_memory(wiki: Wiki) -> Medians:
    """Kilobytes at the peak of a process of its own that lints the wiki."""
    with tempfile.TemporaryDirectory() as folder:
        for page, text in wiki.pages.items():
            file = Path(folder, f"{page}.md")
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text, encoding="utf-8")

        def peak(which: str) -> int:
            command = [sys.executable, "-m", "bench.peak", which, folder, str(wiki.repo)]
            return int(subprocess.check_output(command, cwd=ROOT))

        return {which: median(peak(which) for _ in range(9)) for which in workloads.BOTH}


def rows(wiki: Wiki, rounds: int) -> list[Row]:
    pages = list(wiki.pages.values())

    def timed(title: str, runs: workloads.Runs, *bounds: float) -> Row:
        return Row(title, measured(title, runs, rounds), *bounds)

    return [
        timed("cited_claims, all pages", workloads.extraction(pages), 4, 1.3),
        timed("cited_claims, a page of 2,000 claims", workloads.distinct(pages, 2_000), 40),
        timed("cited_claims, a page of 10,000 claims", workloads.distinct(pages, 10_000), 100),
        timed("cited_lines", workloads.lines(wiki, pages), 15),
        timed("passage, files already read", workloads.passages(wiki, pages), 20),
        timed("CitedSources, each file read once", workloads.reading(wiki, pages), 3),
        timed("check_citations, every 4th page", workloads.page_check(wiki, pages[::4]), 1.7, 1.25),
        timed("import", workloads.importing(), 1 / 1.6),
        Row("peak memory, whole lint", peak_memory(wiki), 1 / 1.05),
    ]


def growth(wiki: Wiki, rounds: int) -> bool:
    """How the time of each workload grows with its size, and whether the exponents of growth are kept."""
    pages = sorted(wiki.pages.values(), key=len)
    one_page = "\n\n".join(pages[::40])
    growing: dict[str, Callable[[int], workloads.Runs]] = {
        "cited_claims, more pages": lambda scale: workloads.extraction(pages[:: 8 // scale]),
        "cited_claims, a page repeating itself": lambda scale: workloads.extraction([one_page * scale]),
        DISTINCT: lambda scale: workloads.distinct(pages, 500 * scale),
        "cited_lines, more of them": lambda scale: workloads.lines(wiki, pages[:: 8 // scale]),
        "cited_lines, the end of a longer file": workloads.far_lines,
        "passage, files already read": lambda scale: workloads.passages(wiki, pages[:: 8 // scale]),
        "CitedSources, more files": lambda scale: workloads.reading(wiki, pages[:: 8 // scale]),
        "check_citations, more pages": lambda scale: workloads.page_check(wiki, pages[:: 8 // scale]),
    }
    kept = True
    print(f"\n{'time at a size of':48}" + "".join(f"{f'{scale}x':>7}" for scale in SCALES) + "   exponent")
    for title, at_scale in growing.items():
        medians = [measured(f"{title}, {scale}x", at_scale(scale), rounds) for scale in SCALES]
        exponents = {}
        for name in medians[0] if title == DISTINCT else workloads.BOTH:
            times = [median_of[name] for median_of in medians]
            scales = [math.log(scale) for scale in SCALES]
            exponents[name] = linear_regression(scales, list(map(math.log, times))).slope
            ratios = "".join(f"{duration / times[0]:7.2f}" for duration in times)
            print(f"{title:40} {name:7}{ratios}{exponents[name]:11.2f}")
        if title == DISTINCT:
            # What the machine's caches add, they add to the floor as well.
            most = max(DISTINCT_EXPONENT, exponents["floor"] + 0.05)
            kept = round(exponents["module"], 2) <= round(most, 2)
            print(f"{'':40} at most {most:.2f}: {'met' if kept else 'NOT MET'}")
    return kept


def main() -> int:
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__.splitlines()[0])
    parser.add_argument("--quick", action="store_true", help="fewer rounds")
    parser.add_argument(
        "--pages", type=Path, help="Markdown pages, in place of the generated wiki (not judged)"
    )
    parser.add_argument("--repo", type=Path, help="the repository that these pages cite")
    options = parser.parse_args()
    if (options.pages is None) != (options.repo is None):
        parser.error("--pages and --repo go together")
    wiki = wiki_of(options.pages, options.repo) if options.pages else standard_library()
    if not any(workloads.plain.cited_claims(page) for page in wiki.pages.values()):
        parser.error(f"no page in {options.pages} cites a line")

    findings = [workloads.lint_findings(contestant, wiki) for contestant in workloads.BOTH.values()]
    if findings[0] != findings[1]:
        sys.exit("bench: plain and module do not find the same")
    print(f"{len(wiki.pages)} pages, {workloads.count_claims(wiki)} claims")
    gc.freeze()
    lines = rows(wiki, 3 if options.quick else 15)
    print(f"\n{'workload':40} {'against plain':31} against the floor", *lines, sep="\n", flush=True)
    linear = growth(wiki, 1 if options.quick else 5)
    return 0 if options.pages or (linear and all(row.kept() for row in lines)) else 1


if __name__ == "__main__":
    sys.exit(main())
