#include "krovel/KrMatchmoveProblem.h"

#include "base/Exception.h"
#include "base/dstring.h"
#include "krovel/KrMatchmove.h"
#include "krovel/KrMatrixError.h"

#include <cstddef>

namespace {

const double kStep = 0.0001;

// Reports a matrix that is not 3 by 3; false when a handler swallowed that.
bool isSquare3(const KrGenMatrix<float>& M, const char* caller) {
    if (M.rows() == 3 && M.cols() == 3)
        return true;
    KrMatrixError::err("%s: H is %d by %d, not 3 by 3", caller, M.rows(), M.cols());
    return false;
}

} // namespace

KrMatchmoveProblem::KrMatchmoveProblem(KrMatchmove* m, int frame) : owner(m), frame(frame) {
    if (!m)
        throw NullPointerException("KrMatchmoveProblem: no matchmove");
    if (frame < 0 || frame >= m->getFrameCount())
        throw IllegalArgumentException(dstring::format("KrMatchmoveProblem: frame %d outside 0..%d",
                                                       frame, m->getFrameCount() - 1));
    const KrGenMatrix<float>& basePoints = m->getBasePoints();
    const KrGenVector<float>& baseWeights = m->getBaseWeights();
    const int n = m->getTrackCount();
    if (basePoints.rows() != n || basePoints.cols() != 2 || baseWeights.length() != n)
        throw IllegalArgumentException("KrMatchmoveProblem: base points not set up");

    activeTracks = KrGenVector<int>(n);
    for (int t = 0; t < n; ++t) {
        const KrMatchmoveTrack& track = m->getTrack(t);
        const float w = track.weights(frame);
        if (!(baseWeights(t) > 0) || !(w > 0))
            continue;
        activeTracks(activeCount++) = t;
        bases.push_back(basePoints(t, 0));
        bases.push_back(basePoints(t, 1));
        weights.push_back(w);
        observed.push_back(track.positions(frame, 0));
        observed.push_back(track.positions(frame, 1));
    }
    activeTracks.resize(activeCount);
    current.resize(2 * size_t(activeCount));
    trial.resize(2 * size_t(activeCount));
    y = KrGenVector<float>(2 * activeCount);
}

void KrMatchmoveProblem::projectInto(const double* h, double* out) const {
    const double* b = bases.data();
    const double* w = weights.data();
    for (int i = 0; i < activeCount; ++i, b += 2, out += 2) {
        const double u = h[0] * b[0] + h[3] * b[1] + h[6];
        const double v = h[1] * b[0] + h[4] * b[1] + h[7];
        const double s = h[2] * b[0] + h[5] * b[1] + h[8];
        const double scale = w[i] / s;
        out[0] = u * scale;
        out[1] = v * scale;
    }
}

void KrMatchmoveProblem::setX(const KrGenVector<float>& v) {
    x = v;
    xToMatrix(x, H);
    double h[9];
    for (int k = 0; k < 9; ++k)
        h[k] = H(k % 3, k / 3);
    projectInto(h, current.data());
    float* out = y.data();
    for (size_t i = 0; i < current.size(); ++i)
        out[i] = float(current[i]);
}

void KrMatchmoveProblem::evalY(KrGenVector<float>& out) {
    out.reference(y);
}

void KrMatchmoveProblem::evalDy(KrGenMatrix<float>& dy) {
    const int rows = 2 * activeCount;
    dy.resize(rows, 8, KrGenMatrix<float>::AnyLayout);
    const ptrdiff_t rowStep = dy.rowStride();
    double h[9];
    for (int k = 0; k < 9; ++k)
        h[k] = H(k % 3, k / 3);
    for (int k = 0; k < 8; ++k) {
        const double kept = h[k];
        h[k] += kStep;
        projectInto(h, trial.data());
        h[k] = kept;
        float* column = dy.data() + ptrdiff_t(k) * dy.colStride();
        for (int i = 0; i < rows; ++i)
            column[i * rowStep] = float((trial[i] - current[i]) / kStep);
    }
}

KrGenVector<float> KrMatchmoveProblem::getGoal() const {
    KrGenVector<float> goal(2 * activeCount);
    float* g = goal.data();
    for (int i = 0; i < activeCount; ++i) {
        g[2 * i] = float(weights[i] * observed[2 * i]);
        g[2 * i + 1] = float(weights[i] * observed[2 * i + 1]);
    }
    return goal;
}

void KrMatchmoveProblem::project(const KrGenMatrix<float>& M, KrGenVector<float>& out) const {
    // Past a report swallowed by a handler nothing is read.
    if (!isSquare3(M, "KrMatchmoveProblem::project"))
        return;
    double h[9];
    for (int k = 0; k < 9; ++k)
        h[k] = M(k % 3, k / 3);
    out.resize(2 * activeCount);
    std::vector<double> projected(2 * size_t(activeCount));
    projectInto(h, projected.data());
    for (int i = 0; i < 2 * activeCount; ++i)
        out(i) = float(projected[i]);
}

void KrMatchmoveProblem::yToVector(const KrGenMatrix<float>& pts, KrGenVector<float>& v) const {
    if (pts.rows() != activeCount || pts.cols() != 2) {
        KrMatrixError::err("KrMatchmoveProblem::yToVector: points are %d by %d, not %d by 2",
                           pts.rows(), pts.cols(), activeCount);
        return;
    }
    v.resize(2 * activeCount);
    for (int i = 0; i < activeCount; ++i) {
        v(2 * i) = float(weights[i] * pts(i, 0));
        v(2 * i + 1) = float(weights[i] * pts(i, 1));
    }
}

void KrMatchmoveProblem::yToMatrix(const KrGenVector<float>& v, KrGenMatrix<float>& pts) const {
    if (v.length() != 2 * activeCount) {
        KrMatrixError::err("KrMatchmoveProblem::yToMatrix: %d outputs, not %d", v.length(),
                           2 * activeCount);
        return;
    }
    pts.resize(activeCount, 2);
    for (int i = 0; i < activeCount; ++i) {
        pts(i, 0) = float(v(2 * i) / weights[i]);
        pts(i, 1) = float(v(2 * i + 1) / weights[i]);
    }
}

void KrMatchmoveProblem::xToVector(const KrGenMatrix<float>& M, KrGenVector<float>& v) {
    if (!isSquare3(M, "KrMatchmoveProblem::xToVector"))
        return;
    v.resize(8);
    for (int k = 0; k < 8; ++k)
        v(k) = M(k % 3, k / 3);
}

void KrMatchmoveProblem::xToMatrix(const KrGenVector<float>& v, KrGenMatrix<float>& M) {
    if (v.length() != 8) {
        KrMatrixError::err("KrMatchmoveProblem::xToMatrix: %d parameters, not 8", v.length());
        return;
    }
    M.resize(3, 3, KrGenMatrix<float>::ColumnMajor);
    for (int k = 0; k < 8; ++k)
        M(k % 3, k / 3) = v(k);
    M(2, 2) = 1;
}
