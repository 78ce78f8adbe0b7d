#include "krovel/AffineTransform.h"

#include <cmath>
#include <ostream>

AffineTransform& AffineTransform::identity() {
    *this = AffineTransform();
    return *this;
}

AffineTransform& AffineTransform::zero() {
    tx = ty = ro = sc = st0 = st1 = 0;
    return *this;
}

void AffineTransform::getMatrix(KrGenMatrix<float>& m) const {
    m.resize(2, 3,
             m.colStride() == 1 ? KrGenMatrix<float>::RowMajor : KrGenMatrix<float>::ColumnMajor);
    const float a = (st1 + 1 / st1) / 2;
    const float b = (st1 - 1 / st1) / 2;
    const float c = std::cos(ro);
    const float s = std::sin(ro);
    const float rowScale0 = sc * st0;
    const float rowScale1 = (1 / st0) * sc;
    m(0, 0) = rowScale0 * (a * c + b * s);
    m(0, 1) = rowScale0 * (b * c - a * s);
    m(0, 2) = tx;
    m(1, 0) = rowScale1 * (a * s + b * c);
    m(1, 1) = rowScale1 * (a * c - b * s);
    m(1, 2) = ty;
}

void AffineTransform::getMatrix(KrGenMatrix<double>& m) const {
    KrGenMatrix<float> f(2, 3, KrGenMatrix<float>::RowMajor);
    getMatrix(f);
    m.resize(2, 3,
             m.colStride() == 1 ? KrGenMatrix<double>::RowMajor : KrGenMatrix<double>::ColumnMajor);
    m.set(f);
}

AffineTransform AffineTransform::operator+(const AffineTransform& t) const {
    AffineTransform r(*this);
    return r += t;
}

AffineTransform AffineTransform::operator-(const AffineTransform& t) const {
    AffineTransform r(*this);
    return r -= t;
}

AffineTransform AffineTransform::operator*(float s) const {
    AffineTransform r(*this);
    return r *= s;
}

AffineTransform AffineTransform::operator/(float s) const {
    AffineTransform r(*this);
    return r /= s;
}

AffineTransform& AffineTransform::operator+=(const AffineTransform& t) {
    tx += t.tx;
    ty += t.ty;
    ro += t.ro;
    sc += t.sc;
    st0 += t.st0;
    st1 += t.st1;
    return *this;
}

AffineTransform& AffineTransform::operator-=(const AffineTransform& t) {
    tx -= t.tx;
    ty -= t.ty;
    ro -= t.ro;
    sc -= t.sc;
    st0 -= t.st0;
    st1 -= t.st1;
    return *this;
}

AffineTransform& AffineTransform::operator*=(float s) {
    tx *= s;
    ty *= s;
    ro *= s;
    sc *= s;
    st0 *= s;
    st1 *= s;
    return *this;
}

AffineTransform& AffineTransform::operator/=(float s) {
    tx /= s;
    ty /= s;
    ro /= s;
    sc /= s;
    st0 /= s;
    st1 /= s;
    return *this;
}

bool AffineTransform::operator==(const AffineTransform& t) const {
    return tx == t.tx && ty == t.ty && ro == t.ro && sc == t.sc && st0 == t.st0 && st1 == t.st1;
}

std::ostream& operator<<(std::ostream& os, const AffineTransform& t) {
    return os << "(tx " << t.tx << ", ty " << t.ty << ", ro " << t.ro << ", sc " << t.sc << ", st0 "
              << t.st0 << ", st1 " << t.st1 << ")";
}
