#include "krovel/Fft.h"

#include "support/ExpectThrows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

namespace {

using cd = std::complex<double>;
constexpr double pi = 3.14159265358979323846;

// The textbook O(n^2) transform in double precision.
std::vector<cd> dft(const std::vector<cd>& x) {
    const size_t n = x.size();
    std::vector<cd> out(n);
    for (size_t k = 0; k < n; ++k) {
        cd sum = 0;
        for (size_t t = 0; t < n; ++t) {
            sum += x[t] * std::polar(1.0, -2 * pi * double((k * t) % n) / double(n));
        }
        out[k] = sum;
    }
    return out;
}

// Direct 2-D transform of a row-major width x height plane.
std::vector<cd> dft2(const std::vector<cd>& x, int w, int h) {
    std::vector<cd> out(x.size());
    for (int v = 0; v < h; ++v) {
        for (int u = 0; u < w; ++u) {
            cd sum = 0;
            for (int r = 0; r < h; ++r) {
                for (int c = 0; c < w; ++c) {
                    const double phase = double((u * c) % w) / w + double((v * r) % h) / h;
                    sum += x[r * w + c] * std::polar(1.0, -2 * pi * phase);
                }
            }
            out[v * w + u] = sum;
        }
    }
    return out;
}

// Largest element error relative to the largest reference magnitude.
double relativeError(const std::vector<float>& re, const std::vector<float>& im,
                     const std::vector<cd>& ref) {
    double err = 0;
    double scale = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        err = std::max(err, std::abs(cd(re[i], im[i]) - ref[i]));
        scale = std::max(scale, std::abs(ref[i]));
    }
    return err / scale;
}

struct Signal {
    std::vector<float> re;
    std::vector<float> im;
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

} // namespace

TEST(fft, MatchesDirectTransformOnEveryPowerOfTwo) {
    for (int log2n = 0; log2n <= 10; ++log2n) {
        Signal s = randomSignal(size_t(1) << log2n, 17 + log2n);
        const std::vector<cd> ref = dft(s.exact);
        fft(s.re.data(), s.im.data(), log2n);
        // Each radix-2 stage adds about one float rounding relative to the
        // largest output; the twiddle recurrence stays within the same order.
        // At n = 1024 this is 2.6e-6, well inside 1e-4.
        const double tolerance = 2 * FLT_EPSILON * (log2n + 1);
        EXPECT_LT(relativeError(s.re, s.im, ref), tolerance) << "n = " << (1 << log2n);
    }
}

TEST(fft, SinglePointIsUnchanged) {
    float re = 2.5f;
    float im = -1.25f;
    fft(&re, &im, 0);
    EXPECT_EQ(2.5f, re);
    EXPECT_EQ(-1.25f, im);
}

TEST(fft, ImpulseGivesAllOnes) {
    for (int log2n : {1, 3, 8}) {
        const int n = 1 << log2n;
        std::vector<float> re(n, 0.0f);
        std::vector<float> im(n, 0.0f);
        re[0] = 1.0f;
        fft(re.data(), im.data(), log2n);
        for (int k = 0; k < n; ++k) {
            EXPECT_EQ(1.0f, re[k]) << "n = " << n << ", k = " << k;
            EXPECT_EQ(0.0f, im[k]) << "n = " << n << ", k = " << k;
        }
    }
}

TEST(fft, ConjugatedTransformScaledByNInverts) {
    const int log2n = 9;
    const int n = 1 << log2n;
    Signal s = randomSignal(n, 5);
    fft(s.re.data(), s.im.data(), log2n);
    for (float& v : s.im) {
        v = -v;
    }
    fft(s.re.data(), s.im.data(), log2n);
    for (int i = 0; i < n; ++i) {
        const cd back(s.re[i] / n, -s.im[i] / n);
        EXPECT_LT(std::abs(back - s.exact[i]), 2 * FLT_EPSILON * (2 * log2n + 1)) << i;
    }
}

TEST(fft, NullArraysAreRefused) {
    float x[2] = {0, 0};
    expectThrows<NullPointerException>([&] { fft(nullptr, x, 1); }, "fft");
    fft(nullptr, nullptr, 0); // a single point needs no data
}

TEST(Fft2, ConstructorDerivesShape) {
    std::vector<float> re(32), im(32);
    const Fft2 f(re.data(), im.data(), 3, 2);
    EXPECT_EQ(8, f.width);
    EXPECT_EQ(4, f.height);
    EXPECT_EQ(32, f.size);
    EXPECT_EQ(3, f.log2Width);
    EXPECT_EQ(2, f.log2Height);
}

TEST(Fft2, ConstructorRefusesBadArguments) {
    float x = 0;
    expectThrows<NullPointerException>([&] { Fft2(nullptr, &x, 0, 0); }, "Fft2: null plane");
    expectThrows<IllegalArgumentException>([&] { Fft2(&x, &x, -1, 0); }, "Fft2: bad size");
    expectThrows<IllegalArgumentException>([&] { Fft2(&x, &x, 16, 15); }, "Fft2: bad size");
}

TEST(Fft2, XformMatchesDirectTransform) {
    // Unequal sides catch a mix-up of rows and columns.
    const int w = 8, h = 4;
    Signal s = randomSignal(w * h, 3);
    const std::vector<cd> ref = dft2(s.exact, w, h);
    const double tolerance = 2 * FLT_EPSILON * (3 + 2 + 1);

    std::vector<float> dre(w * h), dim(w * h);
    Fft2 src(s.re.data(), s.im.data(), 3, 2);
    Fft2 dst(dre.data(), dim.data(), 3, 2);
    Fft2::xform(&src, &dst);
    EXPECT_LT(relativeError(dre, dim, ref), tolerance);
    for (int i = 0; i < w * h; ++i) {
        EXPECT_EQ(cd(s.re[i], s.im[i]), s.exact[i]) << "source changed at " << i;
    }

    Fft2::xform(&src, &src);
    EXPECT_EQ(dre, s.re);
    EXPECT_EQ(dim, s.im);
}

TEST(Fft2, TallColumnMatchesOneDimensionalTransform) {
    // Taller than the stack arrays for a column.
    const int log2h = 12;
    Signal s = randomSignal(size_t(1) << log2h, 11);
    std::vector<float> re = s.re, im = s.im;
    fft(re.data(), im.data(), log2h);
    Fft2 f(s.re.data(), s.im.data(), 0, log2h);
    Fft2::xform(&f, &f);
    EXPECT_EQ(re, s.re);
    EXPECT_EQ(im, s.im);
}

TEST(Fft2, CrosscorWithItselfIsConjugateOfSquare) {
    Signal s = randomSignal(16, 23);
    std::vector<float> ore(16), oim(16);
    Fft2 a(s.re.data(), s.im.data(), 2, 2);
    Fft2 out(ore.data(), oim.data(), 2, 2);
    Fft2::crosscor(&a, &a, &out);
    for (int i = 0; i < 16; ++i) {
        const cd expected = std::conj(s.exact[i] * s.exact[i]);
        const double tolerance = 2 * FLT_EPSILON * std::norm(s.exact[i]);
        EXPECT_NEAR(expected.real(), ore[i], tolerance) << i;
        EXPECT_NEAR(expected.imag(), oim[i], tolerance) << i;
    }

    // Writing over an input gives the same products.
    Fft2::crosscor(&a, &a, &a);
    EXPECT_EQ(ore, s.re);
    EXPECT_EQ(oim, s.im);
}

TEST(Fft2, CorrelationPeaksAtTheShift) {
    const int log2w = 5, log2h = 4, w = 1 << log2w, h = 1 << log2h;
    const int dx = 7, dy = 3;
    std::mt19937 rng(99);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::vector<float> xre(w * h), xim(w * h, 0.0f), yre(w * h), yim(w * h, 0.0f);
    double energy = 0;
    for (float& v : xre) {
        v = u(rng);
        energy += double(v) * v;
    }
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            yre[((r + dy) % h) * w + (c + dx) % w] = xre[r * w + c];
        }
    }
    Fft2 x(xre.data(), xim.data(), log2w, log2h);
    Fft2 y(yre.data(), yim.data(), log2w, log2h);
    Fft2::xform(&x, &x);
    Fft2::xform(&y, &y);
    Fft2::conjugate(&x);
    Fft2::crosscor(&x, &y, &x);
    Fft2::xform(&x, &x);

    int best = 0;
    for (int i = 1; i < w * h; ++i) {
        if (xre[i] > xre[best]) {
            best = i;
        }
    }
    EXPECT_EQ(dx, best % w);
    EXPECT_EQ(dy, best / w);
    // The peak is the pattern's energy: the shifted copy lines up exactly.
    // Three transforms, each within a float rounding a stage.
    const double tolerance = 3 * 2 * FLT_EPSILON * (log2w + log2h + 1) * energy;
    EXPECT_NEAR(energy, xre[best] / (w * h), tolerance);
}

TEST(Fft2, ConjugateAndClear) {
    std::vector<float> re = {1, 2, 3, 4}, im = {-1, 0, 5, -6};
    Fft2 f(re.data(), im.data(), 1, 1);
    Fft2::conjugate(&f);
    EXPECT_EQ((std::vector<float>{1, 2, 3, 4}), re);
    EXPECT_EQ((std::vector<float>{1, -0.0f, -5, 6}), im);

    Fft2::clear(&f, im.data());
    EXPECT_EQ((std::vector<float>{1, 2, 3, 4}), re);
    EXPECT_EQ(std::vector<float>(4, 0.0f), im);

    im = {7, 7, 7, 7};
    Fft2::clear(&f);
    EXPECT_EQ(std::vector<float>(4, 0.0f), re);
    EXPECT_EQ(std::vector<float>(4, 0.0f), im);
}

TEST(Fft2, NullPairsAreRefused) {
    float x = 0;
    Fft2 f(&x, &x, 0, 0);
    expectThrows<NullPointerException>([&] { Fft2::xform(nullptr, &f); }, "Fft2::xform");
    expectThrows<NullPointerException>([&] { Fft2::crosscor(&f, &f, nullptr); }, "Fft2::crosscor");
    expectThrows<NullPointerException>([&] { Fft2::conjugate(nullptr); }, "Fft2::conjugate");
    expectThrows<NullPointerException>([&] { Fft2::clear(&f, nullptr); }, "Fft2::clear");
}

TEST(Fft2, Po2IsTheSmallestCoveringExponent) {
    EXPECT_EQ(0, Fft2::po2(-3));
    EXPECT_EQ(0, Fft2::po2(0));
    EXPECT_EQ(0, Fft2::po2(1));
    EXPECT_EQ(3, Fft2::po2(5));
    EXPECT_EQ(31, Fft2::po2(INT_MAX));
    for (int n = 2; n <= 5000; ++n) {
        const int k = Fft2::po2(n);
        EXPECT_TRUE((1LL << k) >= n && (1LL << (k - 1)) < n) << n;
    }
}

TEST(Fft2, IpowerMultipliesRepeatedly) {
    EXPECT_EQ(1, Fft2::ipower(7, 0));
    EXPECT_EQ(1, Fft2::ipower(7, -2));
    EXPECT_EQ(-27, Fft2::ipower(-3, 3));
    EXPECT_EQ(1 << 30, Fft2::ipower(2, 30));
    for (int b = -5; b <= 5; ++b) {
        for (int e = 1; e <= 8; ++e) {
            EXPECT_EQ(std::lround(std::pow(double(b), e)), Fft2::ipower(b, e)) << b << "^" << e;
        }
    }
    // Sizes past 2^31 wrap to zero, so fft treats them as nothing to do.
    EXPECT_EQ(0, Fft2::ipower(2, 32));
    EXPECT_EQ(0, Fft2::ipower(2, INT_MAX));
}

TEST(Fft2, ScratchBufferIsOneWritableBlock) {
    float* buf = Fft2::getBuf();
    ASSERT_NE(nullptr, buf);
    EXPECT_EQ(buf, Fft2::getBuf());
    buf[0] = 1.0f;
    buf[Fft2::bufSize - 1] = 2.0f;
    EXPECT_EQ(2.0f, Fft2::getBuf()[Fft2::bufSize - 1]);
}
