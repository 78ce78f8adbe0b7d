#include "krovel/KrLMSolver.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <random>
#include <utility>
#include <vector>

namespace {

// A problem whose outputs follow a script (values[e] at evaluation e, the last
// repeated) or, without one, equal x; its Jacobian is a fixed matrix.
class Probe : public KrLMProblem {
public:
    Probe(int ny, int nx, std::vector<float> values = {})
        : jacobian(ny, nx), script(std::move(values)) {}

    void setX(const KrGenVector<float>& x) override {
        current.reference(x);
        states.push_back(x.copy());
    }
    void evalY(KrGenVector<float>& y) override {
        y.resize(jacobian.rows());
        if (script.empty())
            y.set(current);
        else
            y = script[std::min<size_t>(evaluations, script.size() - 1)];
        ++evaluations;
    }
    void evalDy(KrGenMatrix<float>& dy) override {
        ++jacobians;
        dy = jacobian;
    }

    KrGenMatrix<float> jacobian;
    std::vector<float> script;
    KrGenVector<float> current;
    std::vector<KrGenVector<float>> states;
    int evaluations = 0, jacobians = 0;
};

// The settings have no setters; a subclass pins them.
struct PinnedSolver : KrLMSolver {
    explicit PinnedSolver(int iterations) { iterationLimit = iterations; }
};

KrGenVector<float> vec(std::vector<float> v) {
    return KrGenVector<float>(v.data(), int(v.size()), true);
}

// Solves `p` from `x0` towards `goal` and returns the final state.
KrGenVector<float> run(KrLMSolver& s, KrLMProblem& p, const std::vector<float>& x0,
                       const std::vector<float>& goal, const std::vector<float>& trust = {}) {
    s.setProblem(&p);
    s.setGoal(vec(goal));
    s.setState(vec(x0));
    if (!trust.empty())
        s.setTrust(vec(trust));
    s.solve();
    return s.getState();
}

// y = a·exp(b·t) + c at n points of t in [0, 4], with its analytic Jacobian.
class ExpCurve : public KrLMProblem {
public:
    void setX(const KrGenVector<float>& x) override { p = x.copy(); }
    void evalY(KrGenVector<float>& y) override {
        y.resize(40);
        for (int i = 0; i < 40; ++i)
            y(i) = p(0) * std::exp(p(1) * t(i)) + p(2);
    }
    void evalDy(KrGenMatrix<float>& dy) override {
        dy.resize(40, 3);
        for (int i = 0; i < 40; ++i) {
            dy(i, 0) = std::exp(p(1) * t(i));
            dy(i, 1) = p(0) * t(i) * dy(i, 0);
            dy(i, 2) = 1;
        }
    }
    static float t(int i) { return 4.0f * i / 39; }
    KrGenVector<float> p;
};

// In double, independent of the solver.
double residual(const double* q, const std::vector<float>& data) {
    double sum = 0;
    for (size_t i = 0; i < data.size(); ++i)
        sum += std::pow(q[0] * std::exp(q[1] * ExpCurve::t(i)) + q[2] - data[i], 2);
    return std::sqrt(sum);
}

} // namespace

TEST(KrLMSolver, FitsExponentialToExactAndNoisyData) {
    const double truth[3] = {2.0, -0.7, 0.5};
    for (double sigma : {0.0, 0.01}) {
        std::mt19937 rng(7);
        std::normal_distribution<double> noise(0, sigma);
        std::vector<float> goal;
        goal.reserve(40);
        for (int i = 0; i < 40; ++i)
            goal.push_back(float(truth[0] * std::exp(truth[1] * ExpCurve::t(i)) + truth[2] +
                                 (sigma > 0 ? noise(rng) : 0.0)));
        ExpCurve curve;
        KrLMSolver solver;
        const KrGenVector<float> x = run(solver, curve, {1.0f, -0.3f, 0.0f}, goal);
        const double fit[3] = {x(0), x(1), x(2)};
        // The optimum fits the data at least as well as the truth does, up to
        // a few float roundings per output (outputs ≤ 2.5).
        EXPECT_LE(residual(fit, goal),
                  residual(truth, goal) + 4 * FLT_EPSILON * 2.5 * std::sqrt(40.0))
            << sigma;
    }
}

TEST(KrLMSolver, IterationLimitBelowTwoOnlyEvaluates) {
    for (int limit : {1, 0}) {
        Probe p(1, 1);
        PinnedSolver solver(limit);
        EXPECT_EQ(1.0f, run(solver, p, {1.0f}, {5.0f})(0));
        EXPECT_EQ(1u, p.states.size());
        EXPECT_EQ(1, p.evaluations);
        EXPECT_EQ(0, p.jacobians);
    }
}

// No trial is better (the first is equal, the rest worse): λ falls tenfold
// per trial with the Jacobian reused, and six insignificant trials end the
// solve. A slope of 4 makes the normal matrix 16, so only multiplicative
// damping gives step −4 / (16·(1 + λ)).
TEST(KrLMSolver, RejectedTrialsShrinkDampingAndStall) {
    Probe p(1, 1, {1, 1, 2});
    p.jacobian(0, 0) = 4;
    KrLMSolver solver;
    EXPECT_EQ(0.0f, run(solver, p, {0}, {0})(0));
    ASSERT_EQ(7u, p.states.size());
    EXPECT_EQ(1, p.jacobians);
    double lambda = 0.01;
    for (int k = 1; k < 7; ++k, lambda /= 10) {
        const double step = -0.25 / (1 + lambda);
        EXPECT_NEAR(step, p.states[k](0), 2 * FLT_EPSILON * std::fabs(step)) << k;
    }
}

// Gains of 0.01/11 are insignificant but improve the error: five are taken,
// the sixth ends the solve untaken. A gain just above 0.01 restarts the count.
TEST(KrLMSolver, SixthInsignificantImprovementIsNotTaken) {
    for (float bigGain : {0.0099f, 0.0101f}) {
        std::vector<float> values = {10};
        for (int k = 1; k <= 12; ++k)
            values.push_back(values.back() - (k == 6 ? 11 * bigGain : 0.01f));
        Probe p(1, 1, values);
        p.jacobian(0, 0) = -1;
        KrLMSolver solver;
        const KrGenVector<float> x = run(solver, p, {0}, {0});
        const size_t trials = bigGain > 0.01f ? 12 : 6;
        ASSERT_EQ(trials + 1, p.states.size()) << bigGain;
        EXPECT_EQ(int(trials), p.jacobians);
        EXPECT_EQ(p.states[trials - 1](0), x(0));
        EXPECT_NE(p.states[trials](0), x(0));
    }
}

// Trial state of y = x from 0 with one trial.
float firstStep(float goal, const std::vector<float>& trust) {
    Probe p(1, 1);
    p.jacobian(0, 0) = 1;
    PinnedSolver solver(2);
    run(solver, p, {0}, {goal}, trust);
    return p.states.at(1)(0);
}

TEST(KrLMSolver, TrustBoundsTheStepAboveUnitLength) {
    // A goal whose raw step is exactly 1.
    float goal = 1.01f;
    for (int k = 0; k < 64 && firstStep(goal, {}) != 1.0f; ++k)
        goal = std::nextafter(goal, firstStep(goal, {}) < 1.0f ? 2.0f : 0.0f);
    ASSERT_EQ(1.0f, firstStep(goal, {}));
    // A trust of 1/4 scales every quantity exactly, so goal/4 gives a step of
    // exactly one trust unit: squared length 1.0, taken as it is.
    EXPECT_EQ(0.25f, firstStep(goal / 4, {0.25f}));
    const float above = std::nextafter(goal, 2.0f);
    ASSERT_GT(firstStep(above, {}), 1.0f);
    EXPECT_NEAR(0.25, firstStep(above / 4, {0.25f}), 0.25 * FLT_EPSILON);
}

TEST(KrLMSolver, NonFiniteNormalMatrixThrowsNanBeforeInverting) {
    // NaN entry; a product beyond float; a sum that rounds to infinity; a
    // diagonal entry that only damping overflows; infinity.
    const float cases[][2] = {
        {NAN, 0}, {2e19f, 0}, {1.5e19f, 1.5e19f}, {1.84e19f, 0}, {INFINITY, 0}};
    for (const auto& column : cases) {
        Probe p(2, 1, {0});
        p.jacobian(0, 0) = column[0];
        p.jacobian(1, 0) = column[1];
        KrLMSolver solver;
        expectThrows<Exception>([&] { run(solver, p, {3}, {1, 1}); }, "nan");
        EXPECT_EQ(1u, p.states.size()) << column[0];
        EXPECT_EQ(3.0f, solver.getState()(0));
    }
}

TEST(KrLMSolver, ReportsASingularNormalMatrix) {
    // A zero column stays zero under multiplicative damping.
    Probe p(2, 2);
    p.jacobian(0, 0) = p.jacobian(1, 0) = 1;
    KrLMSolver solver;
    const auto solve = [&] { run(solver, p, {0, 0}, {1, 1}); };
    expectThrows<KrMatrixError>(solve, "inverse: singular matrix");
}

TEST(KrLMSolver, ReportsASingularNormalMatrixSolvedInPlaceOrByLapack) {
    // A zero column in the middle: its pivot is reached only after others
    // have been eliminated, on either side of the in-place limit.
    for (int nx : {3, 8, 9}) {
        Probe p(12, nx, {std::vector<float>(12, 0.0f)});
        for (int i = 0; i < 12; ++i)
            for (int k = 0; k < nx; ++k)
                p.jacobian(i, k) = k == nx / 2 ? 0.0f : float(std::sin(1.0 + i * nx + 3 * k));
        KrLMSolver solver;
        const auto solve = [&] {
            run(solver, p, std::vector<float>(nx, 0.0f), std::vector<float>(12, 1.0f));
        };
        expectThrows<KrMatrixError>(solve, "inverse: singular matrix");
        EXPECT_EQ(1u, p.states.size()) << nx;
    }
}

namespace {

// The first damped step (1 + 0.01 on the diagonal, no trust) solved in
// double by elimination with partial pivoting, independent of the solver.
std::vector<double> firstStep(const KrGenMatrix<float>& j, const std::vector<float>& r) {
    const int n = j.cols();
    std::vector<std::vector<double>> a(n, std::vector<double>(n + 1, 0.0));
    for (int p = 0; p < n; ++p) {
        for (int q = 0; q < n; ++q)
            for (int i = 0; i < j.rows(); ++i)
                a[p][q] += double(j(i, p)) * j(i, q);
        a[p][p] *= 1.01;
        for (int i = 0; i < j.rows(); ++i)
            a[p][n] += double(j(i, p)) * r[i];
    }
    for (int c = 0; c < n; ++c) {
        int pivot = c;
        for (int p = c + 1; p < n; ++p)
            if (std::fabs(a[p][c]) > std::fabs(a[pivot][c]))
                pivot = p;
        std::swap(a[c], a[pivot]);
        for (int p = 0; p < n; ++p)
            if (p != c) {
                const double f = a[p][c] / a[c][c];
                for (int q = c; q <= n; ++q)
                    a[p][q] -= f * a[c][q];
            }
    }
    std::vector<double> step(n);
    for (int c = 0; c < n; ++c)
        step[c] = a[c][n] / a[c][c];
    return step;
}

} // namespace

TEST(KrLMSolver, FirstStepIsTheDampedNormalSolutionInEitherLayout) {
    // Column counts 1 to 10 (the fixed-count sums and the general one; the
    // solve in place up to eight, LAPACK beyond), row counts that leave every
    // remainder of four, the Jacobian column-major and row-major.
    std::mt19937 rng(77);
    std::uniform_real_distribution<float> value(-1, 1);
    std::uniform_int_distribution<int> rows(20, 43);
    for (int nx = 1; nx <= 10; ++nx) {
        const int ny = rows(rng);
        KrGenMatrix<float> column(ny, nx, KrGenMatrix<float>::ColumnMajor);
        std::vector<float> goal(ny), residual(ny);
        for (int i = 0; i < ny; ++i) {
            goal[i] = value(rng);
            residual[i] = goal[i]; // the outputs are zero
            for (int k = 0; k < nx; ++k)
                column(i, k) = value(rng);
        }
        const std::vector<double> expected = firstStep(column, residual);
        for (const auto layout : {KrGenMatrix<float>::ColumnMajor, KrGenMatrix<float>::RowMajor}) {
            Probe p(ny, nx, {std::vector<float>(ny, 0.0f)});
            p.jacobian = column.copy(layout);
            PinnedSolver s(2);
            run(s, p, std::vector<float>(nx, 0.0f), goal);
            ASSERT_GE(p.states.size(), 2u);
            double largest = 0;
            for (double e : expected)
                largest = std::max(largest, std::fabs(e));
            // Float sums of about 40 products, then a small solve.
            for (int k = 0; k < nx; ++k)
                EXPECT_NEAR(expected[k], p.states[1](k), 1e-4 * largest)
                    << "nx " << nx << " layout " << layout << " parameter " << k;
        }
    }
}

TEST(KrLMSolver, SixColumnsGiveTheSameStepWhateverTheGoalsLayout) {
    // With a contiguous goal the pair sums and the gradient of a six-column,
    // column-major Jacobian share one walk; a strided goal takes the two
    // separate passes. The first steps must agree to the bit, for every
    // remainder of four rows.
    std::mt19937 rng(606);
    std::uniform_real_distribution<float> value(-2, 2);
    for (int ny = 24; ny < 28; ++ny) {
        KrGenMatrix<float> column(ny, 6, KrGenMatrix<float>::ColumnMajor);
        KrGenMatrix<float> goals(2, ny, KrGenMatrix<float>::ColumnMajor);
        std::vector<float> goal(ny);
        for (int i = 0; i < ny; ++i) {
            goal[i] = goals(0, i) = value(rng);
            for (int k = 0; k < 6; ++k)
                column(i, k) = value(rng);
        }
        const KrGenVector<float> strided = goals.row(0);
        ASSERT_NE(1, strided.stride());
        std::vector<float> steps[2];
        for (int pass = 0; pass < 2; ++pass) {
            Probe p(ny, 6, {std::vector<float>(ny, 0.5f)});
            p.jacobian = column;
            PinnedSolver s(2);
            s.setProblem(&p);
            s.setGoal(pass == 0 ? vec(goal) : strided);
            s.setState(vec(std::vector<float>(6, 0.0f)));
            s.solve();
            ASSERT_GE(p.states.size(), 2u);
            for (int k = 0; k < 6; ++k)
                steps[pass].push_back(p.states[1](k));
        }
        EXPECT_EQ(steps[0], steps[1]) << "ny " << ny;
    }
}
