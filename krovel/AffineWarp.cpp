#include "krovel/AffineWarp.h"

#include "image/XformBilinear.h"
#include "krovel/KrMatrixError.h"

namespace {

template <class T> void checkShape(const KrGenMatrix<T>& m) {
    if (m.rows() != 2)
        KrMatrixError::err("KrMatrix row mismatch %d != %d", 2, m.rows());
    if (m.cols() != 3)
        KrMatrixError::err("KrMatrix col mismatch %d != %d", 3, m.cols());
}

// A 2 by 3 row-major view of six elements on the caller's stack.
template <class T> KrGenMatrix<T> stackMatrix(T (&e)[6]) {
    return KrGenMatrix<T>(e, 2, 3, KrGenMatrix<T>::RowMajor);
}

} // namespace

template <class T>
void multiply2x3(const KrGenMatrix<T>& a, const KrGenMatrix<T>& b, KrGenMatrix<T>& out) {
    checkShape(a);
    checkShape(b);
    // Read everything before writing: out may be a or b.
    const T a00 = a(0, 0), a01 = a(0, 1), a02 = a(0, 2);
    const T a10 = a(1, 0), a11 = a(1, 1), a12 = a(1, 2);
    const T b00 = b(0, 0), b01 = b(0, 1), b02 = b(0, 2);
    const T b10 = b(1, 0), b11 = b(1, 1), b12 = b(1, 2);
    out.resize(2, 3, out.colStride() == 1 ? KrGenMatrix<T>::RowMajor : KrGenMatrix<T>::ColumnMajor);
    out(0, 0) = a00 * b00 + a01 * b10;
    out(0, 1) = a00 * b01 + a01 * b11;
    out(0, 2) = a00 * b02 + a01 * b12 + a02;
    out(1, 0) = a10 * b00 + a11 * b10;
    out(1, 1) = a10 * b01 + a11 * b11;
    out(1, 2) = a10 * b02 + a11 * b12 + a12;
}

template <class T> KrGenMatrix<T> multiply2x3(const KrGenMatrix<T>& a, const KrGenMatrix<T>& b) {
    KrGenMatrix<T> out(2, 3, KrGenMatrix<T>::ColumnMajor);
    multiply2x3(a, b, out);
    return out;
}

template <class T>
Orvane::GenPoint<T> transform2x3(const KrGenMatrix<T>& m, const Orvane::GenPoint<T>& p) {
    checkShape(m);
    return Orvane::GenPoint<T>(m(0, 0) * p.x + m(0, 1) * p.y + m(0, 2),
                               m(1, 0) * p.x + m(1, 1) * p.y + m(1, 2));
}

template void multiply2x3(const KrGenMatrix<float>&, const KrGenMatrix<float>&,
                          KrGenMatrix<float>&);
template void multiply2x3(const KrGenMatrix<double>&, const KrGenMatrix<double>&,
                          KrGenMatrix<double>&);
template KrGenMatrix<float> multiply2x3(const KrGenMatrix<float>&, const KrGenMatrix<float>&);
template KrGenMatrix<double> multiply2x3(const KrGenMatrix<double>&, const KrGenMatrix<double>&);
template Orvane::GenPoint<float> transform2x3(const KrGenMatrix<float>&,
                                              const Orvane::GenPoint<float>&);
template Orvane::GenPoint<double> transform2x3(const KrGenMatrix<double>&,
                                               const Orvane::GenPoint<double>&);

namespace Orvane {

template <class T>
void centredMatrix(const KrGenMatrix<T>& m, const GenPoint<float>& centre,
                   const GenPoint<float>& anchor, T (&out)[6]) {
    T toCentre[6] = {1, 0, T(centre.x), 0, 1, T(centre.y)};
    T fromAnchor[6] = {1, 0, -T(anchor.x), 0, 1, -T(anchor.y)};
    KrGenMatrix<T> c = stackMatrix(toCentre);
    KrGenMatrix<T> a = stackMatrix(fromAnchor);
    KrGenMatrix<T> full = stackMatrix(out);
    multiply2x3(c, m, full);
    multiply2x3(full, a, full);
}

template <class T>
void xform_bilinear(Image src, Image dst, const KrGenMatrix<T>& m, const GenPoint<float>& centre,
                    const GenPoint<float>& anchor) {
    T composed[6];
    centredMatrix(m, centre, anchor, composed);
    xform_bilinear(src, dst, stackMatrix(composed));
}

template void centredMatrix(const KrGenMatrix<float>&, const GenPoint<float>&,
                            const GenPoint<float>&, float (&)[6]);
template void centredMatrix(const KrGenMatrix<double>&, const GenPoint<float>&,
                            const GenPoint<float>&, double (&)[6]);
template void xform_bilinear(Image, Image, const KrGenMatrix<float>&, const GenPoint<float>&,
                             const GenPoint<float>&);
template void xform_bilinear(Image, Image, const KrGenMatrix<double>&, const GenPoint<float>&,
                             const GenPoint<float>&);

} // namespace Orvane
