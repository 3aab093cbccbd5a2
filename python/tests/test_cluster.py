"""Jobs on real clusters on this machine, with two workers, and on an object store."""

import os
import re
import signal
import sys
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import peximage as pex
import pytest
from peximage.batch import Analysis, Shrinking

ray = pytest.importorskip("ray")
import peximage.ray  # noqa: E402
from moto.server import ThreadedMotoServer  # noqa: E402
from pyarrow.fs import S3FileSystem  # noqa: E402

PAGE = (Path(__file__).parents[2] / "docs" / "cluster.md").read_text()
SNIPPETS = dict(re.findall(r"## ([^\n]*)\n\n```python\n(.*?)```", PAGE, re.S))


@dataclass(frozen=True)
class DyingOnce(Shrinking):
    """Its process is killed at one item, once."""

    mark: str = ""

    def __call__(self, path):
        if path.endswith("photo7.jpg") and not os.path.exists(self.mark):
            open(self.mark, "w").close()
            os.kill(os.getpid(), signal.SIGKILL)
        return super().__call__(path)


@pytest.fixture(scope="module")
def cluster():
    ray.cloudpickle.register_pickle_by_value(sys.modules[__name__])
    ray.init(num_cpus=2, include_dashboard=False, log_to_driver=False, object_store_memory=100_000_000)
    yield
    ray.shutdown()


@pytest.fixture()
def paths(tmp_path):
    noise = np.random.default_rng(1)
    for i in range(40):
        array = noise.integers(0, 255, (90, 120, 3), np.uint8)
        pex.from_array(array).save(tmp_path / f"photo{i}.jpg")
    (tmp_path / "photo20.jpg").write_bytes(b"no picture")
    (tmp_path / "photo21.jpg").unlink()
    return [str(tmp_path / f"photo{i}.jpg") for i in range(40)]


def statuses(rows):
    return {os.path.basename(row["path"]): row["status"] for row in rows}


def test_nothing_is_lost_or_twice_when_a_worker_is_killed(cluster, paths, tmp_path):
    to = tmp_path / "small"
    job = DyingOnce(to=str(to), max_side=60, max_bytes=2000, mark=str(tmp_path / "killed"))
    part = peximage.ray.run(job, paths[10:30], items_at_once=4).take_all()  # a run that came no further
    assert sorted(statuses(part).values()) == ["failed"] * 2 + ["written"] * 18
    times = {file.name: file.stat().st_mtime_ns for file in to.iterdir()}

    rows = peximage.ray.run(job, paths, items_at_once=4).take_all()
    assert (tmp_path / "killed").exists()
    assert sorted(row["path"] for row in rows) == sorted(paths)
    told = statuses(rows)
    assert all(told[f"photo{i}.jpg"] == "kept" for i in range(10, 30) if i not in (20, 21))
    assert {row["code"] for row in rows if row["status"] == "failed"} == {"not-an-image", "FileNotFoundError"}
    outputs = {row["output"] for row in rows if row["output"]}
    assert len(outputs) == 38 and outputs == {str(file) for file in to.iterdir()}
    assert all(pex.open(output).size == (60, 45) and os.path.getsize(output) <= 2000 for output in outputs)
    assert all((to / name).stat().st_mtime_ns == time for name, time in times.items())


def test_analyses(cluster, paths):
    rows = {os.path.basename(row["path"]): row for row in peximage.ray.run(Analysis(), paths).take_all()}
    assert len(rows) == 40 and rows["photo20.jpg"]["code"] == "not-an-image"
    for name in ("photo0.jpg", "photo39.jpg"):
        row = rows[name]
        mean = np.asarray(pex.open(row["path"])).mean(axis=(0, 1))
        assert (row["status"], row["width"], row["height"], row["format"]) == ("read", 120, 90, "jpeg")
        assert np.allclose([row["red"], row["green"], row["blue"]], mean, atol=2)


@pytest.mark.parametrize("engine", ["Ray", "Dask", "Spark"])
def test_the_page_of_each_engine_runs(engine, cluster, paths, tmp_path, monkeypatch):
    monkeypatch.setenv("PYSPARK_PYTHON", sys.executable)
    names = {"__name__": "__main__", "paths": paths, "job": Shrinking(str(tmp_path / "small"), max_side=60, max_bytes=2000)}
    exec(SNIPPETS[engine], names)
    rows = names["rows"]
    assert sorted(row["path"] for row in rows) == sorted(paths)
    assert sorted(statuses(rows).values()) == ["failed"] * 2 + ["written"] * 38
    assert len(os.listdir(tmp_path / "small")) == 38


def test_photos_lie_in_an_object_store(paths):
    server = ThreadedMotoServer("127.0.0.1", 0, verbose=False)
    server.start()
    try:
        address = "127.0.0.1:%d" % server.get_host_and_port()[1]
        store = S3FileSystem(endpoint_override=address, scheme="http", access_key="key", secret_key="secret", allow_bucket_creation=True)
        store.create_dir("photos")
        for name, path in (("a", paths[0]), ("b", paths[20])):
            with store.open_output_stream(f"photos/{name}.jpg") as stream:
                stream.write(Path(path).read_bytes())
        for first in ("written", "kept"):
            names = {"Shrinking": Shrinking}
            exec(SNIPPETS["Photos in an object store"].replace("127.0.0.1:9000", address), names)
            assert [row["status"] for row in names["rows"]] == [first, "failed"]
        with store.open_input_stream(names["rows"][0]["output"]) as stream:
            assert pex.open(stream.read()).size == (120, 90)
    finally:
        server.stop()
