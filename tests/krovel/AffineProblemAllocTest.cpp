#include "krovel/AffineProblem.h"

#include "image/Format.h"
#include "image/Image.h"

#include "support/AllocationCounting.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <new>

using allocationcount::allocations;
using allocationcount::counting;

using Orvane::GenPoint;
using Orvane::GenRect;
using Orvane::Image;

namespace {

// A smooth texture, the search copy turned by 3 degrees and scaled by 2 %,
// so that every parameter has something to find.
Image sampled(const GenRect<int>& b, double angle, double scale) {
    Image img(b, Orvane::Format("l", Orvane::FLOAT, false));
    float* p;
    img.getBuffer(p);
    const double c = std::cos(angle) / scale, s = std::sin(angle) / scale;
    for (int y = 0; y < b.h; ++y)
        for (int x = 0; x < b.w; ++x) {
            const double u = b.x + x + 0.5 - 0.3, v = b.y + y + 0.5 + 0.2;
            const double tu = c * u + s * v, tv = -s * u + c * v;
            p[y * b.w + x] = float(2 + std::sin(0.61 * tu + 0.23 * tv) +
                                   0.7 * std::sin(-0.17 * tu + 0.53 * tv + 1));
        }
    return img;
}

void place(AffineProblem& p, const Image& pattern, const Image& search, bool allFree, bool coarse) {
    p.setPattern(pattern);
    p.setSearch(search);
    p.setAnchor(GenPoint<float>(0.5f, 0.5f));
    p.setCentre(GenPoint<float>(0.5f, 0.5f));
    p.setUseTranslation(true);
    p.setUseRotation(allFree);
    p.setUseScale(allFree);
    p.setUseStretch(allFree);
    p.setCoarseToFine(coarse);
    p.setXform(AffineTransform());
}

// Runs f with the count on and returns the allocations it made.
template <class F> long allocationsOf(F&& f) {
    allocations = 0;
    counting = true;
    f();
    counting = false;
    return allocations;
}

} // namespace

TEST(AffineProblemAllocation, TheCounterSeesEveryKindOfAllocation) {
    // Without this the zeros below would prove nothing: a matrix block from
    // calloc, an image's store from new and its pixels from new[].
    EXPECT_EQ(1, allocationsOf([] { KrGenVector<float> v(7); }));
    const Orvane::Format f("l", Orvane::FLOAT, false);
    EXPECT_EQ(2, allocationsOf([&] { Image img(GenRect<int>(0, 0, 4, 4), f); }));
}

TEST(AffineProblemAllocation, ASecondExecuteOfTheSameSizesAllocatesNothing) {
    const Image pattern = sampled(GenRect<int>(-10, -10, 21, 21), 0, 1);
    const Image search = sampled(GenRect<int>(-46, -46, 92, 92), 0.05, 1.02);
    AffineProblem p;
    place(p, pattern, search, true, true);
    EXPECT_GT(allocationsOf([&] { p.execute(); }), 0);
    const AffineTransform first = p.getXform();
    place(p, pattern, search, true, true);
    EXPECT_EQ(0, allocationsOf([&] { p.execute(); }));
    EXPECT_EQ(first, p.getXform());
    EXPECT_GT(p.getHalfSizeIterations(), 0);
}

TEST(AffineProblemAllocation, ADriversStepsAllocateNothingAfterTheFirst) {
    // One problem for the translation pass, one for the shape: each sees the
    // same sizes every step, while the search region moves over the frame.
    const Image pattern = sampled(GenRect<int>(-10, -10, 21, 21), 0, 1);
    AffineProblem shift, shape;
    for (int step = 0; step < 4; ++step) {
        const Image search = sampled(GenRect<int>(-46 + 3 * step, -46 - step, 92, 92), 0.05, 1.02);
        const long made = allocationsOf([&] {
            place(shift, pattern, search, false, false);
            shift.execute();
            place(shape, pattern, search, true, true);
            shape.setXform(shift.getXform());
            shape.execute();
        });
        if (step > 0) {
            EXPECT_EQ(0, made) << "step " << step;
        }
    }
}
