#pragma once

#include "krovel/KrGenBlockRef.h"
#include "krovel/KrGenVector.h"
#include "krovel/KrLineLoops.h"
#include "krovel/KrMatrixError.h"
#include "krovel/KrRange.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <type_traits>

/// A dense matrix handle over shared storage.
///
/// Element (r, c) lives at origin + r * rowStride + c * colStride (strides in
/// elements), so sub-matrices and wrapped external buffers are handles like
/// any other. Copying or assigning a handle shares the elements and writes
/// through any handle are seen by all; elements are copied only by `copy`,
/// `unique`, `set` and `resize`. Range and shape errors are reported through
/// KrMatrixError::err.
template <class T> class KrGenMatrix {
public:
    /// Element order of fresh storage. Where a layout is accepted, any other
    /// value means that either will do.
    enum Layout {
        ColumnMajor = 0, ///< row stride 1, column stride = rows
        RowMajor = 1,    ///< row stride = cols, column stride 1
        AnyLayout = 2,
    };

    /// 0 by 0, both strides 1, no storage.
    KrGenMatrix() = default;

    /// A fresh zero-filled rows by cols matrix in layout `l` (AnyLayout gives
    /// column-major).
    KrGenMatrix(int rows, int cols, Layout l = ColumnMajor);

    /// A view of rows by cols elements at `data` in layout `l`; the caller
    /// keeps the memory alive for as long as any handle views it.
    KrGenMatrix(T* data, int rows, int cols, Layout l);

    int rows() const { return nrows; }
    int cols() const { return ncols; }
    /// Distance in elements between (r, c) and (r + 1, c).
    int rowStride() const { return rowStep; }
    /// Distance in elements between (r, c) and (r, c + 1).
    int colStride() const { return colStep; }
    /// Address of element (0, 0).
    T* data() const { return origin; }
    bool isEmpty() const { return nrows <= 0 || ncols <= 0; }
    /// References held on the shared block; 0 for a view of external memory.
    uint32_t refCount() const { return block.count(); }

    /// Element (r, c). The column is checked before the row; with a handler
    /// installed a bad index is used as given.
    T& operator()(int r, int c) {
        check(r, c);
        return origin[ptrdiff_t(r) * rowStep + ptrdiff_t(c) * colStep];
    }
    const T& operator()(int r, int c) const {
        check(r, c);
        return origin[ptrdiff_t(r) * rowStep + ptrdiff_t(c) * colStep];
    }

    /// A view of rows.first..rows.last by cols.first..cols.last sharing this
    /// storage. Like a handle copy, a view of a const matrix can write.
    KrGenMatrix operator()(const KrRange& rows, const KrRange& cols) const;
    KrGenMatrix operator()(const KrAll&, const KrRange& cols) const;
    KrGenMatrix operator()(const KrRange& rows, const KrAll&) const;

    /// Row r as a vector view sharing this storage.
    KrGenVector<T> row(int r) const;
    /// Column c as a vector view sharing this storage.
    KrGenVector<T> column(int c) const;

    /// Becomes a view of `m`: its shape, strides and origin, sharing its block.
    void reference(const KrGenMatrix& m);

    /// A private copy in layout `l` (AnyLayout keeps this matrix's layout).
    KrGenMatrix copy(Layout l = ColumnMajor) const;

    /// Makes the storage private unless it already is. A shared matrix
    /// becomes a column-major copy, whatever its layout was.
    void unique();

    /// Copies the elements of `m` into this matrix's storage, converting each;
    /// the shapes must match. The storage stays shared, so every sharer sees
    /// the new values. A source overlapping this storage is copied first, so
    /// the result is the source as it was before the call.
    template <class U> void set(const KrGenMatrix<U>& m);

    /// Reshapes to rows by cols in layout `l`, keeping the overlapping
    /// top-left elements and zeroing the rest in a fresh block (other sharers
    /// keep the old one). The same shape in the same layout, or in AnyLayout,
    /// changes nothing. AnyLayout keeps a row-major matrix row-major.
    void resize(int rows, int cols, Layout l = AnyLayout);

    /// Fills every element with `value`.
    KrGenMatrix& operator=(T value);

private:
    template <class U> friend class KrGenMatrix;

    void check(int r, int c) const {
        if (c < 0 || c >= ncols)
            KrMatrixError::err("KrMatrix col %d out of range 0..%d", c, ncols - 1);
        if (r < 0 || r >= nrows)
            KrMatrixError::err("KrMatrix row %d out of range 0..%d", r, nrows - 1);
    }
    KrGenMatrix view(int r0, int r1, int c0, int c1, bool allRows, bool allCols) const;
    /// `l` if it names a layout, else the layout this matrix is closest to.
    Layout resolve(Layout l) const;
    static bool checkSize(int rows, int cols);

    KrGenBlockRef<T> block;
    int32_t nrows = 0;
    int32_t ncols = 0;
    int32_t rowStep = 1;
    int32_t colStep = 1;
    T* origin = nullptr;
};

template <class T> template <class U> void KrGenMatrix<T>::set(const KrGenMatrix<U>& m) {
    if (nrows != m.nrows)
        KrMatrixError::err("KrMatrix row mismatch %d != %d", nrows, m.nrows);
    if (ncols != m.ncols)
        KrMatrixError::err("KrMatrix col mismatch %d != %d", ncols, m.ncols);
    // Past a reported mismatch (a handler is installed) only the common part is written.
    const int r = nrows < m.nrows ? nrows : m.nrows;
    const int c = ncols < m.ncols ? ncols : m.ncols;
    if constexpr (std::is_same_v<T, U>) {
        if (this == &m || (origin == m.origin && rowStep == m.rowStep && colStep == m.colStep))
            return;
        if (block.get() && block.get() == m.block.get()) {
            const KrGenMatrix<T> source = m.copy(ColumnMajor);
            Krovel::_copyBlock(origin, rowStep, colStep, source.origin, source.rowStep,
                               source.colStep, r, c);
            return;
        }
    }
    Krovel::_copyBlock(origin, rowStep, colStep, m.origin, m.rowStep, m.colStep, r, c);
}

/// Writes the matrix one bracketed row a line, each column right-aligned;
/// trailing zeros of the fractions are dropped (1.0 prints as "1."). A
/// matrix without rows prints nothing.
std::ostream& operator<<(std::ostream& os, const KrGenMatrix<double>& m);
/// As the double form, with integers printed as they are.
std::ostream& operator<<(std::ostream& os, const KrGenMatrix<int>& m);

extern template class KrGenMatrix<float>;
extern template class KrGenMatrix<double>;
extern template class KrGenMatrix<int>;
extern template class KrGenMatrix<char*>;
