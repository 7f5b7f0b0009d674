"""Pages checked on the workers of a Dask cluster, which does the pages of a lost worker again."""

import asyncio
import concurrent.futures
import logging
import math
import signal
import time
import uuid
from argparse import Namespace
from collections import Counter
from collections.abc import Callable, Iterator
from contextlib import contextmanager, nullcontext, suppress
from functools import cache, lru_cache, partial
from pathlib import Path

from distributed import Client, Event, Future, LocalCluster, wait

from command.run import Files, PageCheck, ShouldStop, check_pages
from command.terminal import CommandError

_SHARDS_A_THREAD = 16
_CONNECT_SECONDS = 10
_WORKERLESS_SECONDS = 30
_LOOK_SECONDS = 0.5


@contextmanager
def cluster(scheduler: str | None, workers: int) -> Iterator[Callable[..., Iterator[PageCheck]]]:
    """Gives the `check_pages` of that scheduler's cluster, or of a local one of so many workers."""
    for logger in ("distributed", "distributed.client"):
        logging.getLogger(logger).setLevel(logging.CRITICAL)
    # What the library logs of a lost scheduler, it logs in anybody's name.
    logging.getLogger().addHandler(logging.NullHandler())
    # Ctrl-C goes to every process of a terminal. Local workers inherit that it is none of their business.
    on_interrupt = signal.signal(signal.SIGINT, signal.SIG_IGN)
    try:
        # Without `security`, whoever else is on this machine could have the workers run what they like.
        size = {"n_workers": workers, "threads_per_worker": 1}
        quiet = {"dashboard_address": "127.0.0.1:0", "silence_logs": logging.CRITICAL}
        local = None if scheduler else LocalCluster(security=True, **size, **quiet)
        dask = Client(scheduler or local, timeout=_CONNECT_SECONDS)
        dask.wait_for_workers(1, timeout=_CONNECT_SECONDS)
    except (OSError, ValueError, TimeoutError) as error:
        where = scheduler or "on this machine"
        raise CommandError(f"the Dask cluster {where} does not answer or has no workers: {error}") from error
    finally:
        signal.signal(signal.SIGINT, on_interrupt)
    with local or nullcontext(), dask:
        try:
            yield partial(_check_pages, dask)
        except CommandError:
            raise
        except (asyncio.CancelledError, concurrent.futures.CancelledError) as error:
            raise CommandError("the Dask scheduler is gone") from error
        except Exception as error:
            raise CommandError(f"the Dask cluster failed: {error!r}") from error


def _check_pages(dask: Client, files: Files, options: Namespace, stop: ShouldStop) -> Iterator[PageCheck]:
    """Checks the pages in shards, each with its share of the run's limits.

    When that does not suffice, a shard goes on with what all others left: the run ends for its limits only
    when they are spent. Of the pages after the one that ended the run, only the costs are told.
    """
    # Set as long as pages are needed, where every worker sees it.
    needed = Event(f"wiki-lint-{uuid.uuid4().hex}", client=dask)
    needed.set()
    threads = max(1, sum(dask.ncores().values()))
    pages = list(files.items())
    size = math.ceil(len(pages) / (_SHARDS_A_THREAD * threads)) or 1
    shards = [pages[start : start + size] for start in range(0, len(pages), size)]

    def submit(shard: list[tuple[str, Path]], calls: int, input_tokens: int) -> Future:
        limits = {"max_calls_per_batch": calls, "max_input_tokens_per_batch": input_tokens}
        limits["max_parallel_calls"] = max(1, options.max_parallel_calls // threads)
        limited = Namespace(**vars(options) | limits)
        return dask.submit(_check_shard, dict(shard), limited, needed.name, pure=False)

    calls, tokens = options.max_calls_per_batch, options.max_input_tokens_per_batch
    futures = [submit(shard, calls // len(shards), tokens // len(shards)) for shard in shards]
    result = cache(partial(_result, dask, needed, stop))
    ended = False
    for shard, future in zip(shards, futures):
        checks = result(future)
        if checks[-1].out_of_budget and not ended:
            spent = sum((check.counts for each in futures for check in result(each)), Counter[str]())
            rest = shard[len(checks) - 1 :]
            futures.append(submit(rest, calls - spent["questions"], tokens - spent["input_tokens"]))
            checks = [*checks[:-1], _costs_of(checks[-1]), *result(futures[-1])]
        for check in checks:
            yield _costs_of(check) if ended else check
            if check.ended_the_run:
                ended = True
                needed.clear()
    needed.clear()


def _result(dask: Client, needed: Event, should_stop: ShouldStop, future: Future) -> list[PageCheck]:
    last_seen = time.monotonic()
    while not future.done():
        with suppress(TimeoutError):
            wait(future, _LOOK_SECONDS)
        if should_stop():
            needed.clear()
        if dask.ncores():
            last_seen = time.monotonic()
        elif time.monotonic() > last_seen + _WORKERLESS_SECONDS:
            raise CommandError(f"the Dask cluster has had no workers for {_WORKERLESS_SECONDS} s")
    return list(future.result())


def _costs_of(check: PageCheck) -> PageCheck:
    costs = {name: check.counts[name] for name in ("questions", "input_tokens")}
    return PageCheck(check.page, counts=Counter(costs))


def _check_shard(files: Files, options: Namespace, needed_name: str) -> list[PageCheck]:
    needed = Event(needed_name)

    @lru_cache(maxsize=1)
    def needless(_now: int) -> bool:
        return not needed.is_set()

    return list(check_pages(files, options, lambda: needless(int(time.monotonic() / _LOOK_SECONDS))))
