#include "image/Format.h"
#include "image/Image.h"
#include "image/XformBicubic.h"
#include "krovel/AffineProblem.h"
#include "krovel/AffineTransform.h"

#include "support/PixelProbe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;
using Orvane::Interpolation;

namespace {

// Textured patterns, evaluated exactly at every pixel centre so that no
// interpolant of the tracker's own renders them: waves of 4 to 11 pixels in
// several directions, as fine as the detail a 21 x 21 pattern holds, and a
// finer pair of about 4 pixels.
double texture(double u, double v, bool finer) {
    if (finer)
        return std::sin(1.6 * u + 0.3 * v) + 0.8 * std::sin(-0.4 * u + 1.5 * v + 1);
    return std::sin(0.61 * u + 0.23 * v) + 0.8 * std::sin(-0.37 * u + 0.93 * v + 1) +
           0.6 * std::sin(1.21 * u - 0.52 * v + 2) + 0.5 * std::sin(0.35 * u + 1.37 * v + 0.5);
}

// The texture over `b`, moved right and down by `shift` pixels.
Image rendered(const GenRect<int>& b, double shift, bool finer) {
    Image img(b, Orvane::Format("l", Orvane::FLOAT, false));
    testsupport::forEachSample(img, [&](int x, int y, int) {
        testsupport::sampleAt<float>(img, x, y, 0) =
            float(texture(x + 0.5 - shift, y + 0.5 - shift, finer));
    });
    return img;
}

void pose(AffineProblem& p, double shift, bool finer, bool scale, Interpolation how) {
    p.setPattern(rendered(GenRect<int>(-10, -10, 21, 21), 0, finer));
    p.setSearch(rendered(GenRect<int>(-16, -16, 33, 33), shift, finer));
    p.setAnchor(GenPoint<float>(0.5f, 0.5f));
    p.setCentre(GenPoint<float>(0.5f, 0.5f));
    p.setUseRotation(false);
    p.setUseScale(scale);
    p.setUseStretch(false);
    p.setCoarseToFine(false);
    p.setInterpolation(how);
}

struct Errors {
    // The largest translation error over the phases, in pixels, and the
    // largest departure of a free scale from 1.
    double translation = 0;
    double scale = 0;
};

// The pattern at phase 0 found in search images moved by 0, 0.1, ... 0.9
// pixels along both axes, solved at full size from the identity.
Errors overPhases(bool finer, bool scale, Interpolation how) {
    Errors e;
    for (int k = 0; k < 10; ++k) {
        const double shift = 0.1 * k;
        AffineProblem p;
        pose(p, shift, finer, scale, how);
        p.execute();
        const AffineTransform& t = p.getXform();
        e.translation = std::max({e.translation, std::fabs(t.tx - shift), std::fabs(t.ty - shift)});
        e.scale = std::max(e.scale, std::fabs(t.sc - 1.0));
    }
    return e;
}

} // namespace

TEST(AffineProblemInterpolation, BSplineLessensThePullOfTheWarpOnTranslation) {
    for (bool finer : {false, true}) {
        const double bilinear = overPhases(finer, false, Interpolation::Bilinear).translation;
        const double spline = overPhases(finer, false, Interpolation::BSpline).translation;
        // The rig sees the bilinear pull, or it could not judge the cure.
        EXPECT_GT(bilinear, finer ? 0.03 : 0.006);
        EXPECT_LT(spline, finer ? 0.01 : 0.003);
        EXPECT_LT(spline, bilinear / 4) << (finer ? "finer" : "fine");
    }
}

TEST(AffineProblemInterpolation, BSplineKeepsAFreeScaleAtOne) {
    const Errors spline = overPhases(false, true, Interpolation::BSpline);
    EXPECT_LT(spline.translation, 0.003);
    // A scale off by s moves the pattern's corners by 10 s pixels.
    EXPECT_LT(spline.scale, 0.003 / 10);
}

TEST(AffineProblemInterpolation, TheSolveWarpsAsTheImageWarpOfItsKind) {
    // The solve's own rows (setX) against project(), which goes through the
    // image-level warp of the same kind, at a start with every parameter off
    // its identity value.
    for (Interpolation how :
         {Interpolation::Bilinear, Interpolation::Bicubic, Interpolation::BSpline}) {
        AffineProblem p;
        pose(p, 0.3, false, true, how);
        p.setUseRotation(true);
        p.setUseStretch(true);
        const AffineTransform start(0.27f, 0.31f, 0.02f, 1.01f, 0.99f, 1.02f);
        KrGenVector<float> x;
        p.pack(x, start);
        p.setX(x);
        KrGenVector<float> solved;
        p.evalY(solved);

        Image warped(p.getPattern().getBounds(), p.getSearch().getFormat());
        Image search = p.getSearch();
        p.project(x, search, warped);
        KrGenVector<float> expected;
        flattenImage(warped, expected);
        unbias(expected);

        ASSERT_EQ(expected.length(), solved.length());
        int differing = 0;
        for (int i = 0; i < solved.length(); ++i)
            differing += solved(i) != expected(i);
        EXPECT_EQ(0, differing) << int(how);
    }
}
