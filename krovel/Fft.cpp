#include "krovel/Fft.h"

#include "base/Exception.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace {

void checkPair(const Fft2* f, const char* who) {
    if (f == nullptr || (f->size > 0 && (f->re == nullptr || f->im == nullptr))) {
        throw NullPointerException(who);
    }
}

// Columns up to this height are gathered into stack arrays.
constexpr int stackColumn = 2048;

} // namespace

void fft(float* re, float* im, int log2n) {
    const int n = Fft2::ipower(2, log2n);
    if (n < 2) {
        return;
    }
    if (re == nullptr || im == nullptr) {
        throw NullPointerException("fft");
    }

    for (int i = 1, j = 0; i < n; ++i) {
        int k = n;
        do {
            k /= 2;
        } while (j + k >= n);
        j = j % k + k;
        if (i < j) {
            std::swap(re[i], re[j]);
            std::swap(im[i], im[j]);
        }
    }

    for (int m = 1; m < n; m *= 2) {
        const float theta = 3.1415927f / m;
        const double h = std::sin(theta / 2.0);
        // Two trigonometric calls a stage. The twiddle advances through the
        // small increments p and q rather than by multiplying w by e^(-i theta),
        // which loses less precision in float.
        const float twoH2 = static_cast<float>(2.0 * h * h);
        const float d = twoH2 * -2.0f;
        float p = twoH2;
        float q = -std::sin(theta);
        float wr = 1.0f;
        float wi = 0.0f;
        for (int k = 0; k < m; ++k) {
            for (int i = k; i < n; i += 2 * m) {
                const int j = i + m;
                const float tr = wr * re[j] - wi * im[j];
                const float ti = re[j] * wi + im[j] * wr;
                re[j] = re[i] - tr;
                im[j] = im[i] - ti;
                re[i] += tr;
                im[i] += ti;
            }
            p += d * wr;
            wr += p;
            q += d * wi;
            wi += q;
        }
    }
}

Fft2::Fft2(float* re, float* im, int log2Width, int log2Height) {
    if (re == nullptr || im == nullptr) {
        throw NullPointerException("Fft2: null plane");
    }
    if (log2Width < 0 || log2Height < 0 || log2Width + log2Height > 30) {
        throw IllegalArgumentException("Fft2: bad size");
    }
    this->re = re;
    this->im = im;
    this->log2Width = log2Width;
    this->log2Height = log2Height;
    width = ipower(2, log2Width);
    height = ipower(2, log2Height);
    size = width * height;
}

void Fft2::xform(Fft2* src, Fft2* dst) {
    checkPair(src, "Fft2::xform");
    checkPair(dst, "Fft2::xform");
    assertCompatible(src, dst);

    const int w = src->width;
    for (int r = 0; r < src->height; ++r) {
        const float* sre = src->re + static_cast<std::ptrdiff_t>(r) * w;
        const float* sim = src->im + static_cast<std::ptrdiff_t>(r) * w;
        float* dre = dst->re + static_cast<std::ptrdiff_t>(r) * dst->width;
        float* dim = dst->im + static_cast<std::ptrdiff_t>(r) * dst->width;
        if (sre != dre) {
            std::copy(sre, sre + w, dre);
        }
        if (sim != dim) {
            std::copy(sim, sim + w, dim);
        }
        fft(dre, dim, src->log2Width);
    }

    const int h = dst->height;
    const std::ptrdiff_t stride = dst->width;
    float stackRe[stackColumn];
    float stackIm[stackColumn];
    std::vector<float> heap;
    float* colRe = stackRe;
    float* colIm = stackIm;
    if (h > stackColumn) {
        heap.resize(2 * static_cast<size_t>(h));
        colRe = heap.data();
        colIm = colRe + h;
    }
    for (int c = 0; c < dst->width; ++c) {
        float* pre = dst->re + c;
        float* pim = dst->im + c;
        for (int r = 0; r < h; ++r) {
            colRe[r] = pre[r * stride];
            colIm[r] = pim[r * stride];
        }
        fft(colRe, colIm, dst->log2Height);
        for (int r = 0; r < h; ++r) {
            pre[r * stride] = colRe[r];
            pim[r * stride] = colIm[r];
        }
    }
}

void Fft2::crosscor(Fft2* a, Fft2* b, Fft2* out) {
    checkPair(a, "Fft2::crosscor");
    checkPair(b, "Fft2::crosscor");
    checkPair(out, "Fft2::crosscor");
    for (int r = 0; r < a->height; ++r) {
        const float* are = a->re + static_cast<std::ptrdiff_t>(r) * a->width;
        const float* aim = a->im + static_cast<std::ptrdiff_t>(r) * a->width;
        const float* bre = b->re + static_cast<std::ptrdiff_t>(r) * b->width;
        const float* bim = b->im + static_cast<std::ptrdiff_t>(r) * b->width;
        float* ore = out->re + static_cast<std::ptrdiff_t>(r) * out->width;
        float* oim = out->im + static_cast<std::ptrdiff_t>(r) * out->width;
        for (int c = 0; c < a->width; ++c) {
            // Read all four inputs first: out may be a or b.
            const float ar = are[c];
            const float ai = aim[c];
            const float br = bre[c];
            const float bi = bim[c];
            ore[c] = ar * br - ai * bi;
            oim[c] = -(ai * br + ar * bi);
        }
    }
}

void Fft2::conjugate(Fft2* f) {
    checkPair(f, "Fft2::conjugate");
    float* im = f->im;
    for (int i = 0; i < f->size; ++i) {
        im[i] = -im[i];
    }
}

void Fft2::clear(Fft2* f) {
    checkPair(f, "Fft2::clear");
    std::fill(f->re, f->re + f->size, 0.0f);
    std::fill(f->im, f->im + f->size, 0.0f);
}

void Fft2::clear(Fft2* f, float* plane) {
    checkPair(f, "Fft2::clear");
    if (plane == nullptr && f->size > 0) {
        throw NullPointerException("Fft2::clear");
    }
    std::fill(plane, plane + f->size, 0.0f);
}

void Fft2::assertCompatible(Fft2*, Fft2*) {}

int Fft2::po2(int n) {
    int k = 0;
    long long p = 1;
    while (p < n) {
        p *= 2;
        ++k;
    }
    return k;
}

int Fft2::ipower(int b, int e) {
    // Unsigned arithmetic wraps instead of overflowing.
    unsigned r = 1;
    for (int i = 0; i < e; ++i) {
        r *= static_cast<unsigned>(b);
        if (r == 0) {
            break;
        }
    }
    return static_cast<int>(r);
}

float* Fft2::getBuf() {
    static float buffer[bufSize];
    return buffer;
}
