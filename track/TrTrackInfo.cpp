#include "track/TrTrackInfo.h"

#include "krovel/AffineProblem.h"
#include "track/Matcher.h"
#include "track/Reducer.h"

#include <utility>

namespace {

using Layout = KrGenMatrix<float>::Layout;

// The layout a copy in AnyLayout takes.
Layout layoutOf(const KrGenMatrix<float>& m) {
    return m.colStride() == 1 ? KrGenMatrix<float>::RowMajor : KrGenMatrix<float>::ColumnMajor;
}

// Whether `m` is storage of `other`'s shape and layout that no one else holds.
bool fits(const KrGenMatrix<float>& m, const KrGenMatrix<float>& other) {
    return m.refCount() == 1 && m.rows() == other.rows() && m.cols() == other.cols() &&
           m.rowStride() == other.rowStride() && m.colStride() == other.colStride() &&
           !other.isEmpty();
}

// The storage the last copy let go of on this thread: a step saves its
// state, restores it and drops it again on every attempt.
thread_local KrGenMatrix<float> spare;

} // namespace

// Not the base's copy, which would share the elements.
// NOLINTNEXTLINE(bugprone-copy-constructor-init)
TrDeepMatrix::TrDeepMatrix(const TrDeepMatrix& other) : KrGenMatrix<float>() {
    if (fits(spare, other) && layoutOf(spare) == layoutOf(other)) {
        KrGenMatrix<float>::operator=(std::move(spare));
        spare = KrGenMatrix<float>();
        set(other);
        return;
    }
    KrGenMatrix<float>::operator=(other.copy(KrGenMatrix<float>::AnyLayout));
}

TrDeepMatrix& TrDeepMatrix::operator=(const TrDeepMatrix& other) {
    if (this == &other)
        return *this;
    if (fits(*this, other) && data() != other.data()) {
        set(other);
        return *this;
    }
    KrGenMatrix<float>::operator=(other.copy(KrGenMatrix<float>::AnyLayout));
    return *this;
}

TrDeepMatrix::~TrDeepMatrix() {
    if (refCount() == 1 && spare.isEmpty())
        spare = std::move(static_cast<KrGenMatrix<float>&>(*this));
}

// Defined where Reducer, Matcher and AffineProblem are complete, so that code reading the
// record needs only their names.
TrTrackInfo::TrTrackInfo() = default;

TrTrackInfo::~TrTrackInfo() = default;

TrTrackInfo::TrTrackInfo(TrTrackInfo&& other) noexcept = default;

// NOLINTNEXTLINE(performance-noexcept-move-constructor): see the declaration.
TrTrackInfo& TrTrackInfo::operator=(TrTrackInfo&& other) = default;
