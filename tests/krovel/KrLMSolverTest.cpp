#include "krovel/KrLMSolver.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <typeinfo>
#include <vector>

namespace {

// A problem whose outputs the test dictates (by evaluation count or from x)
// and whose Jacobian is a fixed matrix. As a problem may, it keeps handles on
// the states it is given and hands out its own output storage.
class Probe : public KrLMProblem {
public:
    Probe(int ny, int nx) : jacobian(ny, nx) {}

    void setX(const KrGenVector<float>& x) override {
        current.reference(x);
        states.push_back(x);
    }
    void evalY(KrGenVector<float>& y) override {
        own.resize(jacobian.rows());
        output(current, evaluations++, own);
        y.reference(own);
    }
    void evalDy(KrGenMatrix<float>& dy) override {
        ++jacobians;
        dy = jacobian;
    }

    std::function<void(const KrGenVector<float>&, int, KrGenVector<float>&)> output =
        [](const KrGenVector<float>& x, int, KrGenVector<float>& y) { y.set(x); };
    KrGenMatrix<float> jacobian;
    KrGenVector<float> current;
    KrGenVector<float> own;
    std::vector<KrGenVector<float>> states;
    int evaluations = 0;
    int jacobians = 0;
};

// One parameter whose outputs follow a script: values[e] at evaluation e.
void script(Probe& p, std::vector<float> values) {
    p.output = [values](const KrGenVector<float>&, int e, KrGenVector<float>& y) {
        y(0) = values[std::min<size_t>(e, values.size() - 1)];
    };
}

// The settings have no setters; a subclass pins them.
class PinnedSolver : public KrLMSolver {
public:
    explicit PinnedSolver(int iterations = 75, bool resetStall = false) {
        iterationLimit = iterations;
        resetStallOnSmallDamping = resetStall;
    }
};

KrGenVector<float> vec(std::vector<float> v) {
    return KrGenVector<float>(v.data(), int(v.size()), true);
}

// Solves `p` from `x0` towards `goal` and returns the final state.
KrGenVector<float> run(KrLMSolver& s, KrLMProblem& p, std::vector<float> x0,
                       std::vector<float> goal, std::vector<float> trust = {}) {
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
    explicit ExpCurve(int n) : t(n) {
        for (int i = 0; i < n; ++i)
            t[i] = 4.0 * i / (n - 1);
    }
    void setX(const KrGenVector<float>& x) override { p = x.copy(); }
    void evalY(KrGenVector<float>& y) override {
        y.resize(int(t.size()));
        for (size_t i = 0; i < t.size(); ++i)
            y(int(i)) = p(0) * std::exp(p(1) * float(t[i])) + p(2);
    }
    void evalDy(KrGenMatrix<float>& dy) override {
        dy.resize(int(t.size()), 3);
        for (size_t i = 0; i < t.size(); ++i) {
            const float e = std::exp(p(1) * float(t[i]));
            dy(int(i), 0) = e;
            dy(int(i), 1) = p(0) * float(t[i]) * e;
            dy(int(i), 2) = 1;
        }
    }

    // In double, independent of the solver: the residual norm, and the
    // diagonal of (JᵀJ)⁻¹, which turns output distance into parameter distance.
    double residual(const double* q, const std::vector<double>& data) const {
        double sum = 0;
        for (size_t i = 0; i < t.size(); ++i)
            sum += std::pow(q[0] * std::exp(q[1] * t[i]) + q[2] - data[i], 2);
        return std::sqrt(sum);
    }
    std::vector<double> covarianceDiagonal(const double* q) const {
        double m[3][3] = {};
        for (double ti : t) {
            const double j[3] = {std::exp(q[1] * ti), q[0] * ti * std::exp(q[1] * ti), 1};
            for (int r = 0; r < 3; ++r)
                for (int c = 0; c < 3; ++c)
                    m[r][c] += j[r] * j[c];
        }
        const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
        return {(m[1][1] * m[2][2] - m[1][2] * m[2][1]) / det,
                (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det,
                (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det};
    }
    std::vector<double> t;
    KrGenVector<float> p;
};

const double truth[3] = {2.0, -0.7, 0.5};

} // namespace

TEST(KrLMSolver, FitsExponentialToExactAndNoisyData) {
    for (double sigma : {0.0, 0.01}) {
        ExpCurve curve(40);
        std::mt19937 rng(7);
        std::normal_distribution<double> noise(0, sigma);
        std::vector<double> data;
        std::vector<float> goal;
        for (double t : curve.t) {
            const double n = sigma > 0 ? noise(rng) : 0.0;
            goal.push_back(float(truth[0] * std::exp(truth[1] * t) + truth[2] + n));
            data.push_back(goal.back());
        }
        KrLMSolver solver;
        KrGenVector<float> x = run(solver, curve, {1.0f, -0.3f, 0.0f}, goal);
        const double fit[3] = {x(0), x(1), x(2)};

        // The optimum fits the data at least as well as the truth does; the
        // fit must match that up to a few float roundings per output (≤ 2.5).
        const double floor = 4 * FLT_EPSILON * 2.5 * std::sqrt(40.0);
        const double truthResidual = curve.residual(truth, data);
        const double fitResidual = curve.residual(fit, data);
        EXPECT_LE(fitResidual, truthResidual + floor) << sigma;
        // With noise the estimate has covariance σ²(JᵀJ)⁻¹: allow 4 deviations.
        // Without, an output distance d moves parameter j by at most √C_jj·d.
        const std::vector<double> c = curve.covarianceDiagonal(truth);
        for (int j = 0; j < 3; ++j) {
            const double tolerance = sigma > 0
                                         ? 4 * sigma * std::sqrt(c[j])
                                         : 2 * std::sqrt(c[j]) * (fitResidual + truthResidual);
            EXPECT_NEAR(fit[j], truth[j], tolerance) << sigma << " " << j;
        }
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
    Probe p(1, 1);
    p.jacobian(0, 0) = 4;
    script(p, {1, 1, 2});
    KrLMSolver solver;
    KrGenVector<float> x0 = vec({0});
    solver.setProblem(&p);
    solver.setGoal(vec({0}));
    solver.setState(x0);
    solver.solve();

    ASSERT_EQ(7u, p.states.size());
    EXPECT_EQ(1, p.jacobians);
    double lambda = 0.01;
    for (int k = 1; k < 7; ++k, lambda /= 10) {
        const double step = -0.25 / (1 + lambda);
        EXPECT_NEAR(step, p.states[k](0), 2 * FLT_EPSILON * std::fabs(step)) << k;
    }
    EXPECT_EQ(0.0f, x0(0));

    // Restarting the stall count after small damping runs to the limit.
    Probe q(1, 1);
    q.jacobian(0, 0) = 1;
    script(q, {1, 2});
    PinnedSolver patient(75, true);
    run(patient, q, {0}, {0});
    EXPECT_EQ(75u, q.states.size());
    EXPECT_EQ(1, q.jacobians);
}

// Gains of 0.01/11 are insignificant but improve the error: five are taken,
// the sixth ends the solve untaken. A gain just above 0.01 restarts the count.
TEST(KrLMSolver, SixthInsignificantImprovementIsNotTaken) {
    for (float bigGain : {0.0099f, 0.0101f}) {
        Probe p(1, 1);
        p.jacobian(0, 0) = -1;
        std::vector<float> values = {10};
        for (int k = 1; k <= 12; ++k)
            values.push_back(values.back() - (k == 6 ? 11 * bigGain : 0.01f));
        script(p, values);
        KrLMSolver solver;
        KrGenVector<float> x = run(solver, p, {0}, {0});
        const size_t trials = bigGain > 0.01f ? 12 : 6;
        ASSERT_EQ(trials + 1, p.states.size()) << bigGain;
        EXPECT_EQ(int(trials), p.jacobians);
        EXPECT_EQ(p.states[trials - 1](0), x(0));
        EXPECT_NE(p.states[trials](0), x(0));
    }
}

// A Jacobian ten times too steep shrinks the error by about a tenth a trial:
// every trial is significant and accepted until the limit.
TEST(KrLMSolver, SteadyProgressEndsAtTheIterationLimit) {
    Probe p(1, 1);
    p.jacobian(0, 0) = 10;
    KrLMSolver solver;
    KrGenVector<float> x = run(solver, p, {0}, {1000});
    EXPECT_EQ(75u, p.states.size());
    EXPECT_EQ(74, p.jacobians);
    EXPECT_EQ(p.states.back()[0], x(0));
    // Each trial leaves 1 − 1/(10·(1 + λ)) of the error, λ falling tenfold;
    // every trial rounds the state near 1000 by up to half a float unit.
    double left = 1000, lambda = 0.01;
    for (int k = 0; k < 74; ++k, lambda /= 10)
        left *= 1 - 1 / (10 * (1 + lambda));
    EXPECT_NEAR(left, 1000 - x(0), 74 * 1000 * FLT_EPSILON);
}

// Trial state of y = x from 0 with one trial.
float firstStep(float goal, std::vector<float> trust) {
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

    // Inside a unit step trust changes nothing; beyond it the step is one
    // trust unit; without trust the step is unbounded.
    EXPECT_NEAR(0.1 / 1.01, firstStep(0.1f, {0.25f}), 0.1 * FLT_EPSILON);
    EXPECT_NEAR(0.25, firstStep(0.5f, {0.25f}), 0.25 * FLT_EPSILON);
    EXPECT_NEAR(0.25, firstStep(0.28f, {0.25f}), 0.25 * FLT_EPSILON); // squared length 1.23
    EXPECT_NEAR(1000 / 1.01, firstStep(1000.0f, {}), 1000 * FLT_EPSILON);

    // In two parameters the step measured in trust units has unit length and
    // keeps the direction of the damped Gauss-Newton step.
    Probe p(2, 2);
    p.jacobian(0, 0) = 2;
    p.jacobian(1, 1) = 3;
    PinnedSolver solver(2);
    const float t[2] = {0.5f, 4.0f};
    run(solver, p, {1, 1}, {9, -5}, {t[0], t[1]});
    const double u0 = (p.states[1](0) - 1) / t[0], u1 = (p.states[1](1) - 1) / t[1];
    EXPECT_NEAR(1.0, std::hypot(u0, u1), 4 * FLT_EPSILON);
    const double raw0 = 8.0 / (2 * t[0]), raw1 = -6.0 / (3 * t[1]);
    EXPECT_NEAR(raw1 / raw0, u1 / u0, 8 * FLT_EPSILON * std::fabs(raw1 / raw0));
}

TEST(KrLMSolver, NonFiniteNormalMatrixThrowsNanBeforeInverting) {
    const float inf = std::numeric_limits<float>::infinity();
    // NaN entry; a product beyond float; a sum that rounds to infinity; a
    // diagonal entry that only damping overflows.
    const std::vector<std::vector<float>> cases = {
        {std::nanf(""), 0}, {2e19f, 0}, {1.5e19f, 1.5e19f}, {1.84e19f, 0}, {inf, 0}};
    for (const auto& column : cases) {
        Probe p(2, 1);
        p.output = [](const KrGenVector<float>&, int, KrGenVector<float>& y) { y = 0.0f; };
        p.jacobian(0, 0) = column[0];
        p.jacobian(1, 0) = column[1];
        KrLMSolver solver;
        KrGenVector<float> x0 = vec({3});
        solver.setProblem(&p);
        solver.setGoal(vec({1, 1}));
        solver.setState(x0);
        // Exactly the base class, which expectThrows cannot single out.
        try {
            solver.solve();
            ADD_FAILURE() << "no exception for " << column[0];
        } catch (const Exception& e) {
            EXPECT_EQ(typeid(Exception), typeid(e));
            EXPECT_STREQ("nan", e.what());
        }
        EXPECT_EQ(1u, p.states.size()) << column[0];
        EXPECT_EQ(3.0f, x0(0));
    }
}

// A zero column stays zero under multiplicative damping.
TEST(KrLMSolver, SingularNormalMatrixIsReported) {
    Probe p(2, 2);
    p.jacobian(0, 0) = 1;
    p.jacobian(1, 0) = 1;
    KrLMSolver solver;
    expectThrows<KrMatrixError>(
        [&] {
            run(solver, p, {0, 0}, {1, 1});
        },
        "inverse: singular matrix");
}

TEST(KrLMSolver, CallerVectorsShareTheSolversStorage) {
    // The state is a strided column of the caller's matrix.
    KrGenMatrix<float> columns(3, 2, KrGenMatrix<float>::RowMajor);
    columns = 7.0f;
    KrGenVector<float> goal = vec({0, 0, 0});
    Probe p(3, 3);
    for (int i = 0; i < 3; ++i)
        p.jacobian(i, i) = 1;
    KrLMSolver solver;
    solver.setProblem(&p);
    solver.setGoal(goal);
    solver.setState(columns.column(1));
    goal(0) = 1; // set after setGoal: the solver sees it
    goal(1) = 2;
    goal(2) = 3;
    solver.solve();
    for (int i = 0; i < 3; ++i) {
        // A linear problem: each accepted step leaves λ/(1 + λ) of the error,
        // so float rounding is all that remains.
        EXPECT_NEAR(i + 1.0, columns(i, 1), 2 * FLT_EPSILON * (i + 1)) << i;
        EXPECT_EQ(columns(i, 1), solver.getState()(i));
        EXPECT_EQ(7.0f, columns(i, 0));
    }
    // A second solve starts from the state reached.
    p.states.clear();
    solver.solve();
    EXPECT_EQ(columns(0, 1), p.states.at(0)(0));
}

TEST(KrLMSolver, ReportsMisuse) {
    KrLMSolver solver;
    solver.setGoal(vec({1, 2, 3}));
    EXPECT_EQ(5.0f, solver.computeEpsilon(vec({4, 6, 3})));
    expectThrows<KrMatrixError>(
        [&] {
            solver.computeEpsilon(vec({1, 2, 3, 4}));
        },
        "KrVector index 3 out of range 2");
    expectThrows<NullPointerException>([&] { solver.solve(); }, "KrLMSolver::solve: no problem");

    Probe narrow(2, 1), fewRows(1, 2);
    expectThrows<KrMatrixError>(
        [&] {
            run(solver, narrow, {0, 0}, {1, 1});
        },
        "KrMatrix col 1 out of range 0..0");
    fewRows.output = [](const KrGenVector<float>&, int, KrGenVector<float>& y) { y = 0.0f; };
    expectThrows<KrMatrixError>(
        [&] {
            run(solver, fewRows, {0, 0}, {1, 1});
        },
        "KrMatrix row 1 out of range 0..0");
}
