"""Jobs over many pictures on a Ray cluster: one process a core, each working with one thread.

    import peximage.ray
    from peximage.batch import Shrinking

    rows = peximage.ray.run(Shrinking("/small", max_side=2000, max_bytes=300_000), paths)
    failed = rows.filter(lambda row: row["status"] == "failed").take_all()

Ray runs the items of a process that dies again elsewhere, and since outputs are named by what they are made of, nothing
is made or written twice. Run the same line again after a stop: what is there is kept.
"""

from __future__ import annotations

from typing import Any, Dict, Iterable

import ray.data

from . import _core
from .batch import Job


def run(job: Job, paths: Iterable[str], *, items_at_once: int = 32) -> "ray.data.Dataset":
    """A row for each path, as the job tells; computed when the rows are asked for. `items_at_once` go to one process
    together and are done again together when it dies."""
    items = ray.data.from_items([{"path": path} for path in paths])

    def rows(batch: Dict[str, Any]) -> Dict[str, Any]:
        _core.set_threads(1)
        done = [job(str(path)) for path in batch["path"]]
        return {name: [row[name] for row in done] for name in done[0]}

    # Blocks are what is done again, so they are as small as batches.
    blocks = max(1, -(-items.count() // items_at_once))
    return items.repartition(blocks).map_batches(rows, batch_size=items_at_once, num_cpus=1)
