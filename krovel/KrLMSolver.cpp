#include "krovel/KrLMSolver.h"

#include "base/Exception.h"
#include "krovel/KrInverse.h"
#include "krovel/KrMatrixError.h"
#include "krovel/KrVectorKernels.h"

#include <immintrin.h>

#include <cmath>
#include <cstddef>
#include <utility>

namespace {

// The loops below walk raw pointers, so a short vector or matrix is reported
// once up front with the text its accessor would give at the first index the
// loop would trip on. False means a handler swallowed the report.
bool reaches(const KrGenVector<float>& v, int n) {
    if (n <= 0 || v.length() >= n)
        return true;
    KrMatrixError::err("KrVector index %d out of range %d", v.length(), v.length() - 1);
    return false;
}

// A Jacobian short of rows or columns: as an element walk over each column
// pair in turn would find it, the column is named when there are none at
// all or the rows suffice, otherwise the row.
bool reaches(const KrGenMatrix<float>& m, int rows, int cols) {
    if (rows <= 0 || cols <= 0 || (m.rows() >= rows && m.cols() >= cols))
        return true;
    if (m.cols() == 0 || m.rows() >= rows)
        KrMatrixError::err("KrMatrix col %d out of range 0..%d", m.cols(), m.cols() - 1);
    else
        KrMatrixError::err("KrMatrix row %d out of range 0..%d", m.rows(), m.rows() - 1);
    return false;
}

[[noreturn]] void notFinite() {
    throw Exception("nan");
}

// Σᵢ dy(i, k)·dy(i, j) for every pair k <= j, column by column: float
// products, one double running sum per pair. Row by row the independent sums
// overlap in time, and each still adds its terms in row order.
template <int N>
void _pairSums(const float* dy, ptrdiff_t rs, ptrdiff_t cs, int ny, int nx, double* sums) {
    const int n = N > 0 ? N : nx;
    const int pairs = n * (n + 1) / 2;
    for (int p = 0; p < pairs; ++p)
        sums[p] = 0.0;
    for (int i = 0; i < ny; ++i, dy += rs) {
        double* sum = sums;
        for (int j = 0; j < n; ++j) {
            const float rj = dy[j * cs];
            for (int k = 0; k <= j; ++k)
                *sum++ += double(dy[k * cs] * rj);
        }
    }
}

// The pair sums of a column-major Jacobian, four rows at a time: each pair
// keeps four running sums, one per row modulo four, added pairwise at the
// end. The float products are those of _pairSums; only the order of the
// double additions differs, a rounding far below the float result's. The
// AVX2 twin does the same operations per lane.
template <int N> inline void columnPairSums(const float* dy, ptrdiff_t cs, int ny, double* sums) {
    constexpr int pairs = N * (N + 1) / 2;
    double acc[pairs][4] = {};
    const float* col[N];
    for (int j = 0; j < N; ++j)
        col[j] = dy + j * cs;
    int i = 0;
    for (; i + 4 <= ny; i += 4) {
        int p = 0;
        for (int j = 0; j < N; ++j)
            for (int k = 0; k <= j; ++k, ++p)
                for (int l = 0; l < 4; ++l)
                    acc[p][l] += double(col[k][i + l] * col[j][i + l]);
    }
    for (int l = 0; i < ny; ++i, ++l) {
        int p = 0;
        for (int j = 0; j < N; ++j)
            for (int k = 0; k <= j; ++k, ++p)
                acc[p][l] += double(col[k][i] * col[j][i]);
    }
    for (int p = 0; p < pairs; ++p)
        sums[p] = (acc[p][0] + acc[p][1]) + (acc[p][2] + acc[p][3]);
}

// columnSumsAvx2 can form, in the same walk as the pair sums, the gradient
// of _gradient for contiguous goal and outputs. The gradient's running float sums form a
// chain of dependent additions that alone leaves the core waiting; beside
// the pair products it comes almost free. Its six sums are the lanes of two
// vectors, each row's terms taken from the loaded columns by a transpose,
// and every lane does _gradient's conversions, product and addition, so the
// results are those of the two separate passes to the bit.
__attribute__((target("avx2"))) inline void
gradientRows(const __m128 (&col)[6], const float* gl, const float* yp, __m128& g03, __m128& g45) {
    __m128 r0 = col[0], r1 = col[1], r2 = col[2], r3 = col[3];
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    const __m128 low = _mm_unpacklo_ps(col[4], col[5]);
    const __m128 high = _mm_unpackhi_ps(col[4], col[5]);
    const __m128 rows03[4] = {r0, r1, r2, r3};
    const __m128 rows45[4] = {low, _mm_movehl_ps(low, low), high, _mm_movehl_ps(high, high)};
    for (int l = 0; l < 4; ++l) {
        const double d = double(gl[l]) - double(yp[l]);
        const __m256d d4 = _mm256_set1_pd(d);
        const __m128d d2 = _mm_set1_pd(d);
        g03 = _mm256_cvtpd_ps(
            _mm256_add_pd(_mm256_cvtps_pd(g03), _mm256_mul_pd(_mm256_cvtps_pd(rows03[l]), d4)));
        g45 = _mm_cvtpd_ps(_mm_add_pd(_mm_cvtps_pd(g45), _mm_mul_pd(_mm_cvtps_pd(rows45[l]), d2)));
    }
}

// columnPairSums with each pair's four sums the lanes of one vector, and
// with Gradient (six columns only) the gradient in the same walk.
template <int N, bool Gradient>
__attribute__((target("avx2"))) void columnSumsAvx2(const float* dy, ptrdiff_t cs, const float* gl,
                                                    const float* yp, int ny, double* sums,
                                                    float* gp) {
    constexpr int pairs = N * (N + 1) / 2;
    __m256d acc[pairs];
    for (int p = 0; p < pairs; ++p)
        acc[p] = _mm256_setzero_pd();
    __m128 g03 = _mm_setzero_ps(), g45 = _mm_setzero_ps();
    int i = 0;
    for (; i + 4 <= ny; i += 4) {
        __m128 col[N];
        for (int j = 0; j < N; ++j)
            col[j] = _mm_loadu_ps(dy + j * cs + i);
        int p = 0;
        for (int j = 0; j < N; ++j)
            for (int k = 0; k <= j; ++k, ++p)
                acc[p] = _mm256_add_pd(acc[p], _mm256_cvtps_pd(_mm_mul_ps(col[k], col[j])));
        if constexpr (Gradient)
            gradientRows(col, gl + i, yp + i, g03, g45);
    }
    alignas(32) double lanes[pairs][4];
    for (int p = 0; p < pairs; ++p)
        _mm256_store_pd(lanes[p], acc[p]);
    alignas(16) float g[8];
    _mm_store_ps(g, g03);
    _mm_store_ps(g + 4, g45);
    for (int l = 0; i < ny; ++i, ++l) {
        int p = 0;
        for (int j = 0; j < N; ++j)
            for (int k = 0; k <= j; ++k, ++p)
                lanes[p][l] += double(dy[k * cs + i] * dy[j * cs + i]);
        if constexpr (Gradient) {
            const double d = double(gl[i]) - double(yp[i]);
            for (int j = 0; j < N; ++j)
                g[j] = float(double(g[j]) + double(dy[j * cs + i]) * d);
        }
    }
    for (int p = 0; p < pairs; ++p)
        sums[p] = (lanes[p][0] + lanes[p][1]) + (lanes[p][2] + lanes[p][3]);
    if constexpr (Gradient)
        for (int j = 0; j < N; ++j)
            gp[j] = g[j];
}

bool avx2Present() {
    static const bool present = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return present;
}

template <int N> void columnPairSumsBest(const float* dy, ptrdiff_t cs, int ny, double* sums) {
    if (avx2Present())
        columnSumsAvx2<N, false>(dy, cs, nullptr, nullptr, ny, sums, nullptr);
    else
        columnPairSums<N>(dy, cs, ny, sums);
}

// A(k, j) = A(j, k) = Σᵢ dy(i, k)·dy(i, j). The affine refinement has at
// most six parameters; a fixed count lets the sums live in registers, and a
// column-major Jacobian, as the solver's own, is summed down its columns.
void pairSums(const KrGenMatrix<float>& dy, int ny, int nx, double* sums) {
    const float* p = dy.data();
    const ptrdiff_t rs = dy.rowStride();
    const ptrdiff_t cs = dy.colStride();
    if (rs == 1) {
        switch (nx) {
        case 1:
            return columnPairSumsBest<1>(p, cs, ny, sums);
        case 2:
            return columnPairSumsBest<2>(p, cs, ny, sums);
        case 3:
            return columnPairSumsBest<3>(p, cs, ny, sums);
        case 4:
            return columnPairSumsBest<4>(p, cs, ny, sums);
        case 5:
            return columnPairSumsBest<5>(p, cs, ny, sums);
        case 6:
            return columnPairSumsBest<6>(p, cs, ny, sums);
        default:
            break;
        }
    }
    switch (nx) {
    case 1:
        _pairSums<1>(p, rs, cs, ny, nx, sums);
        break;
    case 2:
        _pairSums<2>(p, rs, cs, ny, nx, sums);
        break;
    case 3:
        _pairSums<3>(p, rs, cs, ny, nx, sums);
        break;
    case 4:
        _pairSums<4>(p, rs, cs, ny, nx, sums);
        break;
    case 5:
        _pairSums<5>(p, rs, cs, ny, nx, sums);
        break;
    case 6:
        _pairSums<6>(p, rs, cs, ny, nx, sums);
        break;
    default:
        _pairSums<0>(p, rs, cs, ny, nx, sums);
        break;
    }
}

// The pair sums and the gradient in one walk, where the fused kernel takes
// the layout: a column-major Jacobian of six columns, all of the affine
// refinement's parameters, outputs long enough, goal and outputs
// contiguous. False leaves both to the separate passes.
bool fusedSums(const KrGenMatrix<float>& dy, const KrGenVector<float>& goal,
               const KrGenVector<float>& y, int ny, int nx, double* sums, float* gp) {
    if (nx != 6 || !avx2Present() || dy.rowStride() != 1 || y.length() < ny || goal.stride() != 1 ||
        y.stride() != 1)
        return false;
    columnSumsAvx2<6, true>(dy.data(), dy.colStride(), goal.data(), y.data(), ny, sums, gp);
    return true;
}

// The normal matrix from its pair sums.
void normalMatrix(const double* sums, int nx, KrGenMatrix<float>& a) {
    // A non-finite float product makes its double sum non-finite, and finite
    // float products cannot overflow a double sum, so checking each sum once
    // is checking every product and every partial sum.
    const double* sum = sums;
    for (int j = 0; j < nx; ++j) {
        for (int k = 0; k <= j; ++k, ++sum) {
            if (!std::isfinite(*sum))
                notFinite();
            a(k, j) = float(*sum);
            a(j, k) = float(*sum);
        }
    }
}

// g[j] = Σᵢ dy(i, j)·(goal[i] − y[i]), each term added in double and the
// running value stored back as float.
template <int N>
void _gradient(const float* dy, ptrdiff_t rs, ptrdiff_t cs, const float* gl, ptrdiff_t gs,
               const float* yp, ptrdiff_t ys, int ny, int nx, float* gp) {
    const int n = N > 0 ? N : nx;
    // The running values live in a local array, which the compiler keeps in
    // registers for a fixed count; written through gp, which might alias the
    // Jacobian, each would make a round trip through memory every row.
    float sums[N > 0 ? N : 1];
    float* acc = N > 0 ? sums : gp;
    for (int j = 0; j < n; ++j)
        acc[j] = 0.0f;
    for (int i = 0; i < ny; ++i, gl += gs, yp += ys, dy += rs) {
        const double d = double(*gl) - double(*yp);
        for (int j = 0; j < n; ++j)
            acc[j] = float(double(acc[j]) + double(dy[j * cs]) * d);
    }
    for (int j = 0; j < n; ++j)
        gp[j] = acc[j];
}

void gradient(const KrGenMatrix<float>& dy, const KrGenVector<float>& goal,
              const KrGenVector<float>& y, int ny, int nx, KrGenVector<float>& g) {
    g = 0.0f;
    auto run = [&](auto kernel) {
        kernel(dy.data(), dy.rowStride(), dy.colStride(), goal.data(), goal.stride(), y.data(),
               y.stride(), ny, nx, g.data());
    };
    switch (nx) {
    case 2:
        run(_gradient<2>);
        break;
    case 4:
        run(_gradient<4>);
        break;
    case 6:
        run(_gradient<6>);
        break;
    default:
        run(_gradient<0>);
        break;
    }
}

// A becomes T·A·T and g becomes T·g, T the diagonal of the trust vector.
void applyTrust(const KrGenVector<float>& trust, int nx, KrGenMatrix<float>& a,
                KrGenVector<float>& g) {
    const float* t = trust.data();
    const ptrdiff_t ts = trust.stride();
    float* gp = g.data();
    for (int i = 0; i < nx; ++i)
        gp[i] *= t[i * ts];
    float* ap = a.data();
    for (int j = 0; j < nx; ++j) {
        float* column = ap + ptrdiff_t(j) * a.colStride();
        for (int i = 0; i < nx; ++i) {
            float& e = column[i * ptrdiff_t(a.rowStride())];
            e *= t[i * ts];
            e *= t[j * ts];
        }
    }
}

// Multiplicative damping: a zero diagonal entry stays zero.
void damp(float lambda, int nx, KrGenMatrix<float>& a) {
    const double factor = double(lambda) + 1.0;
    float* e = a.data();
    const ptrdiff_t diagonal = ptrdiff_t(a.rowStride()) + a.colStride();
    for (int i = 0; i < nx; ++i, e += diagonal) {
        *e = float(double(*e) * factor);
        if (!std::isfinite(*e))
            notFinite();
    }
}

// The most parameters whose damped system is solved here rather than by
// LAPACK: below this, the workspace query, argument checks and explicit
// inverse cost more than the arithmetic.
const int kSmallSystem = 8;

// Solves a · step = g in double by elimination with partial pivoting (the
// first largest pivot, as LAPACK picks it), then rounds the step to float.
// It agrees with the float inverse-times-gradient to rounding. An exactly
// zero pivot returns false, leaving LAPACK to report the singular matrix.
bool solveSmall(const KrGenMatrix<float>& a, const KrGenVector<float>& g, int nx,
                KrGenVector<float>& step) {
    double m[kSmallSystem][kSmallSystem + 1];
    const float* ap = a.data();
    const float* gp = g.data();
    for (int i = 0; i < nx; ++i) {
        for (int j = 0; j < nx; ++j)
            m[i][j] = ap[i * ptrdiff_t(a.rowStride()) + j * ptrdiff_t(a.colStride())];
        m[i][nx] = gp[i];
    }
    for (int c = 0; c < nx; ++c) {
        int pivot = c;
        for (int r = c + 1; r < nx; ++r)
            if (std::fabs(m[r][c]) > std::fabs(m[pivot][c]))
                pivot = r;
        if (m[pivot][c] == 0.0)
            return false;
        if (pivot != c)
            for (int j = c; j <= nx; ++j)
                std::swap(m[c][j], m[pivot][j]);
        for (int r = c + 1; r < nx; ++r) {
            const double f = m[r][c] / m[c][c];
            for (int j = c + 1; j <= nx; ++j)
                m[r][j] -= f * m[c][j];
        }
    }
    float* sp = step.data();
    for (int i = nx - 1; i >= 0; --i) {
        double sum = m[i][nx];
        for (int j = i + 1; j < nx; ++j)
            sum -= m[i][j] * m[j][nx];
        m[i][nx] = sum / m[i][i];
        sp[i] = float(m[i][nx]);
    }
    return true;
}

// step = inverse · g in plain float dot products.
void multiply(const KrGenMatrix<float>& inverse, const KrGenVector<float>& g, int nx,
              KrGenVector<float>& step) {
    const float* gp = g.data();
    float* sp = step.data();
    for (int i = 0; i < nx; ++i) {
        const float* row = inverse.data() + ptrdiff_t(i) * inverse.rowStride();
        float sum = 0.0f;
        for (int j = 0; j < nx; ++j)
            sum += row[j * ptrdiff_t(inverse.colStride())] * gp[j];
        sp[i] = sum;
    }
}

// Bounds the step to unit length, then scales each parameter by its trust.
void trustStep(const KrGenVector<float>& trust, int nx, KrGenVector<float>& step) {
    float* sp = step.data();
    const float s = Krovel::_vector_norm2(sp, nx);
    if (s > 1.0) {
        const float length = std::sqrt(s);
        for (int i = 0; i < nx; ++i)
            sp[i] /= length;
    }
    const float* t = trust.data();
    for (int i = 0; i < nx; ++i)
        sp[i] *= t[i * ptrdiff_t(trust.stride())];
}

void add(const KrGenVector<float>& x, const KrGenVector<float>& step, int nx,
         KrGenVector<float>& sum) {
    const float* xp = x.data();
    const float* sp = step.data();
    float* out = sum.data();
    for (int i = 0; i < nx; ++i, xp += x.stride())
        out[i] = *xp + sp[i];
}

} // namespace

void KrLMSolver::setState(const KrGenVector<float>& x0) {
    x.reference(x0);
    nx = x0.length();
}

void KrLMSolver::setGoal(const KrGenVector<float>& g) {
    goal.reference(g);
    ny = g.length();
}

float KrLMSolver::computeEpsilon(const KrGenVector<float>& v) const {
    int n = v.length();
    if (!reaches(goal, n))
        n = goal.length();
    if (n <= 0)
        return 0.0f;
    difference.resize(n);
    float* d = difference.data();
    const float* vp = v.data();
    const float* gp = goal.data();
    for (int i = 0; i < n; ++i, vp += v.stride(), gp += goal.stride())
        d[i] = *vp - *gp;
    return std::sqrt(Krovel::_vector_norm2(d, n));
}

// The normal matrix and gradient are fully rewritten every iteration, and no
// element loop allocates.
void KrLMSolver::sizeScratch() {
    normal.resize(nx, nx);
    sums.resize(nx * (nx + 1) / 2);
    g.resize(nx);
    gradientSums.resize(nx);
    step.resize(nx);
    trialX.resize(nx);
}

bool KrLMSolver::dampedStep(float lambda, bool& sumsFresh) {
    KrGenMatrix<float>& a = normal;
    if (!reaches(dy, ny, nx))
        return false;
    // After a rejection the Jacobian and the outputs are those of the last
    // iteration, so are their sums: only the damping changes.
    bool fused = false;
    if (!sumsFresh) {
        fused = fusedSums(dy, goal, y, ny, nx, sums.data(), gradientSums.data());
        if (!fused)
            pairSums(dy, ny, nx, sums.data());
    }
    normalMatrix(sums.data(), nx, a);

    if (!reaches(y, ny))
        return false;
    if (!sumsFresh) {
        if (!fused)
            gradient(dy, goal, y, ny, nx, gradientSums);
        sumsFresh = true;
    }
    g.set(gradientSums);

    const bool trusted = !trust.isEmpty();
    if (trusted) {
        if (!reaches(trust, nx))
            return false;
        applyTrust(trust, nx, a, g);
    }
    damp(lambda, nx, a);
    if (nx > kSmallSystem || !solveSmall(a, g, nx, step))
        multiply(inverter.invert(a), g, nx, step);
    if (trusted)
        trustStep(trust, nx, step);
    return true;
}

void KrLMSolver::solve() {
    if (!problem)
        throw NullPointerException("KrLMSolver::solve: no problem");

    iterations = 0;
    float lambda = 0.01f;
    bool jacobianStale = true;
    bool sumsFresh = false;
    bool problemHoldsX = true;
    int stall = 0;

    problem->setX(x);
    problem->evalY(y);
    // The problem may have handed out storage of its own, which accepted
    // outputs must not overwrite.
    y.unique();
    float epsilon = computeEpsilon(y);
    if (iterationLimit < 2)
        return;

    sizeScratch();

    for (int iteration = 1; iteration < iterationLimit; ++iteration) {
        if (jacobianStale) {
            if (!problemHoldsX)
                problem->setX(x);
            problem->evalDy(dy);
            jacobianStale = false;
            sumsFresh = false;
        }
        if (!dampedStep(lambda, sumsFresh))
            return;

        // A problem that kept a handle on the last trial keeps its values:
        // the next trial then goes into fresh storage.
        if (trialX.refCount() != 1)
            trialX = KrGenVector<float>(nx, 0.0f);
        add(x, step, nx, trialX);
        ++iterations;
        problem->setX(trialX);
        problem->evalY(trialY);
        const float trialEpsilon = computeEpsilon(trialY);

        const double gain = (epsilon - trialEpsilon) / (std::fabs(epsilon) + 1.0);
        // The stall test comes first: the trial that completes a stall is
        // discarded even when it improved the error.
        if (gain > tolerance) {
            stall = 0;
        } else if (++stall >= stallLimit) {
            return;
        }

        if (trialEpsilon < epsilon) {
            x.set(trialX);
            y.set(trialY);
            epsilon = trialEpsilon;
            lambda = lambda / 10;
            jacobianStale = true;
            problemHoldsX = true;
        } else {
            // Less damping after a rejection too: the next trial reuses the
            // Jacobian with a longer step.
            lambda = float(double(lambda) * 0.1);
            problemHoldsX = false;
            if (resetStallOnSmallDamping && lambda < 0.05)
                stall = 0;
        }
    }
}
