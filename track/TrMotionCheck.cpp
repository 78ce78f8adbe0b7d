#include "track/TrMotionCheck.h"

#include <algorithm>
#include <cmath>

void TrMotionCheck::reset() {
    count = 0;
    next = 0;
}

void TrMotionCheck::learn(const Orvane::GenPoint<double>& miss) {
    squares[size_t(next)] = miss.x * miss.x + miss.y * miss.y;
    next = (next + 1) % kHistory;
    count = std::min(count + 1, kHistory);
}

double TrMotionCheck::spread() const {
    if (count == 0)
        return 0;
    double sum = 0;
    for (int k = 0; k < count; ++k)
        sum += squares[size_t(k)];
    return std::sqrt(sum / count);
}

bool TrMotionCheck::agrees(const Orvane::GenPoint<double>& miss, double spreads, double floor,
                           double widen) const {
    if (count < 3)
        return true;
    const double reach = std::max(floor, spreads * spread()) * widen;
    // Not finite fails too: a NaN position is no agreement.
    return std::hypot(miss.x, miss.y) <= reach;
}
