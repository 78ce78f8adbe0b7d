"""Clips with known motion for the module's tests, made here with numpy."""

import numpy as np
import pytest


def texture(x, y, seed=7):
    """A smooth, non-repeating texture in [0.1, 0.9] at pixel coordinates:
    a sum of plane waves of random direction, wavelength 7 to 23 pixels and
    phase, so that any 21x21 window has structure in both directions."""
    rng = np.random.default_rng(seed)
    value = np.zeros(np.broadcast(x, y).shape)
    for _ in range(9):
        angle = rng.uniform(0, np.pi)
        wavelength = rng.uniform(7, 23)
        phase = rng.uniform(0, 2 * np.pi)
        value += np.cos(2 * np.pi * (x * np.cos(angle) + y * np.sin(angle)) / wavelength + phase)
    return 0.5 + 0.4 * value / 9 * 3 / np.abs(value / 9 * 3).max()


class Clip:
    """`count` frames of `width` x `height` pixels in which the texture moves
    by `velocity` pixels a frame; frame k shows the texture shifted by
    k * velocity, sampled at pixel centres."""

    def __init__(self, width=96, height=80, count=7, velocity=(0.37, -0.23), seed=7):
        self.width, self.height, self.count = width, height, count
        self.velocity = np.asarray(velocity, dtype=float)
        y, x = np.mgrid[0:height, 0:width] + 0.5
        self.planes = np.stack([
            texture(x - k * self.velocity[0], y - k * self.velocity[1], seed)
            for k in range(count)
        ])

    def truth(self, point):
        """Where a feature at `point` in frame 0 is in every frame."""
        k = np.arange(self.count)[:, None]
        return np.asarray(point, dtype=float)[None, :] + k * self.velocity[None, :]

    def frames(self, dtype=np.float32, channels=0):
        """N x H x W (channels 0) or N x H x W x C frames of `dtype`, the same
        plane in every channel; integer types span their range."""
        planes = self.planes
        if np.issubdtype(dtype, np.integer):
            planes = np.round(planes * np.iinfo(dtype).max)
        planes = planes.astype(dtype)
        if channels == 0:
            return planes
        return np.repeat(planes[..., None], channels, axis=3)


@pytest.fixture
def clip():
    return Clip()
