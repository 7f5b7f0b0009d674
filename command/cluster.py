"""First looks taken by the workers of a Dask cluster: if one is lost, nothing that was paid for is."""

import logging
import math
import signal
import time
from argparse import Namespace
from asyncio import CancelledError
from contextlib import suppress
from multiprocessing import resource_tracker
from tempfile import TemporaryDirectory

from distributed import Client, wait

from command.answers import decision_client
from command.pages import Page
from command.report import PageCheck
from command.run import Checks, ShouldStop, first_looks
from command.terminal import STOP_SIGNALS, CommandError
from quenlow.engines.decision import DecisionClient

_SHARDS_A_THREAD, _CONNECT_SECONDS, _WORKERLESS_SECONDS = 16, 10, 30


def looks(pages: list[Page], options: Namespace, is_over: ShouldStop, client: DecisionClient) -> Checks:
    """Takes the first looks on the scheduler's cluster, or on a local one of so many workers."""
    logging.disable(logging.CRITICAL)  # what the library logs of a lost scheduler, in anybody's name
    with TemporaryDirectory(ignore_cleanup_errors=True) as folder, _connected(options, folder) as dask:
        try:
            size = math.ceil(len(pages) / (_SHARDS_A_THREAD * max(1, sum(dask.ncores().values()))))
            shards = [pages[start : start + size] for start in range(0, len(pages), size)]
            last_seen = time.monotonic()
            for shard, future in zip(shards, dask.map(_taken, shards, options=options, pure=False)):
                while not future.done() and not is_over():
                    with suppress(TimeoutError):
                        wait(future, timeout=0.5)
                    if dask.ncores():
                        last_seen = time.monotonic()
                    elif time.monotonic() > last_seen + _WORKERLESS_SECONDS:
                        raise TimeoutError(f"no workers for {_WORKERLESS_SECONDS} s")
                yield from first_looks(shard, options, is_over, client) if is_over() else future.result()
        except (CancelledError, Exception) as error:
            raise CommandError(f"the Dask cluster failed or is gone: {error!r}") from error


def _taken(pages: list[Page], options: Namespace) -> list[PageCheck]:
    return [*first_looks(pages, options, lambda: False, decision_client(options))]


def _connected(options: Namespace, folder: str) -> Client:
    # These may go to every process of a group. Local workers inherit that they are blocked; it is started
    # before them, what would unblock them again at their start.
    resource_tracker.ensure_running()
    signal.pthread_sigmask(signal.SIG_BLOCK, STOP_SIGNALS)
    try:
        # Without `security`, whoever else is on this machine could have local workers run what they like.
        local = {"n_workers": options.workers, "threads_per_worker": 1, "local_directory": folder,
                 "security": True, "dashboard_address": "127.0.0.1:0", "silence_logs": logging.CRITICAL}
        dask = Client(options.scheduler, timeout=_CONNECT_SECONDS, **(local if options.workers else {}))
        dask.wait_for_workers(1, timeout=_CONNECT_SECONDS)
        return dask
    except (OSError, ValueError, TimeoutError) as error:
        raise CommandError(f"no Dask workers at {options.scheduler or 'this machine'}: {error}") from error
    finally:
        signal.pthread_sigmask(signal.SIG_UNBLOCK, STOP_SIGNALS)
