#include "track/TrAttribute.h"

#include <algorithm>

namespace {

// a + ((b - a) * num) / den, in that order, per component. The order is part
// of the result: keys written by one build read back bit for bit in another.
double _interpolate(double a, double b, double num, double den) {
    return a + ((b - a) * num) / den;
}

Orvane::GenPoint<double> _interpolate(const Orvane::GenPoint<double>& a,
                                      const Orvane::GenPoint<double>& b, double num, double den) {
    return Orvane::GenPoint<double>(_interpolate(a.x, b.x, num, den),
                                    _interpolate(a.y, b.y, num, den));
}

Orvane::GenRect<double> _interpolate(const Orvane::GenRect<double>& a,
                                     const Orvane::GenRect<double>& b, double num, double den) {
    return Orvane::GenRect<double>(
        _interpolate(a.x, b.x, num, den), _interpolate(a.y, b.y, num, den),
        _interpolate(a.w, b.w, num, den), _interpolate(a.h, b.h, num, den));
}

// The transform's own float arithmetic. Frame differences below 2^24 narrow
// to float exactly, which covers any real shot.
AffineTransform _interpolate(const AffineTransform& a, const AffineTransform& b, double num,
                             double den) {
    return a + ((b - a) * static_cast<float>(num)) / static_cast<float>(den);
}

} // namespace

template <class T> TrAttributeImpl<T>::TrAttributeImpl(TrNode* owner) {
    this->setOwner(owner);
}

template <class T> TrAttributeImpl<T>::~TrAttributeImpl() = default;

template <class T> int TrAttributeImpl<T>::findKey(int frame) {
    const int n = keys.getCount();
    if (n == 0)
        return -1;
    int i = 0;
    while (i < n && keys[i].frame < frame)
        ++i;
    return i;
}

template <class T> bool TrAttributeImpl<T>::isKeyed(int frame) {
    const int i = findKey(frame);
    return i >= 0 && i < keys.getCount() && keys[i].frame == frame;
}

template <class T> bool TrAttributeImpl<T>::firstKey(int& frame) {
    if (keys.getCount() == 0)
        return false;
    frame = keys[0].frame;
    return true;
}

template <class T> bool TrAttributeImpl<T>::lastKey(int& frame) {
    const int n = keys.getCount();
    if (n == 0)
        return false;
    frame = keys[n - 1].frame;
    return true;
}

template <class T> T TrAttributeImpl<T>::getValue(int frame) {
    const int n = keys.getCount();
    if (n == 0)
        return value;
    const int i = findKey(frame);
    if (i == 0)
        return keys[0].value;
    if (i == n)
        return keys[n - 1].value;
    const TrAttributeKey<T>& a = keys[i - 1];
    const TrAttributeKey<T>& b = keys[i];
    if (b.frame == frame)
        return b.value;
    // Differences taken in double, so frames far apart cannot overflow.
    return _interpolate(a.value, b.value, static_cast<double>(frame) - a.frame,
                        static_cast<double>(b.frame) - a.frame);
}

template <class T> void TrAttributeImpl<T>::setValue(int frame, const T& v) {
    int i = findKey(frame);
    if (i < 0)
        i = 0;
    if (i < keys.getCount() && keys[i].frame == frame) {
        keys[i].value = v;
        return;
    }
    TrAttributeKey<T> key;
    key.value = v;
    key.frame = frame;
    // A tracked curve gains a key a frame: doubling the room, from room for
    // a short shot, keeps that from reallocating every frame.
    if (keys.getCount() == keys.getCapacity())
        keys.reserve(std::max(32, 2 * keys.getCount()));
    keys.insert(key, i);
}

template <class T> void TrAttributeImpl<T>::setValue(const T& v) {
    keys.clear();
    value = v;
}

template <class T> void TrAttributeImpl<T>::clearValue(int frame) {
    const int i = findKey(frame);
    if (i < 0)
        return;
    // Past the last key i equals the key count, and the checked read throws
    // BadIndexException instead of doing nothing. That is kept on purpose.
    if (keys[i].frame != frame)
        return;
    keys.remove(i);
}

template class TrAttributeImpl<Orvane::GenPoint<double>>;
template class TrAttributeImpl<Orvane::GenRect<double>>;
template class TrAttributeImpl<AffineTransform>;
template class TrAttributeImpl<double>;
