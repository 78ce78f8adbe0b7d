#include "krovel/KrGenVector.h"

#include <utility>

template <class T> KrGenVector<T>::KrGenVector(int n, T value) {
    if (n < 0) {
        KrMatrixError::err("KrVector length %d must be nonnegative", n);
        return;
    }
    block = KrGenBlockRef<T>(n);
    len = n;
    origin = block.get();
    Krovel::_fillLine(origin, 1, n, value);
}

template <class T> KrGenVector<T>::KrGenVector(T* data, int n, bool copy) {
    if (n < 0) {
        KrMatrixError::err("KrVector length %d must be nonnegative", n);
        return;
    }
    len = n;
    origin = data;
    if (copy)
        reference(this->copy());
}

template <class T> void KrGenVector<T>::reference(const KrGenVector& v) {
    if (this == &v)
        return;
    block = v.block;
    len = v.len;
    step = v.step;
    origin = v.origin;
}

template <class T> KrGenVector<T> KrGenVector<T>::copy() const {
    KrGenVector<T> result;
    if (len <= 0)
        return result;
    result.block = KrGenBlockRef<T>(len);
    result.len = len;
    result.origin = result.block.get();
    Krovel::_copyLine(result.origin, 1, origin, step, len);
    return result;
}

template <class T> void KrGenVector<T>::unique() {
    if (!block.get() || block.count() == 1)
        return;
    reference(copy());
}

template <class T> void KrGenVector<T>::resize(int n) {
    if (n < 0) {
        KrMatrixError::err("KrVector length %d must be nonnegative", n);
        return;
    }
    if (n == len)
        return;
    KrGenBlockRef<T> fresh(n);
    Krovel::_copyLine(fresh.get(), 1, origin, step, n < len ? n : len);
    block = std::move(fresh);
    len = n;
    step = 1;
    origin = block.get();
}

template <class T> KrGenVector<T>& KrGenVector<T>::operator=(T value) {
    Krovel::_fillLine(origin, step, len, value);
    return *this;
}

template class KrGenVector<float>;
template class KrGenVector<double>;
template class KrGenVector<int>;
template class KrGenVector<char*>;
