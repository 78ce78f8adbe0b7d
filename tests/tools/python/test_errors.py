"""Settings, tracks and passes that are refused, with the library's texts."""

import pytest

import tavrix


def test_exception_classes_are_one_family_with_the_natural_python_bases():
    assert issubclass(tavrix.IllegalArgumentError, tavrix.Error)
    assert issubclass(tavrix.IllegalArgumentError, ValueError)
    assert issubclass(tavrix.BadIndexError, tavrix.IllegalArgumentError)
    assert issubclass(tavrix.BadIndexError, IndexError)
    for name in ("UnsupportedOperationError", "NullPointerError", "MatrixError"):
        cls = getattr(tavrix, name)
        assert issubclass(cls, tavrix.Error) and not issubclass(cls, ValueError)


@pytest.mark.parametrize("kwargs, text", [
    ({"behavior": "retry"}, 'unknown failure behavior "retry" (expected one of default, stop, '
                            "predict, predictAndKey, dontPredict, useExistingCurve)"),
    ({"tolerance": 1.5}, "tolerance: must lie between -1 and 1, got 1.5"),
    ({"tolerance": float("nan")}, "tolerance: must lie between -1 and 1, got nan"),
])
def test_bad_settings_are_refused(kwargs, text):
    with pytest.raises(tavrix.IllegalArgumentError) as e:
        tavrix.Tracker(64, 48, **kwargs)
    assert str(e.value) == text


def test_zero_sized_frames_are_refused():
    with pytest.raises(ValueError, match="^the frame size must be positive, got 0x48$"):
        tavrix.Tracker(0, 48)


@pytest.mark.parametrize("x, y, kwargs, text", [
    (64.0, 10, {}, 'track "1" at 64,10 lies outside the frame (0, 0, 64, 48)'),
    (-0.25, 10, {}, 'track "1" at -0.25,10 lies outside the frame (0, 0, 64, 48)'),
    (10, 10, {"pattern": (21, 21), "search": (21, 40)},
     'track "1": the search area 21x40 must be larger than the pattern 21x21'),
    (10, 10, {"pattern": (0, 5)}, 'track "1": sizes must be positive, got pattern 0x5 and search 61x61'),
    (10, 10, {"color_mode": "alpha"}, 'unknown color mode "alpha" (expected one of red, green, '
                                      "blue, luminance, saturation, hue)"),
])
def test_bad_tracks_are_refused(x, y, kwargs, text):
    t = tavrix.Tracker(64, 48)
    with pytest.raises(tavrix.IllegalArgumentError) as e:
        t.add_track(x, y, **kwargs)
    assert str(e.value) == text
    assert t.names == []


def test_track_names_default_to_their_number_and_stay_unique():
    t = tavrix.Tracker(64, 48)
    assert t.add_track(10, 10) == 0
    assert t.add_track(20, 20, name="corner") == 1
    assert t.add_track(30, 30) == 2
    assert t.names == ["1", "corner", "3"]
    with pytest.raises(ValueError, match='^the track name "3" is already taken$'):
        t.add_track(5, 5, name="3")


def test_passes_follow_their_protocol():
    import numpy as np
    t = tavrix.Tracker(64, 48)
    with pytest.raises(ValueError, match="^no tracks: add a track before tracking$"):
        t.start()
    t.add_track(32, 24, pattern=(9, 9), search=(17, 17))
    t.start(5)
    with pytest.raises(ValueError, match="^cannot add a track while a pass is open: finish it first$"):
        t.add_track(10, 10)
    with pytest.raises(ValueError, match="^cannot start a pass while a pass is open: finish it first$"):
        t.track(np.zeros((2, 48, 64), np.float32))
    t.finish()
    assert not t.is_open and t.frames.size == 0 and t.positions.shape == (1, 0, 2)
