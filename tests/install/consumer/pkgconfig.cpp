// Compiled and linked with nothing but `pkg-config --cflags --libs tavrix`:
// the frame-name patterns and LAPACK's inverse from the static library.

#include "krovel/KrGenMatrix.h"
#include "krovel/KrInverse.h"
#include "track/Sequence/TrFramePattern.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <string>

int main() {
    const std::string name = expandFramePattern("shots/plate.%05d.exr", 42);
    char printed[64];
    std::snprintf(printed, sizeof printed, "shots/plate.%05d.exr", 42);

    const double v[3][3] = {{2, 1, 0}, {1, 3, 1}, {0, 1, 4}};
    KrGenMatrix<double> a(3, 3);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            a(r, c) = v[r][c];
    const KrGenMatrix<double> inv = inverse(a);
    // The inverse by the adjugate: cofactor (c, r) over the determinant.
    const auto cofactor = [&](int r, int c) {
        const int r0 = (r + 1) % 3, r1 = (r + 2) % 3, c0 = (c + 1) % 3, c1 = (c + 2) % 3;
        return v[r0][c0] * v[r1][c1] - v[r0][c1] * v[r1][c0];
    };
    const double det =
        v[0][0] * cofactor(0, 0) + v[0][1] * cofactor(0, 1) + v[0][2] * cofactor(0, 2);
    double worst = 0;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            worst = std::fmax(worst, std::fabs(inv(r, c) - cofactor(c, r) / det));
    std::printf("pkg-config consumer: %s, inverse within %.3g\n", name.c_str(), worst);
    return name == printed && worst <= 16 * DBL_EPSILON ? 0 : 1;
}
