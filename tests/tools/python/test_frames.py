"""Which frames the tracker takes, and that every layout tracks alike."""

import numpy as np
import pytest

import tavrix

POINT = (44.5, 38.5)


def track(clip, frames):
    t = tavrix.Tracker(clip.width, clip.height)
    t.add_track(*POINT, pattern=(17, 17), search=(31, 31))
    t.track(frames)
    return t


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
@pytest.mark.parametrize("channels", [0, 1, 3, 4])
def test_every_sample_type_and_channel_count_follows_the_motion(clip, dtype, channels):
    frames = clip.frames(dtype, channels)
    t = track(clip, frames)
    assert np.abs(t.positions[0] - clip.truth(POINT)).max() < 0.05
    # A list of frames is the same input as the stacked array.
    listed = track(clip, list(frames))
    np.testing.assert_array_equal(listed.positions, t.positions)


def test_strided_and_reversed_layouts_track_as_their_packed_copies(clip):
    rgb = clip.frames(np.float32, 3)
    packed = track(clip, rgb)
    # Channels reversed (the same plane in each), every other column of a
    # twice-as-wide array, and a Fortran-ordered copy.
    wide = np.repeat(rgb, 2, axis=2)[:, :, ::2]
    variants = [rgb[..., ::-1], wide, [np.asfortranarray(f) for f in rgb]]
    for frames in variants:
        np.testing.assert_array_equal(track(clip, frames).positions, packed.positions)
    stepped = tavrix.Tracker(clip.width, clip.height)
    stepped.add_track(*POINT, pattern=(17, 17), search=(31, 31))
    for frame in wide:
        stepped.step(frame)
    stepped.finish()
    np.testing.assert_array_equal(stepped.positions, packed.positions)


def test_frames_of_other_types_and_shapes_are_refused_with_their_reason(clip):
    good = clip.frames(np.float32)
    t = tavrix.Tracker(clip.width, clip.height)
    t.add_track(*POINT)
    cases = [
        (good.astype(np.float64), "frame 0: unsupported dtype float64 (frames are uint8, uint16 or float32)"),
        (good.astype(np.int32), "frame 0: unsupported dtype int32 (frames are uint8, uint16 or float32)"),
        (good > 0.5, "frame 0: unsupported dtype bool (frames are uint8, uint16 or float32)"),
        (clip.frames(np.float32, 2), "frame 0: 2 channels (frames have 1, 3 or 4)"),
        (clip.frames(np.float32, 5), "frame 0: 5 channels (frames have 1, 3 or 4)"),
        (good[:, :40], f"frame 0 is {clip.width}x40; the tracker's frames are {clip.width}x{clip.height}"),
    ]
    for frames, text in cases:
        with pytest.raises(tavrix.IllegalArgumentError) as e:
            t.track(frames, start=0)
        assert str(e.value) == text
        assert not t.is_open
    # The frame is named by its number in the pass.
    mixed = list(good[:3]) + [good[3].astype(np.float64)]
    with pytest.raises(ValueError, match="^frame 13: unsupported dtype float64"):
        t.track(mixed, start=10)
    # A frame refused part way ends the pass; the frames before it stay.
    short = list(good[:3]) + [good[3, :40]]
    with pytest.raises(ValueError, match="^frame 13 is "):
        t.track(short, start=10)
    assert list(t.frames) == [10, 11, 12] and t.tracked.all() and not t.is_open
    with pytest.raises(ValueError, match="^frame 0: shape \\(96,\\) is not H×W or H×W×C"):
        t.step(good[0, 0])
    t.finish()
    with pytest.raises(ValueError, match="^frames: an array of frames is N×H×W or N×H×W×C, got 2"):
        t.track(good[0])
    with pytest.raises(ValueError, match="^frames: item 1 is not a numpy array"):
        t.track([good[0], "frame"])
    with pytest.raises(ValueError, match="^frames: no frames given"):
        t.track([])


def test_write_image_takes_two_channels_and_refuses_what_no_file_holds(tmp_path):
    la = np.random.default_rng(2).integers(0, 255, size=(6, 5, 2), dtype=np.uint8)
    tavrix.write_image(str(tmp_path / "la.0001.png"), la)
    np.testing.assert_array_equal(tavrix.read_sequence(str(tmp_path / "la.####.png"))[0], la)
    with pytest.raises(tavrix.IllegalArgumentError) as e:
        tavrix.write_image(str(tmp_path / "f.png"), la.astype(np.float32))
    assert str(e.value) == f'cannot write "{tmp_path}/f.png": png files cannot hold float samples'
