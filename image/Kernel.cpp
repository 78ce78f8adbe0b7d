#include "image/Kernel.h"

#include "base/Exception.h"

#include <cmath>

namespace Orvane {

namespace {

constexpr double gaussianFloor = 0.006329715427485747;

bool validShape(int radius, int bits) {
    return radius >= 1 && bits >= 0 && bits <= 16 && (int64_t(2) * radius << bits) <= (1 << 24);
}

} // namespace

template <class T>
kernel<T>::kernel(int radius, int bits, T amplitude)
    : table(build(radius, bits, amplitude)), first(-(radius << bits)), count((2 * radius) << bits),
      radius(radius), bits(bits), amplitude(amplitude) {}

template <class T> const T* kernel<T>::build(int radius, int bits, T amplitude) {
    if (!validShape(radius, bits))
        throw IllegalArgumentException("kernel: radius or bits out of range");
    int n = (2 * radius) << bits;
    T* t = new T[n]();
    double steps = double(1 << bits);
    for (int i = 0; i < n; ++i) {
        double u = (i / steps - radius) * 1.5;
        t[i] = static_cast<T>((std::exp(-u * u) - gaussianFloor) * amplitude);
    }
    return t;
}

template class kernel<int>;
template class kernel<float>;

const kernel<int>& getIntKern() {
    static const kernel<int> k(3, 10, 256);
    return k;
}

const kernel<float>& getFloatKern() {
    static const kernel<float> k(3, 10, 256.0f);
    return k;
}

const int& getFixOne() {
    static const int one = 65536;
    return one;
}

} // namespace Orvane
