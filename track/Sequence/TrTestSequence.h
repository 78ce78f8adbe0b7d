#pragma once

#include "image/GenRect.h"
#include "image/Image.h"
#include "track/Sequence/TrSequence.h"

/// A synthetic clip of frames 1 to 30: a clipped saddle of intensities in the
/// red channel of an RGB image, rotating by `da` degrees a frame about a
/// centre that starts mid-frame and steps by (dx, dy), the step turning by
/// `dth` degrees a frame. Frames before the first rotate the other way and
/// leave the centre in place. Any frame time renders; times are rounded with
/// roundf.
class TrTestSequence : public TrSequence {
public:
    TrTestSequence() = default;
    ~TrTestSequence() override = default;

    /// 1.
    int getFirstFrame() override;
    /// 30.
    int getLastFrame() override;
    /// (0, 0, width, height) for every frame.
    Orvane::GenRect<int> getBounds(float t) override;
    /// A new RGB image of frame `t`, bounds (0, 0, width, height).
    Orvane::Image getFrame(float t) override;

    /// A negative width throws IllegalArgumentException
    /// "TrTestSequence: negative width"; 0 gives frames without pixels.
    virtual void setWidth(int w);
    virtual int getWidth() { return width; }
    /// A negative height throws IllegalArgumentException
    /// "TrTestSequence: negative height"; 0 gives frames without pixels.
    virtual void setHeight(int h);
    virtual int getHeight() { return height; }
    /// The first step of the centre, pixels.
    virtual void setDX(double v) { dx = v; }
    virtual double getDX() { return dx; }
    virtual void setDY(double v) { dy = v; }
    virtual double getDY() { return dy; }
    /// The turn of the centre's step per frame, degrees.
    virtual void setDTh(double v) { dth = v; }
    virtual double getDTh() { return dth; }
    /// The pattern's rotation per frame, degrees.
    virtual void setDA(double v) { da = v; }
    virtual double getDA() { return da; }

private:
    int width = 320;
    int height = 240;
    double dx = 2.0;
    double dy = -2.0;
    double dth = 5.0;
    double da = 10.0;
};
