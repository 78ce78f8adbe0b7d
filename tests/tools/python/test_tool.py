"""The module against tavrix-track on the same files, and reading sequences."""

import json
import os
import subprocess

import numpy as np
import pytest

import tavrix
from conftest import Clip

TOOL = os.environ.get("TAVRIX_TRACK_COMMAND")


def write_plate(directory, frames, first=1):
    for k, frame in enumerate(frames):
        tavrix.write_image(str(directory / f"plate.{first + k:04d}.png"), frame)
    return str(directory / "plate.####.png")


def run_tool(args):
    done = subprocess.run([TOOL, *args, "--quiet"], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done


@pytest.fixture
def plate(tmp_path):
    """An RGB 8-bit clip on disk, moving fast enough that one track leaves."""
    clip = Clip(width=96, height=80, count=6, velocity=(2.2, -0.6), seed=3)
    frames = clip.frames(np.uint8, channels=3)
    # Colour that differs by channel, so that colour modes see different data.
    frames[..., 0] = 255 - frames[..., 0]
    return write_plate(tmp_path, frames), frames


@pytest.mark.skipif(not TOOL, reason="TAVRIX_TRACK_COMMAND names the built tool")
@pytest.mark.parametrize("backward", [False, True])
def test_results_equal_the_tools_json_to_the_last_bit(tmp_path, plate, backward):
    pattern, _ = plate
    first, last = (6, 1) if backward else (1, 6)
    # The last two leave the frame, one going forward, one going backward.
    tracks = [(30.5, 30.5, "luminance"), (50.0, 40.5, "red"), (88.5, 30.5, "green"),
              (6.5, 50.5, "blue")]
    args = [pattern, "--from", str(first), "--to", str(last), "--pattern", "15x15",
            "--search", "31x31", "--behavior", "predict", "--tolerance", "0.9", "--scale",
            "--design", "--out", str(tmp_path / "r.json")]
    spec = {"tracks": [{"name": f"t{i}", "position": [x, y], "colorMode": mode}
                       for i, (x, y, mode) in enumerate(tracks)]}
    (tmp_path / "tracks.json").write_text(json.dumps(spec))
    run_tool(args + ["--tracks", str(tmp_path / "tracks.json")])
    expected = json.loads((tmp_path / "r.json").read_text())

    frames = tavrix.read_sequence(pattern, first, last)
    # The designed tracker and layout: one sample per frame followed.
    t = tavrix.Tracker(96, 80, tolerance=0.9, behavior="predict", scale=True, robust=False)
    for i, (x, y, mode) in enumerate(tracks):
        t.add_track(x, y, pattern=(15, 15), search=(31, 31), color_mode=mode, name=f"t{i}")
    t.track(frames, start=first, backward=backward)

    column = {int(f): k for k, f in enumerate(t.frames)}
    seen = np.zeros_like(t.tracked)
    for s in expected["samples"]:
        i, k = t.names.index(s["track"]), column[s["frame"]]
        seen[i, k] = True
        assert t.positions[i, k].tolist() == [s["x"], s["y"]]
        assert t.scores[i, k] == s["score"]
        assert t.keyed[i, k] == s["keyed"]
        shape = s["transform"]
        assert t.transforms[i, k].tolist() == [shape[n] for n in ("tx", "ty", "ro", "sc", "st0", "st1")]
    np.testing.assert_array_equal(seen, t.tracked)
    lost = {e["track"]: e for e in expected["lost"]}
    assert lost, "the clip is meant to lose a track"
    for i, name in enumerate(t.names):
        assert t.lost[i] == (name in lost)
        if name in lost:
            assert t.lost_at[i] == lost[name]["frame"]
            assert t.lost_reasons[i] == lost[name].get("reason", "")


def test_read_sequence_returns_the_frames_written(tmp_path):
    rng = np.random.default_rng(5)
    cases = [(np.uint8, 1), (np.uint8, 3), (np.uint8, 4), (np.uint16, 3), (np.uint16, 1)]
    for n, (dtype, channels) in enumerate(cases):
        directory = tmp_path / str(n)
        directory.mkdir()
        frames = rng.integers(0, np.iinfo(dtype).max, size=(4, 9, 13, channels), dtype=dtype)
        pattern = write_plate(directory, frames, first=7)
        back = tavrix.read_sequence(pattern)
        assert back.dtype == dtype and back.shape == frames.shape
        np.testing.assert_array_equal(back, frames)
        np.testing.assert_array_equal(tavrix.read_sequence(pattern, 8, 9), frames[1:3])
        np.testing.assert_array_equal(tavrix.read_sequence(pattern, 9, 7), frames[2::-1])


def test_read_sequence_round_trips_float_exr(tmp_path):
    frames = np.random.default_rng(6).random((2, 5, 7, 4), dtype=np.float32)
    pattern = str(tmp_path / "plate.####.exr")
    for k, frame in enumerate(frames):
        tavrix.write_image(str(tmp_path / f"plate.{k + 1:04d}.exr"), frame)
    back = tavrix.read_sequence(pattern)
    assert back.dtype == np.float32
    np.testing.assert_array_equal(back, frames)


def test_read_sequence_takes_every_frame_name_form(tmp_path):
    frames = np.random.default_rng(7).integers(0, 255, size=(3, 6, 5), dtype=np.uint8)
    for k, frame in enumerate(frames):
        tavrix.write_image(str(tmp_path / f"plate.{k + 11:04d}.png"), frame)
    for form in ("plate.####.png", "plate.@@@@.png", "plate.%04d.png"):
        back = tavrix.read_sequence(str(tmp_path / form))
        np.testing.assert_array_equal(back[..., 0] if back.ndim == 4 else back, frames)
    with pytest.raises(tavrix.IllegalArgumentError):
        tavrix.read_sequence(str(tmp_path / "plate.%q.png"))


def test_read_sequence_errors_name_the_pattern_and_the_range(tmp_path):
    pattern = write_plate(tmp_path, np.zeros((3, 4, 4), dtype=np.uint8), first=2)
    missing = str(tmp_path / "none.####.png")
    with pytest.raises(tavrix.IllegalArgumentError) as e:
        tavrix.read_sequence(missing)
    assert str(e.value) == f'no file matches the frame pattern "{missing}"'
    with pytest.raises(IndexError) as e:
        tavrix.read_sequence(pattern, 1)
    assert str(e.value) == "frame 1 lies outside the sequence's frames 2 to 4"
    assert isinstance(e.value, tavrix.BadIndexError)
    # A frame of another size spoils the stack; the message names its file.
    tavrix.write_image(str(tmp_path / "plate.0005.png"), np.zeros((5, 4), dtype=np.uint8))
    with pytest.raises(tavrix.IllegalArgumentError) as e:
        tavrix.read_sequence(pattern)
    assert str(e.value) == (f'"{tmp_path}/plate.0005.png" is 4x5, 1 channel of ub1, '
                            "unlike frame 2 (4x4, 1 channel of ub1)")
