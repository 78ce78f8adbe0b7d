#include "track/TrTrackInfo.h"

#include "track/Matcher.h"
#include "track/Reducer.h"

#include <utility>

TrTrackInfo::~TrTrackInfo() {
    delete matcher;
    delete reducer;
}

TrTrackInfo::TrTrackInfo(TrTrackInfo&& other) noexcept {
    swap(other);
}

TrTrackInfo& TrTrackInfo::operator=(TrTrackInfo&& other) noexcept {
    // The old reducer and matcher leave with `other`, which deletes them.
    swap(other);
    return *this;
}

void TrTrackInfo::swap(TrTrackInfo& other) noexcept {
    using std::swap;
    swap(origin, other.origin);
    swap(patternRect, other.patternRect);
    swap(patternBounds, other.patternBounds);
    swap(pattern, other.pattern);
    swap(search, other.search);
    swap(searchRaw, other.searchRaw);
    swap(position, other.position);
    swap(transform, other.transform);
    swap(prevTransform, other.prevTransform);
    swap(matrix, other.matrix);
    swap(transformGain, other.transformGain);
    swap(patternFrame, other.patternFrame);
    swap(velocity, other.velocity);
    swap(velocityWeight, other.velocityWeight);
    swap(reducer, other.reducer);
    swap(matcher, other.matcher);
    swap(prevPosition, other.prevPosition);
    swap(predicted, other.predicted);
    swap(matchOffset, other.matchOffset);
    swap(affineOffset, other.affineOffset);
    swap(score, other.score);
    swap(failCount, other.failCount);
}
