"""Captures by the thousand: `batch` runs them through a chain, on the processes of one machine or on a Dask cluster.

What a process runs is the row function of ``tarnwick batch``, so that outputs and table are the same, to the last bit but for the
seconds. The module is what its function is: ``tarnwick.batch(...)`` calls `batch`. From a shell: ``python -m tarnwick.batch``.
"""
from __future__ import annotations

import argparse
import csv
import json
import os
import queue
import signal
import subprocess
import sys
import tempfile
import threading
import time
import types
from collections.abc import Generator, Iterable, Mapping, Sequence
from concurrent.futures import CancelledError
from contextlib import closing
from functools import lru_cache
from importlib import import_module
from pathlib import Path
from typing import Any, Optional, Union

from . import _core

Cells = list[str]
Job = tuple[str, str]  # the capture's file, and the name of its outputs without ending
_TRIES = 2  # of a capture whose worker dies
_NUMBERS = frozenset(("symbolRateGBd", "samplesPerUi", "repetitions", "samples", "openingPercent", "height", "widthUi",
                      "heightAtBer", "q", "ber", "noiseRms", "seconds"))


@lru_cache(maxsize=4)
def _input(settings: str) -> _core.Batch:
    return _core.Batch(**json.loads(settings))


def _run(settings: str, job: Job) -> Cells:
    """The row of a capture; on a worker."""
    row: Cells = _input(settings).run(*job)
    return row


def _columns() -> Cells:
    return next(csv.reader([_core.batch_table_head()]))


def _failed(job: Job, reason: str) -> Cells:
    known = {"file": job[0], "status": "failed", "reason": reason}
    return [known.get(column, "") for column in _columns()]


def _as_record(cells: Cells) -> dict[str, Any]:
    return {column: (float(cell) if cell else None) if column in _NUMBERS else cell
            for column, cell in zip(_columns(), cells)}


class _Worker:
    """A process of this machine, which runs one capture at a time. It imports nothing of the program that calls."""

    code = "from tarnwick import batch; batch.serve()"

    def __init__(self, settings: str) -> None:
        self.settings = settings
        self.process: Optional[subprocess.Popen[str]] = None
        self.ended = False

    def run(self, job: Job) -> Cells:
        """The row of a capture. One whose process dies is tried once more."""
        code: Optional[int] = None
        for _ in range(_TRIES):
            if self.ended:
                break
            if self.process is None:
                self.process = self._started()
            assert self.process.stdin is not None and self.process.stdout is not None
            try:
                self.process.stdin.write(json.dumps(job) + "\n")
                self.process.stdin.flush()
                line = self.process.stdout.readline()
            except OSError:
                line = ""
            if line.endswith("\n"):
                row: Cells = json.loads(line)
                return row
            code = self.process.wait()
            self.process = None
        return _failed(job, f"{job[0]}: its worker process ended with status {code}, {_TRIES} times")

    def end(self) -> None:
        self.ended = True
        process = self.process
        if process is not None:
            process.terminate()
            process.wait()

    def _started(self) -> subprocess.Popen[str]:
        paths = os.pathsep.join(path for path in sys.path if path)
        # In a session of its own: an interruption is for this process, which ends the others.
        process = subprocess.Popen([sys.executable, "-c", self.code], encoding="utf-8",
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True,
                                   env={**os.environ, "PYTHONPATH": paths})
        assert process.stdin is not None
        process.stdin.write(json.dumps(self.settings) + "\n")
        return process


def serve() -> None:
    """What a worker process of `batch` does: rows for the captures that are named on standard input."""
    settings = json.loads(sys.stdin.readline())
    for line in sys.stdin:
        capture, name = json.loads(line)
        try:
            row = _run(settings, (capture, name))
        except Exception as failure:  # the chain, which was in order when the batch began
            row = _failed((capture, name), f"{capture}: {failure}")
        print(json.dumps(row), flush=True)


def _on_processes(settings: str, jobs: Sequence[Job], count: int) -> Generator[tuple[int, Cells], None, None]:
    """Rows as they end."""
    ended: queue.SimpleQueue[tuple[int, Cells] | BaseException] = queue.SimpleQueue()
    waiting = list(range(len(jobs)))[::-1]

    def feed(worker: _Worker) -> None:
        try:
            while True:
                try:
                    index = waiting.pop()
                except IndexError:
                    break
                ended.put((index, worker.run(jobs[index])))
        except BaseException as failure:  # of this program, not of a capture
            ended.put(failure)

    workers = [_Worker(settings) for _ in range(min(count, len(jobs)))]
    threads = [threading.Thread(target=feed, args=(worker,), daemon=True) for worker in workers]
    try:
        for thread in threads:
            thread.start()
        for _ in jobs:
            item = ended.get()
            if isinstance(item, BaseException):
                raise item
            yield item
    finally:
        waiting.clear()
        for worker in workers:
            worker.end()
        for thread in threads:
            thread.join()


def _on_cluster(settings: str, jobs: Sequence[Job], scheduler: str, patience: float) -> Generator[tuple[int, Cells], None, None]:
    """The same on a Dask cluster. A scheduler that is restarted is given what has not come back."""
    distributed: Any = import_module("distributed")  # not for everybody, and without types
    missing = dict(enumerate(jobs))
    gone_since: Optional[float] = None
    while missing:
        try:
            with distributed.Client(scheduler, timeout=5, set_as_default=False) as client, client.as_current():
                gone_since = None
                indices = list(missing)
                futures = dict(zip(client.map(_run, [settings] * len(indices), [missing[index] for index in indices],
                                              pure=False, retries=_TRIES - 1), indices))
                while futures:
                    try:
                        distributed.wait(list(futures), timeout=0.5, return_when="FIRST_COMPLETED")
                    except (TimeoutError, distributed.TimeoutError):
                        pass
                    if client.status != "running":
                        raise OSError("the scheduler is gone")
                    for future in [future for future in futures if future.status != "pending"]:
                        index = futures.pop(future)
                        if future.status == "finished":
                            row = future.result(timeout=30)
                        elif future.status == "error":
                            failure = future.exception()
                            died = isinstance(failure, distributed.KilledWorker)
                            row = _failed(missing[index], f"{missing[index][0]}: " +
                                          ("its workers died" if died else f"{failure}"))
                        else:
                            raise OSError("the scheduler has lost its tasks")
                        del missing[index]
                        yield index, row
        except (OSError, CancelledError, distributed.TimeoutError) as failure:
            gone_since = gone_since or time.monotonic()
            if time.monotonic() - gone_since > patience:
                raise ConnectionError(f"{scheduler}: no scheduler for {patience:g} s; {len(missing)} captures are missing, "
                                      "resume=True does them") from failure
            time.sleep(0.5)


class _Table:
    """The table, to which rows are added whole."""

    def __init__(self, path: Path) -> None:
        self.path = path

    def rows(self) -> list[Cells]:
        if not self.path.exists():
            return []
        found: list[Cells] = _core.read_batch_table(self.path.read_text(encoding="utf-8"), str(self.path))
        return found

    def replace(self, rows: Iterable[Cells]) -> None:
        with tempfile.NamedTemporaryFile("w", dir=self.path.parent, suffix=".part", delete=False, encoding="utf-8") as file:
            try:
                file.write(_core.batch_table_head())
                file.writelines(_core.batch_table_row(row) for row in rows)
                file.close()
                os.chmod(file.name, 0o666 & ~_umask())
                os.replace(file.name, self.path)
            except BaseException:
                os.unlink(file.name)
                raise

    def add(self, row: Cells) -> None:
        data = _core.batch_table_row(row).encode()
        with open(self.path, "ab", buffering=0) as file:
            size = file.tell()
            if file.write(data) != len(data):
                os.truncate(self.path, size)
                raise OSError(f"{self.path}: cannot be written")


def _umask() -> int:
    mask = os.umask(0)
    os.umask(mask)
    return mask


def _write_parquet(path: Path, records: list[dict[str, Any]]) -> None:
    """The rows as a Parquet file, whole or not at all, where pyarrow is installed."""
    try:
        pyarrow: Any = import_module("pyarrow")
        parquet: Any = import_module("pyarrow.parquet")
    except ImportError:
        return
    # Types of their own: those found in the rows would change with what is known of the captures.
    schema = pyarrow.schema([(column, pyarrow.float64() if column in _NUMBERS else pyarrow.string()) for column in _columns()])
    temporary = path.with_suffix(".part")
    try:
        parquet.write_table(pyarrow.Table.from_pylist(records, schema=schema), temporary)
        os.replace(temporary, path)
    except BaseException:
        temporary.unlink(missing_ok=True)
        raise


class _Bar:
    """What is done, how fast and what is left, on a terminal."""

    def __init__(self, total: int) -> None:
        self.total, self.done, self.start, self.shown = total, 0, time.monotonic(), 0.0
        self.active = sys.stderr.isatty()

    def step(self) -> None:
        self.done += 1
        now = time.monotonic()
        if self.active and (now - self.shown > 0.1 or self.done == self.total):
            rate = self.done / max(now - self.start, 1e-9)
            left = round((self.total - self.done) / rate)
            bar = "=" * (30 * self.done // self.total)
            print(f"\r[{bar:<30}] {self.done} of {self.total}, {rate:.3g}/s, {left // 60}:{left % 60:02} left ",
                  end="" if self.done < self.total else "\n", file=sys.stderr, flush=True)
            self.shown = now


def _settings(chain: Any, folder: Path, options: Mapping[str, Any]) -> str:
    if isinstance(chain, (str, os.PathLike)):
        name, text = os.fspath(chain), Path(chain).read_text(encoding="utf-8")
    elif isinstance(chain, Mapping):
        name, text = "Chain", json.dumps(chain)
    else:
        name, text = chain._file.name, chain._file.text()
    return json.dumps({"chain": text, "name": os.path.abspath(name), "folder": str(folder), **options})


def batch(chain: Any, captures: Iterable[Union[str, os.PathLike[str]]], out: Union[str, os.PathLike[str]],
          scheduler: Optional[str] = None, jobs: Optional[int] = None, *, results: Union[str, os.PathLike[str], None] = None,
          eyes: bool = False, resume: bool = False, patience: float = 60.0, **options: Any) -> list[dict[str, Any]]:
    """Runs captures through a chain, each in a process of its own, and writes what ``tarnwick batch`` writes.

    Parameters
    ----------
    chain : str, path, mapping or Chain
        A chain file, its content, or a chain.
    captures : iterable of str or path
        One that fails is a row with its reason; the others go on.
    out : str or path
        Folder for the filtered captures, NAME.npy each; made when it is not there.
    scheduler : str, optional
        ``tcp://host:port`` of a Dask cluster. Captures, what the chain names and ``out`` then lie on a path that all workers
        share, on which this package can be imported. Without it: processes on this machine.
    jobs : int, optional
        How many of these; left out, as many as there are processors. Each holds one capture in memory.
    results : str or path, optional
        The table; left out, ``results.csv`` in ``out``. Where pyarrow is installed there is a ``.parquet`` beside it.
    eyes : bool
        Draw the eye behind the chain into NAME.png for each capture, as ``tarnwick batch --eyes`` does; gnuplot draws it.
    resume : bool
        Keep the rows of an earlier batch whose capture, chain and options are the same and whose output is there.
    patience : float
        How long a cluster's scheduler may be gone [s].
    **options
        ``coding``, ``baud`` [GBd], ``samples_per_ui``, ``pattern_length``, ``whole``, ``skip_lines``, ``column``,
        ``sample_rate`` [GS/s] and ``scale``, as of the program.

    Returns
    -------
    list of dict
        A row each, in the order of the captures: the columns of the table; numbers as float, None where there are none.

    Raises
    ------
    ValueError
        The chain, an option, or the table is another one's.
    ConnectionError
        The scheduler cannot be reached. What is done is in the table.
    """
    folder = Path(out).absolute()
    if jobs is not None and jobs < 1:
        raise ValueError(f"batch: jobs is {jobs}; expected at least 1")
    settings = _settings(chain, folder, {**options, "eyes": eyes})
    batch_input = _input(settings)  # says what is wrong with it before anything is written
    plan, notes = _core.plan_batch([os.fspath(capture) for capture in captures])
    for note in notes:
        print(f"tarnwick: {note}", file=sys.stderr)
    table = _Table(Path(results).absolute() if results else folder / "results.csv")
    endings = (".npy", ".png") if eyes else (".npy",)
    outputs = {path.resolve() for path in [*(folder / f"{name}{ending}" for _, name in plan for ending in endings), table.path]}
    inputs = [capture for capture, _ in plan] + ([os.fspath(chain)] if isinstance(chain, (str, os.PathLike)) else [])
    for name in inputs:
        if Path(name).resolve() in outputs:
            raise ValueError(f"batch: {name} would be written, which is read; expected another")
    folder.mkdir(parents=True, exist_ok=True)
    rows: list[Optional[Cells]] = [None] * len(plan)
    others: list[Cells] = []
    if resume:
        index_of = {capture: index for index, (capture, _) in enumerate(plan)}
        for row in table.rows():
            index = index_of.get(row[0])
            if index is None:
                others.append(row)
            elif batch_input.is_up_to_date(row, *plan[index]):
                rows[index] = row
    missing = [index for index, row in enumerate(rows) if row is None]
    table.replace([row for row in rows if row is not None] + others)
    bar = _Bar(len(missing))
    todo = [plan[index] for index in missing]
    try:
        if scheduler is None:
            ended = _on_processes(settings, todo, jobs or os.cpu_count() or 1)
        else:
            ended = _on_cluster(settings, [(os.path.abspath(capture), name) for capture, name in todo], scheduler, patience)
        with closing(ended):
            for k, row in ended:
                row[0] = todo[k][0]
                table.add(row)
                rows[missing[k]] = row
                bar.step()
    finally:
        table.replace([row for row in rows if row is not None] + others)
    records = [_as_record(row) for row in rows if row is not None]
    _write_parquet(table.path.with_suffix(".parquet"), records)
    return records


def main(arguments: Optional[Sequence[str]] = None) -> int:
    """``python -m tarnwick.batch``: exit status 0, 1 when a capture failed, 2 for wrong usage."""
    parser = argparse.ArgumentParser(prog="python -m tarnwick.batch",
                                     description="Runs captures through a chain, on processes or on a Dask cluster.")
    parser.add_argument("chain", help="chain file (JSON)")
    parser.add_argument("captures", nargs="+", help="captures; on a path that all workers share")
    parser.add_argument("-o", "--output", required=True, metavar="FOLDER", help="folder for the filtered captures")
    parser.add_argument("--scheduler", help="tcp://host:port of a Dask cluster; left out: processes on this machine")
    parser.add_argument("-j", "--jobs", type=int, help="processes; left out: as many as there are processors")
    parser.add_argument("--results", metavar="FILE.csv", help="table; left out: results.csv in FOLDER")
    parser.add_argument("--eyes", action="store_true", help="draw the eye behind the chain into NAME.png for each capture")
    parser.add_argument("--resume", action="store_true", help="do what is missing only")
    parser.add_argument("--patience", type=float, default=60.0, help="how long a scheduler may be gone [s]")
    for option, kind in (("coding", str), ("baud", float), ("samples-per-ui", float), ("pattern-length", int),
                         ("skip-lines", int), ("column", str), ("sample-rate", float), ("scale", float)):
        parser.add_argument(f"--{option}", type=kind, default=argparse.SUPPRESS, help="as of the program tarnwick")
    parser.add_argument("--whole", action="store_true", default=argparse.SUPPRESS,
                        help="write the ends of single shots too")
    given = vars(parser.parse_args(arguments))
    try:
        rows = batch(given.pop("chain"), given.pop("captures"), given.pop("output"), **given)
    except ValueError as failure:
        print(f"tarnwick: {failure}", file=sys.stderr)
        return 2
    except OSError as failure:
        print(f"tarnwick: {failure}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("tarnwick: interrupted; --resume does the rest", file=sys.stderr)
        return 128 + signal.SIGINT
    failures = [row for row in rows if row["status"] != "done"]
    for row in failures[:10]:
        print(f"tarnwick: {row['reason']}", file=sys.stderr)
    print(f"{len(rows) - len(failures)} of {len(rows)} captures are done")
    return 1 if failures else 0


class _CallableModule(types.ModuleType):
    def __call__(self, *arguments: Any, **options: Any) -> list[dict[str, Any]]:
        return batch(*arguments, **options)


sys.modules[__name__].__class__ = _CallableModule

if __name__ == "__main__":
    from tarnwick import batch as module  # what workers are sent must have a name that they can import
    sys.exit(module.main())
