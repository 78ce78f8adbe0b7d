#include "track/TrFollow.h"

#include "base/Exception.h"
#include "image/Convert.h"
#include "image/Copy.h"
#include "image/Format.h"
#include "image/ImageStore.h"
#include "krovel/AffineProblem.h"
#include "krovel/AffineWarp.h"
#include "krovel/KrMatrixError.h"
#include "track/DoubleImageSum.h"
#include "track/Matcher.h"
#include "track/Reducer.h"
#include "track/TrFeedback.h"
#include "track/TrModes.h"
#include "track/TrTexture.h"

#include <algorithm>
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

// The same after `coasted` predicted frames in a row: the miss built up over
// all of them, so the velocity learns the move per frame since the last
// accepted one, not the whole jump.
void smoothVelocityAfterCoast(TrStepState& s, int coasted) {
    const double w = s.velocityWeight;
    const double share = 1.0 / (coasted + 1);
    const double moveX = s.velocity.x + (double(s.position.x) - s.predicted.x) * share;
    const double moveY = s.velocity.y + (double(s.position.y) - s.predicted.y) * share;
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

void TrFollow::setRobust(bool on) {
    robust = on;
    guardedLag = on;
    coastFrames = on ? kRobustCoast : 0;
    motionSpreads = on ? kRobustSpreads : 0;
    refineInterpolation = on ? Orvane::Interpolation::BSpline : Orvane::Interpolation::Bilinear;
}

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

// The robust refinement settles the last two frames too, which no later
// step reaches; only tracks still going, whose rows a caller has not yet
// taken as final.
void TrFollow::end(int frame) {
    if (!(lagRefine && guardedLag) || shot.get() == nullptr)
        return;
    for (int i = 0; i < infos.getCount() && size_t(i) < stepStatus.size(); ++i)
        if (stepStatus[size_t(i)] != TrStepStatus::Lost && infos[i].matcher != nullptr)
            refineGuarded(i, frame + 2 * passDirection, infos[i], passDirection);
}

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
    if (motion.size() != size_t(infos.getCount()))
        motion.assign(size_t(infos.getCount()), TrMotionCheck());
    if (frame == beginFrame)
        motion[size_t(i)].reset();
    stopReasons[size_t(i)] = nullptr;
    // Lost until the step gets through: a throw leaves it so.
    stepStatus[size_t(i)] = TrStepStatus::Lost;
    direction = direction < 0 ? -1 : 1;
    passDirection = direction;
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
    if (lagRefine && guardedLag) {
        if (verdict.matched)
            refineGuarded(i, frame, info, direction);
    } else if (lagRefine && verdict.matched && std::abs(frame - info.patternFrame) >= 2 &&
               !refineLagged(i, info, direction)) {
        return stopBecause(i, "the lagged refinement failed, as on flat or non-finite pixels");
    }
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
    const bool coasts =
        coastFrames > 0 && row != nullptr &&
        (retries || row->mode == TrBehavior::Predict || row->mode == TrBehavior::PredictAndKey);
    // The longer a track coasts, the farther its prediction may be off; at
    // twice the area the fetch is already four times the step's.
    const double reach = coasts ? std::min(2.0, 1 + 0.25 * info.failCount) : 1;
    const TrStepState saved = info.state();
    Verdict verdict;
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        info.state() = saved;
        predict(info);
        if (!fetchAndWarp(i, frame, reach * (1 + 0.1 * attempt), info))
            return Verdict::stopTrack();
        const bool refined = matchAndRefine(i, info);
        if (!refined && !coasts)
            return Verdict::stopTrack();
        if (coasts && info.failCount > 0)
            smoothVelocityAfterCoast(info, info.failCount);
        else
            smoothVelocity(info);
        if (refined) {
            verdict = judge(i, frame, behaviorName, info);
        } else {
            // Flat pixels over the feature, as an occluder brings, are one
            // more failed match to coast through.
            stopReasons[size_t(i)] = nullptr;
            info.score = -1;
            verdict = carryOn(i, frame, row->mode, info);
        }
        if (verdict.stop || verdict.matched)
            break;
    }
    if (coasts && !verdict.stop && !verdict.matched)
        coast(saved, info);
    return verdict;
}

// The failed attempt taught nothing: the track goes on from the prediction
// with the velocity and shape of its accepted frames.
void TrFollow::coast(const TrStepState& saved, TrTrackInfo& info) const {
    const int fails = info.failCount;
    const double score = info.score;
    info.state() = saved;
    predict(info);
    info.failCount = fails;
    info.score = score;
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
    reduceSearch(frame, fetched, info);
    warpSearch(warpRect, info);
    return true;
}

// Reduces the fetched region into one of the record's stores: the frame's
// cache slot when the lagged refinement will want it back.
void TrFollow::reduceSearch(int frame, const Image& fetched, TrTrackInfo& info) {
    Orvane::ImageStore& store = lagRefine ? cacheSearch(frame, info) : info.searchStore;
    const Image& dst = store.shape(fetched.getBounds(), Orvane::Format::mono(Orvane::FLOAT));
    if (!info.reducer->reduceInto(fetched, dst)) {
        // No path in place (hue, a one-channel source): reduce as ever and
        // keep the result's own bounds and format.
        const Image reduced = ownedFloat(info.reducer->reduce(fetched), fetched);
        Orvane::copy(reduced, store.shape(reduced.getBounds(), reduced.getFormat()));
    }
    info.searchRaw = store.image();
}

// A later attempt at the same frame takes the same slot; a new frame the
// first free one, or one more.
Orvane::ImageStore& TrFollow::cacheSearch(int frame, TrTrackInfo& info) {
    TrSearchSlot* free = nullptr;
    for (TrSearchSlot& slot : info.searchSlots) {
        if (slot.held && slot.frame == frame)
            return slot.store;
        if (!slot.held && free == nullptr)
            free = &slot;
    }
    if (free == nullptr) {
        info.searchSlots.emplace_back();
        free = &info.searchSlots.back();
    }
    free->frame = frame;
    free->held = true;
    return free->store;
}

bool TrFollow::takeCachedSearch(int frame, TrTrackInfo& info) {
    for (TrSearchSlot& slot : info.searchSlots) {
        if (slot.held && slot.frame == frame) {
            slot.held = false;
            info.searchRaw = slot.store.image();
            return true;
        }
    }
    return false;
}

int TrFollow::getCachedSearchCount(int i) const {
    int n = 0;
    for (const TrSearchSlot& slot : infos[i].searchSlots)
        n += slot.held ? 1 : 0;
    return n;
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
        info.search = info.warpStore.shape(warpRect - shift, info.searchRaw.getFormat());
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
          const AffineTransform& start, Orvane::Interpolation how) {
    problem.setInterpolation(how);
    problem.setPattern(info.pattern);
    problem.setSearch(info.searchRaw);
    problem.setAnchor(info.origin);
    problem.setCentre(centre);
    problem.setXform(start);
}

// The lagged re-solve at the keyed position `q` from the averaged shape:
// translation only, coarse to fine, as the step's last solve left those two
// switches.
void solveLagged(AffineProblem& problem, const TrTrackInfo& info, const GenPoint<double>& q,
                 const AffineTransform& average, Orvane::Interpolation interpolation) {
    pose(problem, info, GenPoint<float>(float(q.x), float(q.y)), average, interpolation);
    problem.setUseTranslation(true);
    problem.setCoarseToFine(true);
    problem.setUseRotation(false);
    problem.setUseScale(false);
    problem.setUseStretch(false);
    problem.execute();
}

// The re-solve of setGuardedShapeFit at the keyed position `q`: position
// and shape together from the averaged shape, at full size only, as the
// step has already put `q` within a fraction of a pixel; the caller frees
// the shape as the track does.
void solveGuarded(AffineProblem& problem, const TrTrackInfo& info, const GenPoint<double>& q,
                  const AffineTransform& average, Orvane::Interpolation interpolation) {
    pose(problem, info, GenPoint<float>(float(q.x), float(q.y)), average, interpolation);
    problem.setUseTranslation(true);
    problem.setCoarseToFine(false);
}

} // namespace

void TrFollow::refineAffine(int i, TrTrackInfo& info) {
    info.transform.tx = 0;
    info.transform.ty = 0;

    // Translation alone at full resolution first, so that the shape is
    // solved from a centred start. Both solves sample bilinearly whatever
    // the setting: the lagged solve re-solves the position it keys, and a
    // spline here made the shape solve take longer without improving that.
    const Orvane::Interpolation bilinear = Orvane::Interpolation::Bilinear;
    AffineProblem& shift = kept(info.shiftProblem);
    pose(shift, info, info.position, info.transform, bilinear);
    shift.setUseTranslation(true);
    shift.setUseRotation(false);
    shift.setUseScale(false);
    shift.setUseStretch(false);
    shift.setCoarseToFine(false);
    shift.execute();

    AffineProblem& shape = kept(info.shapeProblem);
    pose(shape, info, info.position, shift.getXform(), bilinear);
    shape.setUseTranslation(true);
    shape.setCoarseToFine(true);
    shape.setUseRotation(checkedShot()->getUseRotate(i));
    shape.setUseScale(checkedShot()->getUseScale(i));
    shape.setUseStretch(checkedShot()->getUseStretch(i));
    shape.execute();

    // Written into the record's own matrix: a fresh one would cost an
    // allocation a step.
    shape.getMatrix(info.matrix);
    info.transform = shape.getXform();
    info.affineOffset = shape.getTranslation();
    info.position = info.position + info.affineOffset;
    info.score = shape.getQuality();
}

// Judges the attempt's score against the track's tolerance and, on a miss,
// applies the failure behaviour. No behaviour puts the position back to the
// prediction: the low-scoring result stays, and under "predictAndKey" it is
// what gets keyed. Only coasting, after the attempts, replaces it.
TrFollow::Verdict TrFollow::judge(int i, int frame, const dstring& behaviorName,
                                  TrTrackInfo& info) {
    if (accepts(i, info)) {
        // A miss after coasting built up over the coasted frames.
        const double share = 1.0 / (1 + info.failCount);
        if (motionSpreads > 0)
            motion[size_t(i)].learn(GenPoint<double>((info.position.x - info.predicted.x) * share,
                                                     (info.position.y - info.predicted.y) * share));
        info.failCount = 0;
        Verdict verdict;
        verdict.matched = true;
        verdict.keyed = true;
        return verdict;
    }
    // An unknown name is only an error once a match has failed.
    return carryOn(i, frame, behaviorNamed(behaviorName), info);
}

bool TrFollow::accepts(int i, const TrTrackInfo& info) const {
    if (!(checkedShot()->getFailureTolerance(i) <= info.score))
        return false;
    if (motionSpreads <= 0)
        return true;
    const GenPoint<double> miss(info.position.x - info.predicted.x,
                                info.position.y - info.predicted.y);
    return motion[size_t(i)].agrees(miss, motionSpreads, kMotionFloor, 1 + 0.25 * info.failCount);
}

// Applies the failure behaviour to a match that was not accepted.
TrFollow::Verdict TrFollow::carryOn(int i, int frame, TrBehavior behavior, TrTrackInfo& info) {
    Verdict verdict;
    switch (behavior) {
    case TrBehavior::Stop:
        stopBecause(i, checkedShot()->getFailureTolerance(i) <= info.score
                           ? "its match left the track's recent motion"
                           : "its match scored below the tolerance");
        return Verdict::stopTrack();
    case TrBehavior::Predict:
    case TrBehavior::Default:
    case TrBehavior::PredictAndKey:
        if (coastFrames > 0 && info.failCount >= coastFrames) {
            stopBecause(i, "its match failed for longer than it may coast");
            return Verdict::stopTrack();
        }
        if (coastFrames <= 0 && info.failCount >= kMaxPredicted) {
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

// The shape over the five frames around `p`.
AffineTransform TrFollow::laggedAverage(int i, int p, int direction) {
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
    return average;
}

bool TrFollow::refineLagged(int i, TrTrackInfo& info, int direction) {
    const int p = info.patternFrame;
    const AffineTransform average = laggedAverage(i, p, direction);
    checkedShot()->setTransform(i, float(p), average);
    const GenPoint<double> q = checkedShot()->getPosition(i, float(p));

    // A frame the host skipped has no search image; it keeps its keys.
    if (takeCachedSearch(p, info)) {
        AffineProblem& problem = kept(info.shiftProblem);
        try {
            solveLagged(problem, info, q, average, refineInterpolation);
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

// Catches up after coasting too: coasted frames hold no passing key, so
// they are passed over without a solve.
void TrFollow::refineGuarded(int i, int frame, TrTrackInfo& info, int direction) {
    while (std::abs(frame - info.patternFrame) >= 2) {
        const int p = info.patternFrame;
        info.patternFrame += direction;
        if (takeCachedSearch(p, info))
            refineGuardedAt(i, p, info, direction);
    }
}

// Re-solves frame `p` as the designed refinement does, but keys the result
// only where it does at least as well as the step did.
void TrFollow::refineGuardedAt(int i, int p, TrTrackInfo& info, int direction) {
    TrShot* s = checkedShot();
    const float t = float(p);
    const double tolerance = s->getFailureTolerance(i);
    if (p == beginFrame || !s->isQualityKeyed(i, t))
        return;
    const double own = s->getQuality(i, t);
    if (!(tolerance <= own))
        return;
    const AffineTransform average = laggedAverage(i, p, direction);
    const GenPoint<double> q = s->getPosition(i, t);
    AffineProblem& problem = kept(info.shiftProblem);
    try {
        if (guardedShape) {
            solveGuarded(problem, info, q, average, refineInterpolation);
            problem.setUseRotation(s->getUseRotate(i));
            problem.setUseScale(s->getUseScale(i));
            problem.setUseStretch(s->getUseStretch(i));
            problem.execute();
        } else {
            solveLagged(problem, info, q, average, refineInterpolation);
        }
    } catch (const KrMatrixError&) {
        return;
    }
    const double quality = problem.getQuality();
    if (!(tolerance <= quality && own <= quality))
        return;
    const GenPoint<float> d = problem.getTranslation();
    s->setTransform(i, t, guardedShape ? problem.getXform() : average);
    s->setPosition(i, t, GenPoint<double>(q.x + d.x, q.y + d.y));
    s->setQuality(i, t, quality);
}

bool TrFollow::reportStep(int i, int frame) {
    if (!feedback)
        return true;
    feedback->trackStep(i, frame);
    return !feedback->isCancelled() || stopBecause(i, "the pass was cancelled");
}
