#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "tools/accuracy/TrPhoto.h"
#include "tools/accuracy/TrRenderer.h"

#include <string>
#include <vector>

/// Frames with known truth: where each track really is in each frame.
struct TrAccuracyClip {
    /// The category the clip counts toward ("translation", ...).
    std::string category;
    std::vector<Orvane::Image> frames;
    /// truth[k][f]: track k's position in frame f (0-based), pixel centres
    /// at +0.5; frame 0 is where the track is placed.
    std::vector<std::vector<Orvane::GenPoint<double>>> truth;
    /// covered[k][f]: the occluder lies over track k's pattern in frame f;
    /// empty for clips without one.
    std::vector<std::vector<bool>> covered;
};

/// Sizes of the rendered clips: the benchmark renders large ones, the test
/// small ones.
struct TrSceneSize {
    int width = 320;
    int height = 240;
    int frames = 30;
    int tracks = 12;
    /// Bicubic samples per output pixel on each axis.
    int supersample = 4;
    /// Renders averaged into one motion-blurred frame.
    int blurSamples = 12;
    /// Pattern size: tracks sit this far apart, and the occluder counts as
    /// covering a track when it overlaps its pattern.
    int pattern = 21;
    /// Tracks stay this far inside the frame in every frame, so that the
    /// tracker's search region is whole.
    int margin = 46;
};

/// The categories of rendered motion, each a clip of one photograph.
class TrAccuracyScenes {
public:
    explicit TrAccuracyScenes(const TrSceneSize& size) : size(size) {}

    /// The camera drifts by a fraction of a pixel per frame.
    TrAccuracyClip translation(const TrPhoto& photo) const;
    /// The camera turns to `degrees` and zooms to `zoom` over the clip,
    /// drifting a little as it goes.
    TrAccuracyClip rotationZoom(const TrPhoto& photo, double degrees, double zoom) const;
    /// A drift as in translation, with Gaussian noise and the brightness
    /// and contrast changing over the clip.
    TrAccuracyClip noiseDrift(const TrPhoto& photo) const;
    /// A shaking camera, up to about 13 pixels a frame, each frame blurred
    /// over a half-open shutter.
    TrAccuracyClip fastBlur(const TrPhoto& photo) const;
    /// A slow drift, with a block cut from `texture` sweeping across the
    /// frame over the row that holds the most tracks, gone before the end.
    TrAccuracyClip occluder(const TrPhoto& photo, const TrPhoto& texture) const;

    const TrSceneSize& getSize() const { return size; }

private:
    /// Truth for the textured spots of frame 0 that stay inside the margin
    /// of every frame, as seen through `centres` (each frame's camera path,
    /// averaged over its shutter where it has one).
    void placeTracks(const std::vector<std::vector<TrWarp>>& centres, TrAccuracyClip& clip) const;
    bool insideMargin(const Orvane::GenPoint<double>& p) const;

    TrSceneSize size;
};
