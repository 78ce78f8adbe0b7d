"""Tracking known sub-pixel motion, whole passes and frame by frame."""

import numpy as np
import pytest

import tavrix
from conftest import Clip

# Within a 20th of a pixel of the motion the clip was made with.
TOLERANCE = 0.05
POINTS = [(30.5, 30.5), (60.0, 45.25), (48.5, 52.5)]


def tracker_for(clip, **settings):
    t = tavrix.Tracker(clip.width, clip.height, **settings)
    for x, y in POINTS:
        t.add_track(x, y, pattern=(17, 17), search=(31, 31))
    return t


def test_follows_known_motion_within_a_twentieth_of_a_pixel(clip):
    # The designed tracker, which fits no scale.
    t = tracker_for(clip, robust=False)
    t.track(clip.frames(), start=10)
    assert list(t.frames) == list(range(10, 10 + clip.count))
    for i, point in enumerate(POINTS):
        error = np.abs(t.positions[i] - clip.truth(point)).max()
        assert error < TOLERANCE, f"track {i} strays {error:.4f} px"
    assert t.keyed.all() and t.tracked.all() and not t.lost.any()
    assert (t.scores > 0.99).all()
    # Pure translation: the fitted shape stays unrotated and unscaled.
    assert np.abs(t.transforms[..., 2]).max() < 1e-2
    assert np.abs(t.transforms[..., 3] - 1).max() < 1e-6


def test_backward_pass_follows_the_motion_in_reverse(clip):
    last = clip.count - 1
    start = [tuple(clip.truth(p)[last]) for p in POINTS]
    t = tavrix.Tracker(clip.width, clip.height)
    for x, y in start:
        t.add_track(x, y, pattern=(17, 17), search=(31, 31))
    t.track(list(clip.frames()[::-1]), start=last, backward=True)
    assert list(t.frames) == list(range(last, -1, -1))
    for i, point in enumerate(POINTS):
        assert np.abs(t.positions[i] - clip.truth(point)[::-1]).max() < TOLERANCE


def test_stepping_reports_only_final_values_and_equals_a_whole_pass(clip):
    whole = tracker_for(clip)
    whole.track(clip.frames(), start=3)
    stepped = tracker_for(clip)
    stepped.start(3)
    seen = 0
    for k, frame in enumerate(clip.frames()):
        stepped.step(frame)
        n = len(stepped.frames)
        # The lagged refinement holds back the latest frames, never more
        # than it has been given, and what it has let go never changes.
        assert seen <= n <= k + 1 and n < clip.count
        np.testing.assert_array_equal(stepped.positions, whole.positions[:, :n])
        np.testing.assert_array_equal(stepped.transforms, whole.transforms[:, :n])
        seen = n
    assert seen < clip.count
    stepped.finish()
    for name in ("frames", "positions", "scores", "transforms", "keyed", "tracked", "lost"):
        np.testing.assert_array_equal(getattr(stepped, name), getattr(whole, name))


def test_a_second_pass_starts_from_the_placed_positions(clip):
    t = tracker_for(clip)
    t.track(clip.frames())
    first = t.positions.copy()
    t.track(clip.frames())
    np.testing.assert_array_equal(t.positions, first)


def test_a_track_that_leaves_the_frame_is_lost_and_the_others_go_on():
    # The designed tracker stops at the first frame its search area leaves;
    # the robust one coasts a frame further.
    clip = Clip(width=96, height=80, count=9, velocity=(2.0, 0.5))
    t = tavrix.Tracker(clip.width, clip.height, robust=False)
    t.add_track(40.5, 40.5, pattern=(15, 15), search=(31, 31))
    t.add_track(83.5, 40.5, pattern=(11, 11), search=(21, 21), name="edge")
    t.track(clip.frames(), start=1)
    outside = clip.truth((83.5, 40.5))[:, 0] >= clip.width
    gone = t.frames[np.argmax(outside)]
    assert list(t.lost) == [False, True]
    assert t.lost_at[1] == gone and t.lost_reasons[1] == "left the frame"
    # Its results end the frame before; the other track has them all.
    assert t.tracked[1].tolist() == (t.frames < gone).tolist()
    assert np.isnan(t.positions[1, t.frames >= gone]).all()
    assert not t.keyed[1, t.frames >= gone].any()
    assert t.tracked[0].all()
    assert np.abs(t.positions[0] - clip.truth((40.5, 40.5))).max() < TOLERANCE
