#include "track/TrTrackInfo.h"

#include "krovel/AffineProblem.h"
#include "track/Matcher.h"
#include "track/Reducer.h"

TrDeepMatrix::TrDeepMatrix(const TrDeepMatrix& other)
    : KrGenMatrix<float>(other.copy(KrGenMatrix<float>::AnyLayout)) {}

TrDeepMatrix& TrDeepMatrix::operator=(const TrDeepMatrix& other) {
    KrGenMatrix<float>::operator=(other.copy(KrGenMatrix<float>::AnyLayout));
    return *this;
}

// Defined where Reducer, Matcher and AffineProblem are complete, so that code reading the
// record needs only their names.
TrTrackInfo::TrTrackInfo() = default;

TrTrackInfo::~TrTrackInfo() = default;

TrTrackInfo::TrTrackInfo(TrTrackInfo&& other) noexcept = default;

// NOLINTNEXTLINE(performance-noexcept-move-constructor): see the declaration.
TrTrackInfo& TrTrackInfo::operator=(TrTrackInfo&& other) = default;
