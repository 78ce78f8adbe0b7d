"""Tracking leaves the interpreter free for other threads."""

import threading
import time

import numpy as np
import tavrix
from conftest import Clip


def test_other_threads_run_while_a_pass_tracks():
    clip = Clip(width=160, height=120, count=6, velocity=(0.3, 0.2))
    t = tavrix.Tracker(clip.width, clip.height, scale=True, stretch=True)
    for x in range(24, 140, 12):
        for y in range(24, 100, 12):
            t.add_track(x + 0.5, y + 0.5, pattern=(21, 21), search=(41, 41))
    frames = clip.frames()
    span = {}

    def run():
        span["start"] = time.monotonic()
        t.track(frames)
        span["end"] = time.monotonic()

    worker = threading.Thread(target=run)
    ticks, refusals = [], []
    worker.start()
    while worker.is_alive():
        ticks.append(time.monotonic())
        try:
            t.positions
        except tavrix.Error as e:
            refusals.append(str(e))
        time.sleep(0.001)
    worker.join()
    inside = [s for s in ticks if span["start"] <= s <= span["end"]]
    took = span["end"] - span["start"]
    # Holding the lock for the pass would leave one gap as long as the pass.
    gaps = np.diff([span["start"], *inside, span["end"]])
    assert len(inside) > 1 and gaps.max() < took / 2, (took, gaps.max())
    # Meanwhile the tracker turns other threads away rather than racing them.
    assert refusals and set(refusals) == {"the tracker is in use by another thread"}
    assert t.tracked.all()
