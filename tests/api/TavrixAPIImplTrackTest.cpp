#include "api/TavrixAPIImpl.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <vector>

using Orvane::GenPoint;
using Orvane::GenRect;

namespace {

class TavrixAPIImplTracks : public ::testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 3; ++i)
            api.addNewTrack(10.0 * i, -5.0 * i);
    }
    TavrixAPIImpl api;
};

struct Flat {
    double top = NAN, left = NAN, width = NAN, height = NAN;
};

} // namespace

// --- rects ------------------------------------------------------------------

TEST_F(TavrixAPIImplTracks, PatternRectIsStoredCentredOnThePoint) {
    api.setPatternRect(0, 8.5f, 100, 40, 10, 6);
    EXPECT_EQ(GenRect<double>(-5, -3, 10, 6), api.getPatternRect(0, 0));
    EXPECT_EQ(GenRect<double>(-5, -3, 10, 6), api.getPatternRect(0, -30));
}

TEST_F(TavrixAPIImplTracks, PatternRectKeepsTheRoundingOfItsCentring) {
    // Centring 0.1 + 0.2 leaves a width one rounding away from 0.2: the
    // size is taken through the centre, not copied.
    api.setPatternRect(0, 0, 1.0, 0.1, 0.2, 0.5);
    const GenRect<double> r = api.getPatternRect(0, 0);
    EXPECT_NE(0.2, r.w);
    EXPECT_NEAR(0.2, r.w, 2 * DBL_EPSILON * 0.2);
    EXPECT_NEAR(-0.5 * r.w, r.x, 2 * DBL_EPSILON * 0.2);
    EXPECT_EQ(-0.25, r.y);
    EXPECT_EQ(0.5, r.h);
}

TEST_F(TavrixAPIImplTracks, SettingAPatternRectDropsItsKeys) {
    TrTrack* t = api.getTrack(1);
    t->patternRect().setValue(4, GenRect<double>(-1, -1, 2, 2));
    t->patternRect().setValue(9, GenRect<double>(-3, -3, 6, 6));
    api.setPatternRect(1, 4, 4, -4, 8, 8);
    EXPECT_EQ(0, t->patternRect().getKeyCount());
    EXPECT_EQ(GenRect<double>(-4, -4, 8, 8), api.getPatternRect(1, 9));
}

TEST_F(TavrixAPIImplTracks, SearchRectIsStoredWhereItLies) {
    api.setSearchRect(0, 0, 10, -10, 20, 20);
    EXPECT_EQ(GenRect<double>(-10, -10, 20, 20), api.getSearchRect(0, 0));
    api.setSearchRect(2, 0, 30, 5, 10, 4);
    EXPECT_EQ(GenRect<double>(5, 26, 10, 4), api.getSearchRect(2, 7));
}

TEST_F(TavrixAPIImplTracks, SearchedRectIsReadPerFrameAndNullOutputsAreSkipped) {
    api.setSearchedRect(1, 4.9f, GenRect<double>(-2, -4, 12, 8));
    api.setSearchedRect(1, 8.0f, GenRect<double>(-6, -8, 20, 16));
    EXPECT_TRUE(api.getTrack(1)->searchedRect().isKeyed(4));
    Flat f;
    api.getSearchedRect(1, 4.2f, &f.top, &f.left, &f.width, &f.height);
    EXPECT_EQ(4.0, f.top);
    EXPECT_EQ(-2.0, f.left);
    EXPECT_EQ(12.0, f.width);
    EXPECT_EQ(8.0, f.height);
    // Frame 6, halfway.
    Flat g;
    api.getSearchedRect(1, 6.99f, nullptr, &g.left, nullptr, &g.height);
    EXPECT_EQ(-4.0, g.left);
    EXPECT_EQ(12.0, g.height);
    EXPECT_TRUE(std::isnan(g.top));
}

// --- switches and settings --------------------------------------------------

TEST_F(TavrixAPIImplTracks, FailureBehaviorCodesRoundTripAndOthersAreIgnored) {
    EXPECT_EQ(1, api.getTrackFailureBehavior(0)) << "a new track's empty behaviour";
    const char* names[] = {"default",       "stop",        "predict",
                           "predictAndKey", "dontPredict", "useExistingCurve"};
    for (int code = 0; code < 6; ++code) {
        api.setTrackFailureBehavior(0, code);
        EXPECT_EQ(code, api.getTrackFailureBehavior(0));
        EXPECT_EQ(dstring(names[code]), api.getFailureBehavior(0));
    }
    api.setTrackFailureBehavior(0, 3);
    api.setTrackFailureBehavior(0, 6);
    api.setTrackFailureBehavior(0, -1);
    api.setTrackFailureBehavior(42, 7);
    EXPECT_EQ(3, api.getTrackFailureBehavior(0));
    EXPECT_EQ(1, api.getTrackFailureBehavior(1)) << "other tracks untouched";

    api.setFailureBehavior(2, "Predict");
    EXPECT_EQ(1, api.getTrackFailureBehavior(2)) << "names match exactly";
}

TEST_F(TavrixAPIImplTracks, ColourModeIsAlwaysLuminanceToTheDriver) {
    api.setColorMode(0, "saturation");
    EXPECT_EQ(dstring("saturation"), api.getTrack(0)->getColorMode());
    EXPECT_EQ(dstring("luminance"), api.getColorMode(0));
    EXPECT_EQ(dstring("luminance"), api.getColorMode(99)) << "no track is looked up";
}

// --- values over time -------------------------------------------------------

TEST_F(TavrixAPIImplTracks, PositionsInterpolateBetweenTruncatedKeys) {
    api.setPosition(0, 2.9f, 1.5, -2.5);
    api.setPosition(0, -0.7f, 0.5, 0.5);
    EXPECT_TRUE(api.getTrack(0)->position().isKeyed(0));
    EXPECT_TRUE(api.getTrack(0)->position().isKeyed(2));
    EXPECT_EQ(2, api.getTrack(0)->position().getKeyCount());
    double x = 0, y = 0;
    api.getPosition(0, 1.7f, &x, &y);
    EXPECT_EQ(1.0, x);
    EXPECT_EQ(-1.0, y);
}

TEST_F(TavrixAPIImplTracks, PositionIsTheUsersOnlyWithAnEqualUserKey) {
    api.setPosition(1, 3, 4.0, 5.0);
    EXPECT_FALSE(api.isPositionKeyedByUser(1, 3)) << "no user key";
    api.getTrack(1)->userPosition().setValue(3, GenPoint<double>(4.0, 5.0));
    EXPECT_TRUE(api.isPositionKeyedByUser(1, 3.6f));
    api.setPosition(1, 3, 4.0, 5.0 + 1e-12);
    EXPECT_FALSE(api.isPositionKeyedByUser(1, 3)) << "equality is exact";
    api.getTrack(1)->userPosition().setValue(6, GenPoint<double>(1.0, 1.0));
    EXPECT_FALSE(api.isPositionKeyedByUser(1, 6)) << "a user key without a position key";
}

TEST_F(TavrixAPIImplTracks, ScoreIsTheQualityAtTheFrame) {
    api.setQuality(2, 4.5f, 0.9);
    api.setQuality(2, 8.0f, 0.7);
    EXPECT_TRUE(api.hasQualityKeyframe(2, 4.0f));
    EXPECT_FALSE(api.hasQualityKeyframe(2, 5.0f));
    double score = 0;
    api.getScore(2, 6.0f, &score);
    EXPECT_NEAR(0.8, score, 4 * DBL_EPSILON);
    api.getScore(2, 4.99f, &score);
    EXPECT_EQ(0.9, score);
}

TEST_F(TavrixAPIImplTracks, TransformPartsAreWidenedAndScaleIsWrittenTwice) {
    const AffineTransform t(1.5f, -2.25f, 0.1f, 1.25f, 0.9f, 1.1f);
    api.setTransform(0, 3.2f, t);
    double a = 0, b = 0;
    api.getTranslation(0, 3, &a, &b);
    EXPECT_EQ(1.5, a);
    EXPECT_EQ(-2.25, b);
    api.getRotation(0, 3, &a);
    EXPECT_EQ(double(0.1f), a);
    a = b = 0;
    api.getScale(0, 3, &a, &b);
    EXPECT_EQ(1.25, a);
    EXPECT_EQ(1.25, b);
    api.getStretch(0, 3, &a, &b);
    EXPECT_EQ(double(0.9f), a);
    EXPECT_EQ(double(1.1f), b);
    b = -1;
    api.getScale(0, 3, nullptr, &b);
    EXPECT_EQ(1.25, b);

    // An untouched track reads the identity.
    api.getScale(1, 0, &a, &b);
    EXPECT_EQ(1.0, a);
    EXPECT_EQ(1.0, b);
    api.getStretch(1, 0, &a, &b);
    EXPECT_EQ(1.0, a);
    EXPECT_EQ(1.0, b);
}

// --- index checks -----------------------------------------------------------

TEST_F(TavrixAPIImplTracks, EveryPerTrackOperationChecksTheIndex) {
    double d = 0;
    const std::vector<std::function<void(int)>> calls = {
        [&](int i) { api.setPatternRect(i, 0, 1, 0, 1, 1); },
        [&](int i) { api.getPatternRect(i, 0, &d, &d, &d, &d); },
        [&](int i) { api.setSearchRect(i, 0, 1, 0, 1, 1); },
        [&](int i) { api.getSearchRect(i, 0, nullptr, nullptr, nullptr, nullptr); },
        [&](int i) { api.getSearchedRect(i, 0, &d, &d, &d, &d); },
        [&](int i) { api.getFailureTolerance(i); },
        [&](int i) { api.setFailureTolerance(i, 0.5); },
        [&](int i) { api.getTrackFailureBehavior(i); },
        [&](int i) { api.setTrackFailureBehavior(i, 2); },
        [&](int i) { api.getPosition(i, 0, nullptr, nullptr); },
        [&](int i) { api.setPosition(i, 0, 1, 1); },
        [&](int i) { api.getScore(i, 0, &d); },
        [&](int i) { api.getTranslation(i, 0, nullptr, nullptr); },
        [&](int i) { api.getRotation(i, 0, nullptr); },
        [&](int i) { api.getScale(i, 0, &d, &d); },
        [&](int i) { api.getStretch(i, 0, &d, &d); },
        [&](int i) { api.hasPositionKeyframe(i, 0); },
        [&](int i) { api.hasQualityKeyframe(i, 0); },
        [&](int i) { api.setColorMode(i, "red"); },
        [&](int i) { api.isPositionKeyedByUser(i, 0); },
    };
    for (std::size_t k = 0; k < calls.size(); ++k) {
        SCOPED_TRACE(k);
        expectThrows<BadIndexException>([&] { calls[k](7); }, "Array::operator[]");
        expectThrows<BadIndexException>([&] { calls[k](-1); }, "Array::operator[]");
        calls[k](2);
    }
}

TEST_F(TavrixAPIImplTracks, NullScoreReadsNothingSoAnyIndexPasses) {
    api.getScore(7, 0, nullptr);
    api.getScore(-3, 0, nullptr);
    expectThrows<BadIndexException>([&] { api.getPosition(7, 0, nullptr, nullptr); },
                                    "Array::operator[]");
}
