"""Pages checked on the workers of a Dask cluster, which does the pages of a lost worker again."""

import logging
import math
import signal
import time
import uuid
from asyncio import CancelledError
from collections.abc import Callable, Iterator, Mapping
from contextlib import contextmanager, nullcontext
from dataclasses import replace
from itertools import dropwhile
from multiprocessing import resource_tracker
from operator import itemgetter
from pathlib import Path

import distributed

from command.client import Settings
from command.report import CommandError
from command.run import Advance, Outcome, check_pages

_SHARDS_A_THREAD = 16
_CONNECT_SECONDS = 10
_LOOK_SECONDS = 0.5


@contextmanager
def cluster(scheduler: str | None, workers: int) -> Iterator[distributed.Client]:
    """The cluster of that scheduler, or a local one of so many workers."""
    # Ctrl-C goes to every process of a terminal. Local workers inherit that it is held back from them,
    # unless it is they who first start the tracker, which lets it through again.
    resource_tracker.ensure_running()
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT})
    try:
        local = None if scheduler else _local_cluster(workers)
        dask = distributed.Client(scheduler or local, timeout=_CONNECT_SECONDS)
        dask.wait_for_workers(1, timeout=_CONNECT_SECONDS)
    except (OSError, ValueError, TimeoutError) as error:
        where = scheduler or "on this machine"
        raise CommandError(f"the Dask cluster {where} does not answer or has no workers: {error}") from error
    finally:
        signal.pthread_sigmask(signal.SIG_UNBLOCK, {signal.SIGINT})
    with local or nullcontext(), dask:
        yield dask


def _local_cluster(workers: int) -> distributed.LocalCluster:
    # Without `security`, whoever else is on this machine could have the workers run what they like.
    return distributed.LocalCluster(
        n_workers=workers,
        threads_per_worker=1,
        security=True,
        dashboard_address="127.0.0.1:0",
        silence_logs=logging.CRITICAL,
    )


def check_on(
    dask: distributed.Client,
    files: Mapping[str, Path],
    settings: Settings,
    should_stop: Callable[[], bool],
    advance: Advance,
) -> Outcome:
    """What `check_pages` would give, from shards that share the run's limits.

    Pages that a share did not suffice for are checked in the end, with what the other shards left: the run
    stops for its limits only when they are spent.
    """
    pages = list(files.items())
    size = math.ceil(len(pages) / (_SHARDS_A_THREAD * _threads(dask))) or 1
    shards = [dict(pages[start : start + size]) for start in range(0, len(pages), size)]
    try:
        outcomes = _check_shards(dask, shards, settings, should_stop, advance)
        rest: dict[str, Path] = {}
        for shard, outcome in zip(shards, outcomes):
            page = outcome.stopped_at
            if page and not outcome.out_of_budget:
                break
            if page:
                outcome.findings.pop()
                rest |= dropwhile(lambda item: item[0] != page, shard.items())
        if rest:
            calls = settings.config.max_calls_per_batch - sum(each.calls for each in outcomes)
            tokens = settings.config.max_input_tokens_per_batch - sum(each.input_tokens for each in outcomes)
            left = _limited(settings, max_calls_per_batch=calls, max_input_tokens_per_batch=tokens)
            outcomes += _check_shards(dask, [rest], left, should_stop, advance)
    except CommandError:
        raise
    except CancelledError as error:
        raise CommandError("the Dask scheduler is gone") from error
    except Exception as error:
        raise CommandError(f"the Dask cluster failed: {type(error).__name__}: {error}") from error
    return _merged(outcomes, {page: number for number, page in enumerate(files)})


def _check_shards(
    dask: distributed.Client,
    shards: list[dict[str, Path]],
    settings: Settings,
    should_stop: Callable[[], bool],
    advance: Advance,
) -> list[Outcome]:
    # The number of the first shard that nobody needs, where every worker sees it.
    end = distributed.Variable(f"wiki-lint-{uuid.uuid4().hex}", client=dask)
    needed = len(shards)
    end.set(needed)
    limits = settings.config
    numbers = {}
    for number, shard in enumerate(shards):
        shared = _limited(
            settings,
            max_parallel_calls=max(1, limits.max_parallel_calls // _threads(dask)),
            max_calls_per_batch=_share(limits.max_calls_per_batch, number, len(shards)),
            max_input_tokens_per_batch=_share(limits.max_input_tokens_per_batch, number, len(shards)),
        )
        numbers[dask.submit(_check_shard, shard, shared, number, end.name, pure=False)] = number
    outcomes: dict[int, Outcome] = {}
    pending = set(numbers)
    while pending:
        try:
            done, pending = distributed.wait(pending, _LOOK_SECONDS, "FIRST_COMPLETED")
        except TimeoutError:
            done = set()
        for future in done:
            number, outcome = numbers[future], future.result()
            outcomes[number] = outcome
            if outcome.stopped_at and not outcome.out_of_budget:
                needed = min(needed, number + 1)
            advance(len(outcome.pages), outcome.calls, len(outcome.findings))
        end.set(0 if should_stop() else needed)
    end.delete()
    return [outcomes[number] for number in range(len(shards))]


def _threads(dask: distributed.Client) -> int:
    return max(1, sum(dask.ncores().values()))


def _limited(settings: Settings, **limits: int) -> Settings:
    return replace(settings, config=replace(settings.config, **limits))


def _share(limit: int, number: int, shards: int) -> int:
    return limit * (number + 1) // shards - limit * number // shards


def _check_shard(files: dict[str, Path], settings: Settings, number: int, end_name: str) -> Outcome:
    end = distributed.Variable(end_name)
    needless = False
    next_look = 0.0

    def should_stop() -> bool:
        nonlocal needless, next_look
        if time.monotonic() >= next_look:
            next_look = time.monotonic() + _LOOK_SECONDS
            needless = number >= end.get()
        return needless

    return check_pages(files, settings, should_stop, lambda _pages, _questions, _findings: None)


def _merged(outcomes: list[Outcome], order: dict[str, int]) -> Outcome:
    """One outcome in page order, up to the first page that the check stopped at."""
    last = min((order[each.stopped_at] for each in outcomes if each.stopped_at), default=len(order))
    merged = Outcome(sum(each.calls for each in outcomes), sum(each.input_tokens for each in outcomes))
    for name in ("pages", "findings", "notes"):
        entries = [(order[entry["pages"][0]], entry) for each in outcomes for entry in getattr(each, name)]
        entries.sort(key=itemgetter(0))
        setattr(merged, name, [entry for number, entry in entries if number <= last])
    return merged
