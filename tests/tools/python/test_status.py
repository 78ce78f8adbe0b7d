"""The robust default, the designed tracker, and the status of each frame."""

import json
import os
import subprocess

import numpy as np
import pytest

import tavrix
from conftest import Clip

TOOL = os.environ.get("TAVRIX_TRACK_COMMAND")


def faint(frames):
    """`frames` at a sixteenth of their contrast about grey: sky, as far as
    the texture check goes."""
    return 0.5 + (frames - 0.5) / 16


def half_flat(clip):
    """The clip's frames with their right half faint."""
    frames = clip.frames()
    frames[:, :, clip.width // 2:] = faint(frames[:, :, clip.width // 2:])
    return frames


def test_robust_by_default_does_not_start_a_flat_pattern():
    clip = Clip(width=120, height=80, count=5)
    frames = half_flat(clip)
    for robust in (None, True, False):
        settings = {} if robust is None else {"robust": robust}
        t = tavrix.Tracker(120, 80, **settings)
        t.add_track(30.5, 40.5)
        t.add_track(90.5, 40.5)
        t.track(frames)
        assert (t.status[0] == "tracked").all()
        if robust is False:
            # The designed tracker starts the faint pattern as any other.
            assert t.status[1, 0] == "tracked"
        else:
            assert t.lost.tolist() == [False, True]
            assert t.lost_at[1] == 0 and t.lost_reasons[1] == "too little texture"
            assert t.status[1].tolist() == ["lost", "", "", "", ""]
            assert np.isnan(t.positions[1]).all()


def test_status_says_tracked_coasted_and_lost():
    # The designed tracker gives up on the sixth failure in a row; the robust
    # one coasts longer, which the tool's tests cover.
    clip = Clip(count=9)
    t = tavrix.Tracker(
        clip.width, clip.height, tolerance=1, behavior="predictAndKey", robust=False
    )
    t.add_track(48.5, 40.5)
    t.track(clip.frames(), start=3)
    assert t.status.shape == (1, 9) and t.status.dtype.kind == "U"
    assert t.status[0].tolist() == ["tracked"] + ["coasted"] * 5 + ["lost", "", ""]
    # Keying says nothing of the match: the coasted frames are keyed too.
    assert t.keyed[0].tolist() == [True] * 6 + [False] * 3
    assert t.lost_at[0] == 9


def test_scale_and_sums_follow_the_mode_unless_given(clip):
    def positions(**settings):
        t = tavrix.Tracker(clip.width, clip.height, **settings)
        t.add_track(48.5, 40.5, pattern=(17, 17), search=(31, 31))
        t.track(clip.frames())
        return t.transforms[0], t.positions[0]

    for robust in (True, False):
        implied = positions(robust=robust)
        spelled = positions(robust=robust, scale=robust, precise_sums=robust)
        np.testing.assert_array_equal(implied[0], spelled[0])
        np.testing.assert_array_equal(implied[1], spelled[1])
    # The designed tracker fits no scale; the robust one does.
    assert (positions(robust=False)[0][:, 3] == 1).all()
    assert (positions(robust=False, scale=True)[0][1:, 3] != 1).any()


@pytest.mark.skipif(not TOOL, reason="TAVRIX_TRACK_COMMAND names the built tool")
@pytest.mark.parametrize("robust", [True, False])
def test_status_and_results_equal_the_tools(tmp_path, robust):
    clip = Clip(width=120, height=80, count=6, velocity=(2.2, -0.6), seed=3)
    frames = clip.frames()
    frames[:, 25:56, 80:111] = faint(frames[:, 25:56, 80:111])
    frames = (frames * 255).round().astype(np.uint8)
    for k, frame in enumerate(frames):
        tavrix.write_image(str(tmp_path / f"plate.{k + 1:04d}.png"), frame)
    # One on the flat box, one leaving the frame on the right, one that stays.
    points = [(95.5, 40.5), (110.5, 68.5), (20.5, 50.5)]
    args = [TOOL, str(tmp_path / "plate.####.png"), "--quiet", "--pattern", "15x15",
            "--search", "31x31", "--out", str(tmp_path / "r.json")]
    for x, y in points:
        args += ["--track", f"{x},{y}"]
    done = subprocess.run(args + ([] if robust else ["--design"]), capture_output=True,
                          text=True)
    assert done.returncode == 0, done.stderr
    expected = json.loads((tmp_path / "r.json").read_text())

    t = tavrix.Tracker(120, 80, robust=robust)
    for x, y in points:
        t.add_track(x, y, pattern=(15, 15), search=(31, 31))
    t.track(tavrix.read_sequence(str(tmp_path / "plate.####.png")), start=1)
    column = {int(f): k for k, f in enumerate(t.frames)}
    seen = np.full(t.status.shape, "", dtype="U7")
    for s in expected["samples"]:
        i, k = t.names.index(s["track"]), column[s["frame"]]
        seen[i, k] = s.get("status", "tracked")
        if s.get("status") != "lost":
            assert t.positions[i, k].tolist() == [s["x"], s["y"]]
            assert t.scores[i, k] == s["score"]
    lost = {e["track"]: e["frame"] for e in expected["lost"]}
    assert lost, "the clip is meant to lose a track"
    if robust:
        np.testing.assert_array_equal(seen, t.status)
        assert lost["1"] == 1
    else:
        # The designed layout has no status and no row for the lost frame.
        assert "status" not in expected["samples"][0]
        np.testing.assert_array_equal(seen != "", t.tracked)
    assert t.lost_at[[t.names.index(n) for n in lost]].tolist() == list(lost.values())
