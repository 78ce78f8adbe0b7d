#include "krovel/KrLMSolver.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

// Fits the affine map (a, b, tx, c, d, ty) taking n points onto their images:
// the shape of the tracker's refinement (six parameters, many outputs).
class AffineFit : public KrLMProblem {
public:
    explicit AffineFit(const std::vector<float>& points) : points(points) {}

    void setX(const KrGenVector<float>& x) override {
        for (int i = 0; i < 6; ++i)
            p[i] = x(i);
    }
    void evalY(KrGenVector<float>& y) override {
        ++evaluations;
        const int n = int(points.size() / 2);
        y.resize(2 * n);
        float* out = y.data();
        for (int i = 0; i < n; ++i) {
            const float u = points[2 * i], v = points[2 * i + 1];
            out[2 * i] = p[0] * u + p[1] * v + p[2];
            out[2 * i + 1] = p[3] * u + p[4] * v + p[5];
        }
    }
    void evalDy(KrGenMatrix<float>& dy) override {
        const int n = int(points.size() / 2);
        dy.resize(2 * n, 6, KrGenMatrix<float>::RowMajor);
        for (int i = 0; i < n; ++i) {
            const float u = points[2 * i], v = points[2 * i + 1];
            float* rx = dy.data() + ptrdiff_t(2 * i) * dy.rowStride();
            float* ry = rx + dy.rowStride();
            const float jx[6] = {u, v, 1, 0, 0, 0};
            const float jy[6] = {0, 0, 0, u, v, 1};
            for (int j = 0; j < 6; ++j) {
                rx[j * dy.colStride()] = jx[j];
                ry[j * dy.colStride()] = jy[j];
            }
        }
    }

    long evaluations = 0;

private:
    std::vector<float> points;
    float p[6] = {1, 0, 0, 0, 1, 0};
};

void BM_SolveAffineFit(benchmark::State& state) {
    const int n = int(state.range(0));
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> coord(-20, 20);
    std::normal_distribution<float> noise(0, 0.05f);
    const float truth[6] = {1.05f, 0.1f, 2.5f, -0.08f, 0.97f, -1.5f};
    std::vector<float> points(2 * n), target(2 * n);
    for (int i = 0; i < n; ++i) {
        const float u = coord(rng), v = coord(rng);
        points[2 * i] = u;
        points[2 * i + 1] = v;
        target[2 * i] = truth[0] * u + truth[1] * v + truth[2] + noise(rng);
        target[2 * i + 1] = truth[3] * u + truth[4] * v + truth[5] + noise(rng);
    }
    AffineFit fit(points);
    KrGenVector<float> goal(target.data(), 2 * n, true);
    const float identity[6] = {1, 0, 0, 0, 1, 0};
    KrGenVector<float> x(6);
    KrLMSolver solver;
    solver.setProblem(&fit);
    solver.setGoal(goal);
    for (auto _ : state) {
        for (int i = 0; i < 6; ++i)
            x(i) = identity[i];
        solver.setState(x);
        solver.solve();
        benchmark::DoNotOptimize(x.data());
    }
    // Evaluations per solve: the initial one and one per trial.
    state.counters["evalY"] = benchmark::Counter(double(fit.evaluations) / state.iterations());
}
BENCHMARK(BM_SolveAffineFit)->Arg(200)->Unit(benchmark::kMicrosecond);

} // namespace
