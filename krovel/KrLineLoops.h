#pragma once

/// Strided element loops shared by the matrix and vector templates. Strides
/// are in elements; each loop takes a separate path for contiguous lines.
namespace Krovel {

/// d[i * ds] = D(s[i * ss]) for i < n.
template <class D, class S> void _copyLine(D* d, int ds, const S* s, int ss, int n) {
    if (ds == 1 && ss == 1) {
        for (int i = 0; i < n; ++i)
            d[i] = static_cast<D>(s[i]);
        return;
    }
    for (int i = 0; i < n; ++i, d += ds, s += ss)
        *d = static_cast<D>(*s);
}

/// d[i * ds] = value for i < n.
template <class T> void _fillLine(T* d, int ds, int n, T value) {
    if (ds == 1) {
        for (int i = 0; i < n; ++i)
            d[i] = value;
        return;
    }
    for (int i = 0; i < n; ++i, d += ds)
        *d = value;
}

/// Copies a rows by cols block between two strided layouts. The inner loop
/// runs along whichever dimension is contiguous in the destination (else in
/// the source), so a copy between like layouts is a run of contiguous lines.
template <class D, class S>
void _copyBlock(D* d, int drs, int dcs, const S* s, int srs, int scs, int rows, int cols) {
    if (rows <= 0 || cols <= 0)
        return;
    const bool byColumns = drs == 1 ? dcs != 1 : (dcs != 1 && srs == 1);
    if (byColumns) {
        for (int c = 0; c < cols; ++c, d += dcs, s += scs)
            _copyLine(d, drs, s, srs, rows);
    } else {
        for (int r = 0; r < rows; ++r, d += drs, s += srs)
            _copyLine(d, dcs, s, scs, cols);
    }
}

/// Fills a rows by cols strided block with `value`.
template <class T> void _fillBlock(T* d, int rs, int cs, int rows, int cols, T value) {
    if (rows <= 0 || cols <= 0)
        return;
    if (rs == 1 && cs != 1) {
        for (int c = 0; c < cols; ++c, d += cs)
            _fillLine(d, rs, rows, value);
    } else {
        for (int r = 0; r < rows; ++r, d += rs)
            _fillLine(d, cs, cols, value);
    }
}

} // namespace Krovel
