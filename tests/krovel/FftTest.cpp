#include "krovel/Fft.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

namespace {

using cd = std::complex<double>;
constexpr double pi = 3.14159265358979323846;

struct Signal {
    std::vector<float> re, im;
    std::vector<cd> exact;
};

Signal randomSignal(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    Signal s;
    for (size_t i = 0; i < n; ++i) {
        s.re.push_back(u(rng));
        s.im.push_back(u(rng));
        s.exact.emplace_back(s.re.back(), s.im.back());
    }
    return s;
}

// The textbook transform of a row-major w by h plane, in double precision.
std::vector<cd> dft(const std::vector<cd>& x, int w, int h = 1) {
    std::vector<cd> out(x.size());
    for (int v = 0; v < h; ++v)
        for (int u = 0; u < w; ++u)
            for (int r = 0; r < h; ++r)
                for (int c = 0; c < w; ++c) {
                    const double phase = double((u * c) % w) / w + double((v * r) % h) / h;
                    out[v * w + u] += x[r * w + c] * std::polar(1.0, -2 * pi * phase);
                }
    return out;
}

// Largest element error relative to the largest reference magnitude.
double relativeError(const std::vector<float>& re, const std::vector<float>& im,
                     const std::vector<cd>& ref) {
    double err = 0, scale = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        err = std::max(err, std::abs(cd(re[i], im[i]) - ref[i]));
        scale = std::max(scale, std::abs(ref[i]));
    }
    return err / scale;
}

} // namespace

TEST(fft, MatchesDirectTransformOnEveryPowerOfTwo) {
    for (int log2n = 0; log2n <= 10; ++log2n) {
        Signal s = randomSignal(size_t(1) << log2n, 17 + log2n);
        const std::vector<cd> ref = dft(s.exact, 1 << log2n);
        fft(s.re.data(), s.im.data(), log2n);
        // Each radix-2 stage adds about one float rounding relative to the
        // largest output; the twiddle recurrence stays within the same order.
        EXPECT_LT(relativeError(s.re, s.im, ref), 2 * FLT_EPSILON * (log2n + 1)) << log2n;
    }
}

TEST(fft, ImpulseGivesAllOnesAndTheConjugateTransformInverts) {
    std::vector<float> re(256, 0.0f), im(256, 0.0f);
    re[0] = 1.0f;
    fft(re.data(), im.data(), 8);
    EXPECT_EQ(std::vector<float>(256, 1.0f), re);
    EXPECT_EQ(std::vector<float>(256, 0.0f), im);

    const int log2n = 9, n = 1 << log2n;
    Signal s = randomSignal(n, 5);
    fft(s.re.data(), s.im.data(), log2n);
    for (float& v : s.im)
        v = -v;
    fft(s.re.data(), s.im.data(), log2n);
    for (int i = 0; i < n; ++i)
        EXPECT_LT(std::abs(cd(s.re[i] / n, -s.im[i] / n) - s.exact[i]),
                  2 * FLT_EPSILON * (2 * log2n + 1))
            << i;
}

TEST(Fft2, XformMatchesDirectTransform) {
    // Unequal sides catch a mix-up of rows and columns.
    const int w = 8, h = 4;
    Signal s = randomSignal(w * h, 3);
    std::vector<float> dre(w * h), dim(w * h);
    Fft2 src(s.re.data(), s.im.data(), 3, 2), dst(dre.data(), dim.data(), 3, 2);
    Fft2::xform(&src, &dst);
    EXPECT_LT(relativeError(dre, dim, dft(s.exact, w, h)), 2 * FLT_EPSILON * (3 + 2 + 1));
}

TEST(Fft2, CorrelationPeaksAtTheShift) {
    const int log2w = 5, log2h = 4, w = 1 << log2w, h = 1 << log2h, dx = 7, dy = 3;
    Signal s = randomSignal(w * h, 99);
    std::vector<float> xim(w * h, 0.0f), yre(w * h), yim(w * h, 0.0f);
    double energy = 0;
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) {
            yre[((r + dy) % h) * w + (c + dx) % w] = s.re[r * w + c];
            energy += double(s.re[r * w + c]) * s.re[r * w + c];
        }
    Fft2 x(s.re.data(), xim.data(), log2w, log2h), y(yre.data(), yim.data(), log2w, log2h);
    Fft2::xform(&x, &x);
    Fft2::xform(&y, &y);
    Fft2::conjugate(&x);
    Fft2::crosscor(&x, &y, &x);
    Fft2::xform(&x, &x);
    const int best = int(std::max_element(s.re.begin(), s.re.end()) - s.re.begin());
    EXPECT_EQ(dx, best % w);
    EXPECT_EQ(dy, best / w);
    // The peak is the pattern's energy; three transforms, each within a float
    // rounding a stage.
    EXPECT_NEAR(energy, s.re[best] / (w * h), 6 * FLT_EPSILON * (log2w + log2h + 1) * energy);
}

TEST(Fft2, RefusesANullPlaneAndBadSizes) {
    float x[2] = {0, 0};
    expectThrows<NullPointerException>([&] { fft(nullptr, x, 1); }, "fft");
    expectThrows<IllegalArgumentException>([&] { Fft2(x, x, -1, 0); }, "Fft2: bad size");
    expectThrows<IllegalArgumentException>([&] { Fft2(x, x, 16, 15); }, "Fft2: bad size");
}
