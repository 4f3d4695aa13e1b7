"""Batches: that faults of workers, schedulers and captures lose nothing and do nothing twice. The figures are the workbench's."""
import csv
import json
import os
import socket
import subprocess
import sys
import threading
import time
import types
from pathlib import Path

import numpy as np
import pytest

import tarnwick.batch

CHAIN = {"device": {"baudRateGBd": 10}, "filters": [{"type": "moving-average", "WindowLength": 3}]}


@pytest.fixture
def captures(tmp_path):
    """Captures of random symbols, and one that is empty."""
    names = []
    for seed in range(12):
        random = np.random.default_rng(seed)
        levels = np.repeat(random.integers(0, 2, 2000) * 0.4 - 0.2, 8)
        samples = np.convolve(levels, np.hanning(8) / 3.5, "same") + random.normal(0, 0.005, levels.size)
        names.append(tmp_path / f"c{seed:02}.npy")
        np.save(names[-1], samples)
    names.append(tmp_path / "empty.csv")
    names[-1].touch()
    return names


def table(path):
    with open(path, newline="", encoding="utf-8") as file:
        rows = list(csv.DictReader(file))
    for row in rows:
        del row["seconds"]
    return rows


@pytest.fixture
def expected(captures, tmp_path):
    tarnwick.batch(CHAIN, captures, tmp_path / "expected", jobs=1)
    rows = table(tmp_path / "expected" / "results.csv")
    assert [row["file"] for row in rows] == [str(capture) for capture in captures]
    assert [row["status"] for row in rows] == ["done"] * 12 + ["failed"]
    assert "empty.csv: holds no" in rows[-1]["reason"]
    return rows


def test_any_number_of_processes_gives_the_same_table(captures, expected, tmp_path):
    rows = tarnwick.batch(CHAIN, captures, tmp_path / "two", jobs=2)
    assert table(tmp_path / "two" / "results.csv") == expected
    assert rows[0]["openingPercent"] > 50 and rows[0]["samples"] > 15000 and rows[-1]["openingPercent"] is None
    assert (tmp_path / "two" / "c03.npy").read_bytes() == (tmp_path / "expected" / "c03.npy").read_bytes()


def test_eyes_are_the_pictures_of_the_program(captures, tmp_path, program):
    (tmp_path / "chain.json").write_text(json.dumps(CHAIN))
    out, names = tmp_path / "out", captures[:2]
    program("batch", tmp_path / "chain.json", *names, "-o", tmp_path / "program", "--eyes")
    tarnwick.batch(tmp_path / "chain.json", names, out, jobs=2, eyes=True)
    for name in ("c00.png", "c01.png"):
        assert (out / name).read_bytes() == (tmp_path / "program" / name).read_bytes()
    (out / "c01.png").unlink()
    before = (out / "c00.png").stat().st_mtime_ns
    tarnwick.batch(tmp_path / "chain.json", names, out, jobs=1, resume=True)
    assert not (out / "c01.png").exists()  # nobody asked for it
    tarnwick.batch(tmp_path / "chain.json", names, out, jobs=1, eyes=True, resume=True)
    assert (out / "c01.png").exists() and (out / "c00.png").stat().st_mtime_ns == before


def test_a_parquet_table_is_whole_or_the_one_before(captures, tmp_path, monkeypatch):
    """A stand-in for pyarrow keeps what it is given: which columns are numbers, and that a disk that fills spoils nothing."""
    arrow, parquet = types.ModuleType("pyarrow"), types.ModuleType("pyarrow.parquet")
    arrow.float64, arrow.string, arrow.schema = (lambda: "number"), (lambda: "text"), dict
    arrow.Table = types.SimpleNamespace(from_pylist=lambda records, schema: json.dumps([records, schema]))
    parquet.write_table = lambda table, path: Path(path).write_text(table)
    monkeypatch.setitem(sys.modules, "pyarrow", arrow)
    monkeypatch.setitem(sys.modules, "pyarrow.parquet", parquet)
    out = tmp_path / "out"
    rows = tarnwick.batch(CHAIN, captures[-2:], out, jobs=1)
    before = (out / "results.parquet").read_text()
    records, schema = json.loads(before)
    assert records == rows and list(schema) == list(rows[0])
    assert schema["openingPercent"] == "number" and schema["openingsPercent"] == schema["file"] == "text"

    def full(table, path):
        Path(path).write_text(table[:40])
        raise OSError("No space left on device")
    parquet.write_table = full
    with pytest.raises(OSError, match="No space"):
        tarnwick.batch(CHAIN, captures[:1], out, jobs=1)
    assert (out / "results.parquet").read_text() == before and not list(out.glob("*.part"))
    assert len(table(out / "results.csv")) == 1


def test_resume_does_what_is_missing(captures, expected, tmp_path, monkeypatch):
    tarnwick.batch(CHAIN, captures[:5], tmp_path / "out", jobs=1)
    with open(tmp_path / "out" / "results.csv", "ab") as file:
        file.write(b"half a r")
    ran = []
    run = tarnwick.batch._Worker.run
    monkeypatch.setattr(tarnwick.batch._Worker, "run", lambda self, job: ran.append(job[0]) or run(self, job))
    tarnwick.batch(CHAIN, captures, tmp_path / "out", jobs=2, resume=True)
    assert table(tmp_path / "out" / "results.csv") == expected
    assert sorted(ran) == [str(capture) for capture in captures[5:]]


def test_a_capture_whose_worker_dies_is_tried_twice(captures, expected, tmp_path, monkeypatch):
    once = tmp_path / "once"
    monkeypatch.setattr(tarnwick.batch._Worker, "code", f"""
import os
from tarnwick import batch
run = batch._run
def deadly(settings, job):
    if "c03" in job[0] or ("c07" in job[0] and not os.path.exists({str(once)!r})):
        open({str(once)!r}, "w").close() if "c07" in job[0] else None
        os._exit(9)
    return run(settings, job)
batch._run = deadly
batch.serve()""")
    tarnwick.batch(CHAIN, captures, tmp_path / "out", jobs=2)
    rows = table(tmp_path / "out" / "results.csv")
    assert rows[3]["status"] == "failed" and "its worker process ended with status 9, 2 times" in rows[3]["reason"]
    assert rows[:3] + rows[4:] == expected[:3] + expected[4:]


@pytest.mark.parametrize("chain, options, message", [
    (CHAIN, {"jobs": 0}, "jobs is 0"),
    ({"filters": [{"type": "copy", "enabeld": True}]}, {}, "enabeld"),
    (CHAIN, {"coding": "PAM5"}, "PAM5"),
])
def test_bad_input_is_refused_before_anything_is_written(captures, tmp_path, chain, options, message):
    with pytest.raises(ValueError, match=message):
        tarnwick.batch(chain, captures, tmp_path / "out", **options)
    assert not (tmp_path / "out").exists()
    with pytest.raises(ValueError, match="c00.npy would be written"):
        tarnwick.batch(CHAIN, captures, tmp_path)


def test_exit_status(captures, tmp_path):
    (tmp_path / "chain.json").write_text('{"filters": [{"type": "copy"}]}')
    names = [str(capture) for capture in captures]
    folder = str(tmp_path / "out")
    for arguments, status in (([str(tmp_path / "chain.json"), *names[:1]], 0), ([str(tmp_path / "chain.json"), *names[-2:]], 1),
                              ([names[0], names[1]], 2)):
        assert tarnwick.batch.main([*arguments, "-o", folder, "--jobs", "1"]) == status


class Cluster:
    """A scheduler and workers, each a process."""

    def __init__(self):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.address = f"tcp://127.0.0.1:{self.port}"
        self.workers = []
        self.start()

    def _run(self, *arguments):
        paths = os.pathsep.join(path for path in sys.path if path)
        return subprocess.Popen([sys.executable, "-m", *arguments], env={**os.environ, "PYTHONPATH": paths},
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def start(self):
        self.scheduler = self._run("distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port", str(self.port),
                                   "--no-dashboard", "--no-show")
        for _ in range(2):
            self.workers.append(self._run("distributed.cli.dask_worker", self.address, "--nthreads", "1", "--no-nanny",
                                          "--no-dashboard", "--death-timeout", "60"))

    def end(self):
        for process in [*self.workers, self.scheduler]:
            process.kill()
            process.wait()


def test_a_cluster_loses_nothing(captures, expected, tmp_path):
    pytest.importorskip("distributed")
    cluster = Cluster()
    results = tmp_path / "out" / "results.csv"

    def rows():
        return len(results.read_bytes().splitlines()) - 1 if results.exists() else 0

    def faults():
        while rows() < 2:
            time.sleep(0.02)
        cluster.workers[0].kill()
        while rows() < 4:
            time.sleep(0.02)
        cluster.scheduler.kill()
        cluster.scheduler.wait()
        seen.append(rows())
        cluster.start()

    seen = []
    try:
        thread = threading.Thread(target=faults, daemon=True)
        thread.start()
        tarnwick.batch(CHAIN, captures, tmp_path / "out", scheduler=cluster.address)
        thread.join(10)
    finally:
        cluster.end()
    assert seen and seen[0] < len(captures)  # the scheduler went while there was work left
    assert table(results) == expected


def test_no_scheduler_is_an_error_and_the_table_stays(captures, tmp_path):
    pytest.importorskip("distributed")
    tarnwick.batch(CHAIN, captures[:1], tmp_path / "out", jobs=1)
    before = (tmp_path / "out" / "results.csv").read_bytes()
    with pytest.raises(ConnectionError, match="1 captures are missing"):
        tarnwick.batch(CHAIN, captures[:2], tmp_path / "out", scheduler="tcp://127.0.0.1:9", resume=True, patience=0)
    assert (tmp_path / "out" / "results.csv").read_bytes() == before
