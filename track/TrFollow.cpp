#include "track/TrFollow.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/Copy.h"
#include "image/Format.h"
#include "krovel/AffineProblem.h"
#include "krovel/AffineWarp.h"
#include "krovel/KrMatrixError.h"
#include "track/DoubleImageSum.h"
#include "track/Matcher.h"
#include "track/Reducer.h"
#include "track/TrFeedback.h"
#include "track/TrModes.h"
#include "track/TrTexture.h"

#include <cmath>
#include <memory>

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

int roundToInt(double v) {
    return int(std::lround(v));
}

// `rect` scaled by `g` about `p`, each edge rounded on its own so that
// abutting rectangles stay abutting.
GenRect<int> placeRect(const GenPoint<float>& p, const GenRect<double>& rect, double g) {
    const int x0 = roundToInt(p.x + rect.x * g);
    const int y0 = roundToInt(p.y + rect.y * g);
    const int x1 = roundToInt(p.x + rect.x * g + rect.w * g);
    const int y1 = roundToInt(p.y + rect.y * g + rect.h * g);
    return GenRect<int>(x0, y0, x1 - x0, y1 - y0);
}

bool hasPixels(const Image& img) {
    return img.exists() && !img.getBounds().isEmpty();
}

// A reducer may hand a one-channel source back as it is, which is then a
// view of the shot's frame; what outlives the step must own its pixels, and
// the warp and the refinement read float samples.
Image ownedFloat(const Image& reduced, const Image& source) {
    Image f = Orvane::convertToDatatype(reduced, Orvane::FLOAT);
    if (f == source)
        f = Orvane::copy(f);
    return f;
}

GenPoint<double> toDouble(const GenPoint<float>& p) {
    return GenPoint<double>(p.x, p.y);
}

// The behaviour named `name`; an unknown or null name throws.
TrBehavior behaviorNamed(const dstring& name) {
    const TrModeName<TrBehavior>* row = TrModes::findBehavior(name.data());
    if (row == nullptr)
        throw IllegalArgumentException(dstring("unknown failure behavior \"") + name + "\"");
    return row->mode;
}

const int kMaxPredicted = 5;
const double kVelocityWeight = 0.6;

// Moves the position by the velocity, keeping where the frame started.
void predict(TrStepState& s) {
    s.prevPosition = toDouble(s.position);
    s.predicted =
        GenPoint<double>(float(s.position.x + s.velocity.x), float(s.position.y + s.velocity.y));
    s.position = GenPoint<float>(float(s.predicted.x), float(s.predicted.y));
}

// Blends this frame's move, rounded to float, into the velocity; the weight
// is 0 until the first keyed frame, which thus takes its move whole.
void smoothVelocity(TrStepState& s) {
    const double w = s.velocityWeight;
    const float moveX = float(double(s.position.x) - s.prevPosition.x);
    const float moveY = float(double(s.position.y) - s.prevPosition.y);
    s.velocity =
        GenPoint<double>((1 - w) * moveX + w * s.velocity.x, (1 - w) * moveY + w * s.velocity.y);
}

// Extrapolates the shape for the next frame by the transform gain.
void predictShape(TrStepState& s) {
    const AffineTransform before = s.transform;
    s.transform = s.transform + (s.transform - s.prevTransform) * float(s.transformGain);
    s.prevTransform = before;
}

} // namespace

TrFollow::TrFollow() = default;

TrFollow::~TrFollow() = default;

void TrFollow::setShot(TrShot* s) {
    shot = s;
}

TrShot* TrFollow::getShot() const {
    return shot.get();
}

void TrFollow::setFeedback(TrFeedback* f) {
    feedback = f;
}

TrFeedback* TrFollow::getFeedback() const {
    return feedback;
}

TrShot* TrFollow::checkedShot() const {
    shot.checkobj();
    TrShot* s = shot.get();
    if (s == nullptr)
        throw NullPointerException("TrFollow: no shot");
    shot.getSafeObject()->checkobj();
    return s;
}

void TrFollow::begin(int frame, int stepArg) {
    beginFrame = frame;
    firstFrame = frame;
    step = stepArg;
    const int count = checkedShot()->getTrackCount();
    // Records are made in place: each owns a reducer and a matcher, so they
    // are moved, never copied.
    infos.clear();
    infos.resize(count);
    stopReasons.assign(size_t(count), nullptr);
    stepStatus.assign(size_t(count), TrStepStatus::Lost);
    searchCache.clear();
    setup();
}

void TrFollow::setup() {
    const float f = float(beginFrame);
    for (int i = 0; i < infos.getCount(); ++i) {
        TrTrackInfo& info = infos[i];
        const GenPoint<double> p = checkedShot()->getPosition(i, f);
        info.origin = GenPoint<float>(float(p.x), float(p.y));
        info.patternRect = checkedShot()->getPatternRect(i, f);
        info.patternBounds = placeRect(info.origin, info.patternRect, 1.0);
        info.position = info.origin;
        info.failCount = 0;
    }
    bool hasStart = false;
    bool hasEnd = false;
    checkedShot()->getTrackRange(hasStart, rangeStart, hasEnd, rangeEnd);
}

void TrFollow::end(int) {}

Reducer* TrFollow::setupReducer(const Image& pattern, const dstring& mode) {
    const TrModeName<TrColorMode>* row = TrModes::findColorMode(mode.data());
    if (row == nullptr)
        throw IllegalArgumentException(dstring("unsupported color mode \"") + mode + "\"");
    switch (row->mode) {
    case TrColorMode::Red:
        return new ChannelReducer('r');
    case TrColorMode::Green:
        return new ChannelReducer('g');
    case TrColorMode::Blue:
        return new ChannelReducer('b');
    case TrColorMode::Luminance:
        return new LuminanceReducer();
    case TrColorMode::Saturation:
        return new SaturationReducer();
    case TrColorMode::Hue:
        return PCAReducer::setupPCA(pattern);
    }
    return nullptr;
}

Image TrFollow::reduce(const Image& img, const dstring& mode) {
    std::unique_ptr<Reducer> reducer(setupReducer(img, mode));
    return reducer->reduce(img);
}

// Each step reads as its stages; only the attempts repeat.
bool TrFollow::track(int i, int frame, int direction) {
    TrTrackInfo& info = infos[i];
    stopReasons[size_t(i)] = nullptr;
    // Lost until the step gets through: a throw leaves it so.
    stepStatus[size_t(i)] = TrStepStatus::Lost;
    direction = direction < 0 ? -1 : 1;
    // A cancelled pass does no further work, whichever track comes next.
    if (feedback && feedback->isCancelled())
        return stopBecause(i, "the pass was cancelled");
    if (frame == beginFrame && !captureAtBegin(i, info))
        return false;
    if (info.matcher == nullptr || info.reducer == nullptr)
        return stopBecause(i, "its pattern lies outside the frame");

    const Verdict verdict = matchWithRetries(i, frame, info);
    if (verdict.stop)
        return false;
    if (verdict.keyed)
        key(i, frame, info);
    if (useAffine)
        predictShape(info);
    if (lagRefine && verdict.matched && std::abs(frame - info.patternFrame) >= 2 &&
        !refineLagged(i, info, direction))
        return stopBecause(i, "the lagged refinement failed, as on flat or non-finite pixels");
    stepStatus[size_t(i)] = verdict.matched ? TrStepStatus::Tracked : TrStepStatus::Coasted;
    if (!reportStep(i, frame)) {
        stepStatus[size_t(i)] = TrStepStatus::Lost;
        return false;
    }
    return true;
}

bool TrFollow::stopBecause(int i, const char* why) {
    stopReasons[size_t(i)] = why;
    return false;
}

bool TrFollow::captureAtBegin(int i, TrTrackInfo& info) {
    // A pattern outside the frame leaves nothing to match: the track stops
    // before anything is keyed.
    if (!capturePattern(i, info))
        return stopBecause(i, "its pattern lies outside the frame");
    // A flat pattern matches anywhere nearby and drifts; robust tracking
    // does not start it, and keys nothing for it.
    if (robust && !TrTexture::isEnough(info.pattern)) {
        info.matcher.reset();
        return stopBecause(i, "too little texture");
    }
    const float t = float(beginFrame);
    checkedShot()->setPosition(i, t, toDouble(info.origin));
    checkedShot()->setTransform(i, t, info.transform);
    return true;
}

bool TrFollow::capturePattern(int i, TrTrackInfo& info) {
    info.matcher.reset();
    info.reducer.reset();

    const Image raw = checkedShot()->getImage(float(beginFrame), info.patternBounds, true);
    if (!hasPixels(raw)) {
        info.pattern = Image();
        return false;
    }
    info.reducer.reset(setupReducer(raw, checkedShot()->getColorMode(i)));
    info.pattern = ownedFloat(info.reducer->reduce(raw), raw);
    info.matcher.reset(new Matcher());
    if (preciseSums)
        info.matcher->setImageSumIntf(new DoubleImageSum());
    info.matcher->setPattern(info.pattern);
    info.patternFrame = beginFrame;
    info.prevTransform = info.transform;
    KrGenMatrix<float> m;
    info.transform.getMatrix(m);
    info.matrix = m;
    return true;
}

// Every attempt starts from the state saved here; what a failed one leaves
// outside it, the search images and their cache entry, the next replaces.
// Only "default" retries, each time over a search area 10 % larger.
TrFollow::Verdict TrFollow::matchWithRetries(int i, int frame, TrTrackInfo& info) {
    const dstring behaviorName = checkedShot()->getFailureBehavior(i);
    const TrModeName<TrBehavior>* row = TrModes::findBehavior(behaviorName.data());
    const bool retries = row != nullptr && row->mode == TrBehavior::Default;
    const int maxAttempts = retries ? 3 : 1;
    const TrStepState saved = info.state();
    Verdict verdict;
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        info.state() = saved;
        predict(info);
        if (!fetchAndWarp(i, frame, 1 + 0.1 * attempt, info) || !matchAndRefine(i, info))
            return Verdict::stopTrack();
        smoothVelocity(info);
        verdict = judge(i, frame, behaviorName, info);
        if (verdict.stop || verdict.matched)
            break;
    }
    return verdict;
}

// Fetches and reduces the search region around the predicted position,
// `growth` times the track's search rectangle (the fetch half as large
// again, for the warp's reach), and makes the matcher's search image.
// False when the region lies outside the frame.
bool TrFollow::fetchAndWarp(int i, int frame, double growth, TrTrackInfo& info) {
    const float t = float(frame);
    const GenRect<double> searchRect = checkedShot()->getSearchRect(i, t);
    const GenRect<int> warpRect = placeRect(info.position, searchRect, growth);
    const GenRect<int> fetchRect = placeRect(info.position, searchRect, 1.5 * growth);

    const Image fetched = checkedShot()->getImage(t, fetchRect, true);
    if (!hasPixels(fetched))
        return stopBecause(i, "its search area holds no pixel of the frame");
    info.searchRaw = ownedFloat(info.reducer->reduce(fetched), fetched);
    if (lagRefine)
        searchCache[frame * 256 + i] = info.searchRaw;
    warpSearch(warpRect, info);
    return true;
}

void TrFollow::warpSearch(const GenRect<int>& warpRect, TrTrackInfo& info) const {
    const float dx = info.position.x - info.origin.x;
    const float dy = info.position.y - info.origin.y;
    const GenPoint<int> shift(roundToInt(dx), roundToInt(dy));
    if (useAffine) {
        // The search image lives in the pattern's frame, around the origin,
        // like the offset view below: the matcher's offset and the update
        // after it measure from the origin. Laid over the warp rectangle
        // itself, it would sample the frame around 2 * position - origin and
        // lose any track that has moved farther than the search margin since
        // the begin frame.
        info.search = Image(warpRect - shift, info.searchRaw.getFormat());
        Orvane::xform_bilinear<float>(info.searchRaw, info.search, info.matrix, info.position,
                                      info.origin);
        return;
    }
    info.search = info.searchRaw.offset(shift);
    KrGenMatrix<float> m(2, 3, KrGenMatrix<float>::RowMajor);
    m(0, 0) = 1;
    m(1, 1) = 1;
    m(0, 2) = float(shift.x) - dx;
    m(1, 2) = float(shift.y) - dy;
    info.matrix = m;
}

// Finds the pattern in the search image, then refines position and shape.
// False when the refinement raised KrMatrixError.
bool TrFollow::matchAndRefine(int i, TrTrackInfo& info) {
    info.matcher->setSearch(info.search);
    info.matcher->match(info.matchOffset, info.score);
    info.position = info.position + transform2x3(info.matrix, info.matchOffset);
    if (!useAffine)
        return true;
    try {
        refineAffine(i, info);
    } catch (const KrMatrixError&) {
        return stopBecause(i, "the refinement failed, as on flat or non-finite pixels");
    }
    return true;
}

namespace {

AffineProblem& kept(std::unique_ptr<AffineProblem>& problem) {
    if (!problem)
        problem.reset(new AffineProblem());
    return *problem;
}

// The inputs every solve of a step shares.
void pose(AffineProblem& problem, const TrTrackInfo& info, const GenPoint<float>& centre,
          const AffineTransform& start) {
    problem.setPattern(info.pattern);
    problem.setSearch(info.searchRaw);
    problem.setAnchor(info.origin);
    problem.setCentre(centre);
    problem.setXform(start);
}

} // namespace

void TrFollow::refineAffine(int i, TrTrackInfo& info) {
    info.transform.tx = 0;
    info.transform.ty = 0;

    // Translation alone at full resolution first, so that the shape is
    // solved from a centred start.
    AffineProblem& shift = kept(info.shiftProblem);
    pose(shift, info, info.position, info.transform);
    shift.setUseTranslation(true);
    shift.setUseRotation(false);
    shift.setUseScale(false);
    shift.setUseStretch(false);
    shift.setCoarseToFine(false);
    shift.execute();

    AffineProblem& shape = kept(info.shapeProblem);
    pose(shape, info, info.position, shift.getXform());
    shape.setUseTranslation(true);
    shape.setCoarseToFine(true);
    shape.setUseRotation(checkedShot()->getUseRotate(i));
    shape.setUseScale(checkedShot()->getUseScale(i));
    shape.setUseStretch(checkedShot()->getUseStretch(i));
    shape.execute();

    KrGenMatrix<float> m;
    shape.getMatrix(m);
    info.matrix = m;
    info.transform = shape.getXform();
    info.affineOffset = shape.getTranslation();
    info.position = info.position + info.affineOffset;
    info.score = shape.getQuality();
}

// Judges the attempt's score against the track's tolerance and, on a miss,
// applies the failure behaviour. No behaviour puts the position back to the
// prediction: the low-scoring result stays, and under "predictAndKey" it is
// what gets keyed.
TrFollow::Verdict TrFollow::judge(int i, int frame, const dstring& behaviorName,
                                  TrTrackInfo& info) {
    Verdict verdict;
    if (checkedShot()->getFailureTolerance(i) <= info.score) {
        info.failCount = 0;
        verdict.matched = true;
        verdict.keyed = true;
        return verdict;
    }
    // An unknown name is only an error once a match has failed.
    const TrBehavior behavior = behaviorNamed(behaviorName);
    switch (behavior) {
    case TrBehavior::Stop:
        stopBecause(i, "its match scored below the tolerance");
        return Verdict::stopTrack();
    case TrBehavior::Predict:
    case TrBehavior::Default:
    case TrBehavior::PredictAndKey:
        if (info.failCount >= kMaxPredicted) {
            stopBecause(i, "its match scored below the tolerance six frames in a row");
            return Verdict::stopTrack();
        }
        ++info.failCount;
        verdict.keyed = behavior == TrBehavior::PredictAndKey;
        break;
    case TrBehavior::DontPredict:
        info.velocity = GenPoint<double>(0, 0);
        break;
    case TrBehavior::UseExistingCurve: {
        const GenPoint<double> curve = checkedShot()->getPosition(i, float(frame));
        info.position = GenPoint<float>(float(curve.x), float(curve.y));
        break;
    }
    }
    return verdict;
}

void TrFollow::key(int i, int frame, TrTrackInfo& info) {
    const float t = float(frame);
    checkedShot()->setPosition(i, t, toDouble(info.position));
    checkedShot()->setTransform(i, t, info.transform);
    checkedShot()->setQuality(i, t, info.score);
    info.matrix.unique();
    info.velocityWeight = kVelocityWeight;
}

bool TrFollow::refineLagged(int i, TrTrackInfo& info, int direction) {
    const int p = info.patternFrame;
    AffineTransform average;
    average.zero();
    int taken = 0;
    // Frames before the begin frame hold shapes of another pass.
    for (int k = p - 2; k <= p + 2; ++k) {
        if (k * direction >= beginFrame * direction - 0.5) {
            average += checkedShot()->getTransform(i, float(k));
            ++taken;
        }
    }
    average /= float(taken);
    checkedShot()->setTransform(i, float(p), average);
    const GenPoint<double> q = checkedShot()->getPosition(i, float(p));

    // A frame the host skipped has no search image; it keeps its keys.
    auto cached = searchCache.find(p * 256 + i);
    if (cached != searchCache.end()) {
        info.searchRaw = cached->second;
        searchCache.erase(cached);
        // Translation only, coarse to fine, as the step's last solve left
        // those two switches.
        AffineProblem& problem = kept(info.shiftProblem);
        try {
            pose(problem, info, GenPoint<float>(float(q.x), float(q.y)), average);
            problem.setUseTranslation(true);
            problem.setCoarseToFine(true);
            problem.setUseRotation(false);
            problem.setUseScale(false);
            problem.setUseStretch(false);
            problem.execute();
            info.affineOffset = problem.getTranslation();
        } catch (const KrMatrixError&) {
            return false;
        }
        checkedShot()->setPosition(
            i, float(p), GenPoint<double>(q.x + info.affineOffset.x, q.y + info.affineOffset.y));
        checkedShot()->setQuality(i, float(p), problem.getQuality());
    }
    info.patternFrame += direction;
    return true;
}

bool TrFollow::reportStep(int i, int frame) {
    if (!feedback)
        return true;
    feedback->trackStep(i, frame);
    return !feedback->isCancelled() || stopBecause(i, "the pass was cancelled");
}
