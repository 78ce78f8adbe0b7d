// The driver on content that strains its numbers: flat and saturated
// patterns, one grey level of contrast, patterns at the frame's edges and
// corners, tiny patterns, search areas larger than the frame or empty after
// rounding, NaN and Inf pixels, samples outside 0..1. Whatever the content,
// every step either tracks, predicts or stops the track, and nothing it
// keys or keeps is NaN or Inf.
//
// The scores a user sees are the refinement's, within [-1, 1] with either
// kind of window sums. The matcher's own peak, which picks where the
// refinement starts, is another matter with the designed float sums: on
// these cases it reached 1093 (float samples from -5 to 20), 19.2 (a search
// area larger than the frame, whose outside is flat), 3.57 (16-bit samples
// over the whole range) and 1.0008 (a 3x3 pattern); double sums kept it
// below 1.0003. On one grey level of contrast, and on bright, low-contrast
// content, the float correlation surface itself loses the contrast and the
// peak drops to about 0.16 with either sums; the refinement still finds
// the content.

#include "image/DatatypeSwitch.h"
#include "track/DoubleImageSum.h"
#include "track/Matcher.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"
#include "track/TrackImages.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

using namespace trackimages;

namespace {

const int kWidth = 96;
const int kHeight = 72;
const int kFrames = 6;
// The content's motion a frame, in pixels.
const double kStepX = 0.7;
const double kStepY = -0.4;

// A sample of the frame at pixel centre (x, y) of frame f, in units where
// 0..1 spans an integer datatype's range; float frames take it as it is.
using Content = std::function<double(double x, double y, int f)>;

// RGB frames 1 .. kFrames of one datatype, grey, rendered from `content`.
class ContentSequence : public TrSequence {
public:
    ContentSequence(int datatype, Content content)
        : datatype(datatype), content(std::move(content)) {}
    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return kFrames; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, kWidth, kHeight); }
    Image getFrame(float t) override {
        const int f = int(std::lround(t));
        Image img(getBounds(t), Format("rgb", datatype, false));
        Orvane::switchDatatype(datatype, "datatype", [&](auto s) {
            using T = typename decltype(s)::type;
            for (int y = 0; y < kHeight; ++y)
                for (int x = 0; x < kWidth; ++x) {
                    const T v = sample<T>(content(x + 0.5, y + 0.5, f));
                    T* p = at<T>(img, x, y);
                    p[0] = p[1] = p[2] = v;
                }
        });
        return img;
    }

private:
    template <class T> static T sample(double v) {
        if (std::is_floating_point_v<T>)
            return T(v);
        const double top = double(std::numeric_limits<T>::max());
        return T(std::lround(std::min(std::max(v, 0.0), 1.0) * top));
    }

    int datatype;
    Content content;
};

// A texture moving by (kStepX, kStepY) a frame, scaled about its mean.
Content moving(double mean, double swing) {
    return [=](double x, double y, int f) {
        static const Texture texture(5);
        return mean + swing * (texture(x - kStepX * f, y - kStepY * f) - 0.5) / 0.18;
    };
}

bool finite(const AffineTransform& t) {
    for (double v : {t.tx, t.ty, t.ro, t.sc, t.st0, t.st1})
        if (!std::isfinite(v))
            return false;
    return true;
}

// What became of one track over the pass.
struct Outcome {
    int tracked = 0;   // frames after the first keyed above the tolerance
    int predicted = 0; // frames after the first kept without a passing match
    int lostAt = 0;    // the frame the track stopped at, 0 while it goes on
    std::string reason;
    double highest = -INFINITY; // the highest score met
    // The highest peaks of the matcher on the steps' own pattern and search
    // images, with float and with double window sums.
    double peakFloat = -INFINITY;
    double peakDouble = -INFINITY;
};

// The matcher's peak for the step's pattern and search images.
double peakOf(const TrTrackInfo& info, bool precise) {
    Matcher m;
    if (precise)
        m.setImageSumIntf(new DoubleImageSum());
    m.setPattern(info.pattern);
    m.setSearch(info.search);
    GenPoint<float> offset;
    double score = NAN;
    m.match(offset, score);
    return score;
}

struct Stress {
    const char* name;
    int datatype;
    Content content;
    int pattern;
    double search;
    std::vector<GenPoint<double>> at;
};

const double kTolerance = 0.8;

// The nine places a track is tried: the centre, and the middle of every
// edge and every corner on the frame's outermost pixel centres.
std::vector<GenPoint<double>> everywhere() {
    std::vector<GenPoint<double>> at;
    for (double y : {0.5, kHeight / 2.0, kHeight - 0.5})
        for (double x : {0.5, kWidth / 2.0, kWidth - 0.5})
            at.push_back({x, y});
    return at;
}

// Runs `s` with one behaviour and one kind of sums, checking every step.
std::vector<Outcome> runStress(const Stress& s, const char* behavior, bool precise) {
    TrShotImpl shot;
    shot.setSequence(new ContentSequence(s.datatype, s.content));
    for (const GenPoint<double>& p : s.at) {
        shot.addTrack(p.x, p.y);
        const int k = shot.getTrackCount() - 1;
        shot.setPatternRect(
            k, GenRect<double>(-s.pattern / 2.0, -s.pattern / 2.0, s.pattern, s.pattern));
        shot.setSearchRect(k, GenRect<double>(-s.search / 2, -s.search / 2, s.search, s.search));
    }
    shot.setFailureTolerance(0, kTolerance);
    shot.setFailureBehavior(0, behavior);
    TrFollow follow;
    follow.setShot(&shot);
    follow.setPreciseSums(precise);
    std::vector<Outcome> out(s.at.size());
    follow.begin(1, 1);
    for (int f = 1; f <= kFrames; ++f)
        for (size_t i = 0; i < s.at.size(); ++i) {
            Outcome& o = out[i];
            if (o.lostAt)
                continue;
            SCOPED_TRACE(std::string(s.name) + " " + behavior + (precise ? " double" : " float") +
                         " sums, track at " + std::to_string(s.at[i].x) + "," +
                         std::to_string(s.at[i].y) + ", frame " + std::to_string(f));
            const int k = int(i);
            bool going = false;
            try {
                going = follow.track(k, f, 1);
            } catch (const Exception& e) {
                o.reason = e.getMessage().str();
                EXPECT_NE("", o.reason);
            }
            if (!going) {
                if (o.reason.empty() && follow.getStopReason(k))
                    o.reason = follow.getStopReason(k);
                EXPECT_NE("", o.reason) << "stopped without a reason";
                o.lostAt = f;
                continue;
            }
            EXPECT_EQ(nullptr, follow.getStopReason(k));
            const TrTrackInfo& info = follow.getInfo(k);
            EXPECT_TRUE(std::isfinite(info.position.x) && std::isfinite(info.position.y));
            EXPECT_TRUE(std::isfinite(info.score)) << info.score;
            EXPECT_TRUE(finite(info.transform));
            if (shot.isPositionKeyed(k, f)) {
                const GenPoint<double> p = shot.getPosition(k, f);
                EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.y));
                EXPECT_TRUE(finite(shot.getTransform(k, f)));
            }
            for (bool sums : {false, true}) {
                const double peak = peakOf(info, sums);
                double& highest = sums ? o.peakDouble : o.peakFloat;
                highest = std::isfinite(peak) ? std::max(highest, peak) : highest;
            }
            const bool scored = shot.isQualityKeyed(k, f);
            const double score = scored ? shot.getQuality(k, f) : info.score;
            o.highest = std::max(o.highest, score);
            // The refinement's quality is a float correlation.
            EXPECT_LE(std::fabs(score), 1 + 4 * FLT_EPSILON) << score;
            if (f > 1)
                (scored && score >= kTolerance ? o.tracked : o.predicted) += 1;
        }
    return out;
}

// The highest score that was keyed or kept, and the matcher's highest peaks
// with float and double sums, over every behaviour and both kinds of sums.
struct Measured {
    double score = -INFINITY;
    double peakFloat = -INFINITY;
    double peakDouble = -INFINITY;
};

Measured runAll(const Stress& s, const std::function<void(const std::vector<Outcome>&)>& judge) {
    Measured m;
    for (const char* behavior : {"default", "predictAndKey", "stop"})
        for (bool precise : {false, true}) {
            const std::vector<Outcome> out = runStress(s, behavior, precise);
            for (const Outcome& o : out) {
                m.score = std::max(m.score, o.highest);
                m.peakFloat = std::max(m.peakFloat, o.peakFloat);
                m.peakDouble = std::max(m.peakDouble, o.peakDouble);
            }
            if (precise && std::string(behavior) == "default")
                judge(out);
        }
    std::printf("%-28s highest score %.6f; matcher peak with float sums %.6f, double %.6f\n",
                s.name, m.score, m.peakFloat, m.peakDouble);
    // Double sums leave the float correlation surface, whose rounding a
    // window of little contrast for its mean magnifies: 3e-4 above 1 was
    // measured on a 3x3 pattern.
    EXPECT_LE(m.peakDouble, 1 + 1e-3) << s.name;
    return m;
}

} // namespace

// Flat content has no pattern to find: no match may pass, with either sums.
// The refinement has nothing to solve and raises KrMatrixError, which stops
// the track at its first step.
TEST(TrStress, FlatAndSaturatedPatternsNeverPass) {
    const std::pair<const char*, double> flats[] = {
        {"flat grey", 0.5}, {"saturated white", 1.0}, {"black", 0.0}};
    for (const auto& flat : flats)
        for (int datatype : {Orvane::UB1, Orvane::UB2, Orvane::FLOAT}) {
            const double level = flat.second;
            const Stress s{flat.first, datatype, [level](double, double, int) { return level; },
                           21,         41,       everywhere()};
            runAll(s, [&](const std::vector<Outcome>& out) {
                for (const Outcome& o : out) {
                    EXPECT_EQ(0, o.tracked) << s.name << " " << datatype;
                    EXPECT_EQ(1, o.lostAt) << s.name << " " << datatype;
                    EXPECT_EQ("the refinement failed, as on flat or non-finite pixels", o.reason);
                }
            });
        }
}

// One grey level of contrast in 8 bits, and bright, low-contrast content:
// the track still follows it.
TEST(TrStress, LowContrastStaysWithinOneWithDoubleSums) {
    const Stress cases[] = {
        {"one grey level, 8 bits",
         Orvane::UB1,
         [](double x, double y, int f) {
             return (128 + (moving(0.5, 0.2)(x, y, f) > 0.5 ? 1 : 0)) / 255.0;
         },
         21,
         41,
         {{kWidth / 2.0, kHeight / 2.0}}},
        {"bright low contrast, float",
         Orvane::FLOAT,
         moving(0.98, 0.004),
         21,
         41,
         {{kWidth / 2.0, kHeight / 2.0}}},
        {"bright low contrast, 16 bits",
         Orvane::UB2,
         moving(0.98, 0.004),
         21,
         41,
         {{kWidth / 2.0, kHeight / 2.0}}},
    };
    for (const Stress& s : cases) {
        runAll(s, [&](const std::vector<Outcome>& out) {
            EXPECT_EQ(0, out[0].lostAt) << s.name << ": " << out[0].reason;
            EXPECT_GT(out[0].tracked, 0) << s.name;
        });
    }
}

// Samples outside 0..1 in float, the whole 16-bit range, and search areas
// larger than the frame: the centre track follows the content.
TEST(TrStress, WideRangesAndLargeSearchAreasFollowTheContent) {
    const Stress cases[] = {
        {"float -5..20", Orvane::FLOAT, moving(7.5, 12.5), 21, 41, everywhere()},
        {"16 bits, full range", Orvane::UB2, moving(0.5, 0.5), 21, 41, everywhere()},
        {"search larger than frame", Orvane::UB1, moving(0.5, 0.2), 21, 150, everywhere()},
        {"3x3 pattern", Orvane::UB1, moving(0.5, 0.2), 3, 9, everywhere()},
    };
    for (const Stress& s : cases)
        runAll(s, [&](const std::vector<Outcome>& out) {
            const Outcome& centre = out[4];
            EXPECT_EQ(0, centre.lostAt) << s.name << ": " << centre.reason;
            EXPECT_GT(centre.tracked, 0) << s.name;
        });
}

// NaN and Inf in the pixels poison every window sum and every residual that
// covers them: the refinement fails and the track stops, leaving nothing.
TEST(TrStress, NanAndInfPixelsStopTheTrackAndLeaveNoNan) {
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = INFINITY;
    const Stress cases[] = {
        {"NaN every 7th pixel", Orvane::FLOAT,
         [=](double x, double y, int f) {
             return (int(x) + 3 * int(y)) % 7 == 0 ? nan : moving(0.5, 0.2)(x, y, f);
         },
         21, 41, everywhere()},
        {"+-Inf specks", Orvane::FLOAT,
         [=](double x, double y, int f) {
             const int k = (int(x) * 5 + int(y) * 11 + f) % 97;
             return k == 0 ? inf : k == 1 ? -inf : moving(0.5, 0.2)(x, y, f);
         },
         21, 41, everywhere()},
        {"all NaN", Orvane::FLOAT, [=](double, double, int) { return nan; }, 21, 41, everywhere()},
    };
    for (const Stress& s : cases)
        runAll(s, [&](const std::vector<Outcome>& out) {
            for (const Outcome& o : out)
                EXPECT_EQ(0, o.tracked) << s.name;
        });
}

// A search rectangle under a pixel wide rounds to nothing, or to less than
// the pattern where the rounding of its wider fetch region still takes a
// pixel: either way the track stops at its first step, and says why.
TEST(TrStress, ASearchAreaEmptyAfterRoundingStopsTheTrack) {
    for (const double search : {0.4, 0.0}) {
        const Stress s{"empty search", Orvane::UB1, moving(0.5, 0.2), 3, search, everywhere()};
        for (const Outcome& o : runStress(s, "default", false)) {
            EXPECT_EQ(1, o.lostAt) << search;
            EXPECT_TRUE(o.reason == "its search area holds no pixel of the frame" ||
                        o.reason == "NaiveCorrelator: search bounds must be larger than pattern "
                                    "bounds")
                << o.reason;
        }
    }
}
