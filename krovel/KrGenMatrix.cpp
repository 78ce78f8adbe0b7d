#include "krovel/KrGenMatrix.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <utility>

template <class T> bool KrGenMatrix<T>::checkSize(int rows, int cols) {
    if (rows >= 0 && cols >= 0)
        return true;
    KrMatrixError::err("KrMatrix size %d by %d must be nonnegative", rows, cols);
    return false;
}

template <class T> KrGenMatrix<T>::KrGenMatrix(int rows, int cols, Layout l) {
    if (!checkSize(rows, cols))
        return;
    block = KrGenBlockRef<T>(rows * cols);
    nrows = rows;
    ncols = cols;
    rowStep = l == RowMajor ? cols : 1;
    colStep = l == RowMajor ? 1 : rows;
    origin = block.get();
}

template <class T> KrGenMatrix<T>::KrGenMatrix(T* data, int rows, int cols, Layout l) {
    if (!checkSize(rows, cols))
        return;
    nrows = rows;
    ncols = cols;
    rowStep = l == RowMajor ? cols : 1;
    colStep = l == RowMajor ? 1 : rows;
    origin = data;
}

template <class T>
KrGenMatrix<T> KrGenMatrix<T>::view(int r0, int r1, int c0, int c1, bool allRows,
                                    bool allCols) const {
    // KrAll needs no check, and so selects the empty range of an empty dimension.
    if (!allRows) {
        if (r0 < 0 || r0 >= nrows)
            KrMatrixError::err("KrMatrix row %d out of range 0..%d", r0, nrows - 1);
        if (r1 < 0 || r1 >= nrows)
            KrMatrixError::err("KrMatrix row %d out of range 0..%d", r1, nrows - 1);
    }
    if (!allCols) {
        if (c0 < 0 || c0 >= ncols)
            KrMatrixError::err("KrMatrix col %d out of range 0..%d", c0, ncols - 1);
        if (c1 < 0 || c1 >= ncols)
            KrMatrixError::err("KrMatrix col %d out of range 0..%d", c1, ncols - 1);
    }
    KrGenMatrix result(*this);
    result.nrows = r1 - r0 + 1;
    result.ncols = c1 - c0 + 1;
    result.origin = origin + ptrdiff_t(r0) * rowStep + ptrdiff_t(c0) * colStep;
    return result;
}

template <class T>
KrGenMatrix<T> KrGenMatrix<T>::operator()(const KrRange& rows, const KrRange& cols) const {
    return view(rows.first, rows.last, cols.first, cols.last, false, false);
}

template <class T>
KrGenMatrix<T> KrGenMatrix<T>::operator()(const KrAll&, const KrRange& cols) const {
    return view(0, nrows - 1, cols.first, cols.last, true, false);
}

template <class T>
KrGenMatrix<T> KrGenMatrix<T>::operator()(const KrRange& rows, const KrAll&) const {
    return view(rows.first, rows.last, 0, ncols - 1, false, true);
}

template <class T> KrGenVector<T> KrGenMatrix<T>::row(int r) const {
    if (r < 0 || r >= nrows)
        KrMatrixError::err("KrMatrix row %d out of range 0..%d", r, nrows - 1);
    return KrGenVector<T>(block, origin + ptrdiff_t(r) * rowStep, ncols, colStep);
}

template <class T> KrGenVector<T> KrGenMatrix<T>::column(int c) const {
    if (c < 0 || c >= ncols)
        KrMatrixError::err("KrMatrix col %d out of range 0..%d", c, ncols - 1);
    return KrGenVector<T>(block, origin + ptrdiff_t(c) * colStep, nrows, rowStep);
}

template <class T> void KrGenMatrix<T>::reference(const KrGenMatrix& m) {
    if (this == &m)
        return;
    block = m.block;
    nrows = m.nrows;
    ncols = m.ncols;
    rowStep = m.rowStep;
    colStep = m.colStep;
    origin = m.origin;
}

template <class T> typename KrGenMatrix<T>::Layout KrGenMatrix<T>::resolve(Layout l) const {
    if (l == ColumnMajor || l == RowMajor)
        return l;
    // A one-row or one-column matrix has both strides 1 and counts as row-major.
    if (rowStep == 1 && colStep != 1)
        return ColumnMajor;
    return colStep == 1 ? RowMajor : ColumnMajor;
}

template <class T> KrGenMatrix<T> KrGenMatrix<T>::copy(Layout l) const {
    const int rows = nrows > 0 ? nrows : 0;
    const int cols = ncols > 0 ? ncols : 0;
    KrGenMatrix result(rows, cols, resolve(l));
    Krovel::_copyBlock(result.origin, result.rowStep, result.colStep, origin, rowStep, colStep,
                       rows, cols);
    return result;
}

template <class T> void KrGenMatrix<T>::unique() {
    if (!block.get() || block.count() == 1)
        return;
    reference(copy(ColumnMajor));
}

template <class T> void KrGenMatrix<T>::resize(int rows, int cols, Layout l) {
    if (!checkSize(rows, cols))
        return;
    if (rows == nrows && cols == ncols) {
        if (l != ColumnMajor && l != RowMajor)
            return;
        const int rs = l == RowMajor ? cols : 1;
        const int cs = l == RowMajor ? 1 : rows;
        if (rowStep == rs && colStep == cs)
            return;
    }
    KrGenMatrix fresh(rows, cols, resolve(l));
    const int keepRows = rows < nrows ? rows : nrows;
    const int keepCols = cols < ncols ? cols : ncols;
    Krovel::_copyBlock(fresh.origin, fresh.rowStep, fresh.colStep, origin, rowStep, colStep,
                       keepRows, keepCols);
    *this = std::move(fresh);
}

template <class T> KrGenMatrix<T>& KrGenMatrix<T>::operator=(T value) {
    Krovel::_fillBlock(origin, rowStep, colStep, nrows, ncols, value);
    return *this;
}

template class KrGenMatrix<float>;
template class KrGenMatrix<double>;
template class KrGenMatrix<int>;
template class KrGenMatrix<char*>;

namespace {

// The formatted cells are malloc'd; this frees them however printing ends.
struct CellTexts {
    explicit CellTexts(int rows, int cols) : texts(rows, cols, KrGenMatrix<char*>::RowMajor) {}
    ~CellTexts() {
        for (int r = 0; r < texts.rows(); ++r)
            for (int c = 0; c < texts.cols(); ++c)
                std::free(texts(r, c));
    }
    KrGenMatrix<char*> texts;
};

char* allocateCell(int n) {
    auto* text = static_cast<char*>(std::malloc(size_t(n) + 1));
    if (!text)
        throw std::bad_alloc();
    return text;
}

char* formatCell(double value) {
    const int n = std::snprintf(nullptr, 0, "%lf", value);
    char* text = allocateCell(n);
    std::snprintf(text, size_t(n) + 1, "%lf", value);
    // "%lf" always writes six decimals; drop the trailing zeros, keeping one character.
    for (int end = n - 1; end > 0 && text[end] == '0'; --end)
        text[end] = '\0';
    return text;
}

// Integers keep their zeros: dropping them would change the value shown.
char* formatCell(int value) {
    const int n = std::snprintf(nullptr, 0, "%d", value);
    char* text = allocateCell(n);
    std::snprintf(text, size_t(n) + 1, "%d", value);
    return text;
}

template <class T> void printMatrix(std::ostream& os, const KrGenMatrix<T>& m) {
    const int rows = m.rows();
    const int cols = m.cols() > 0 ? m.cols() : 0;
    if (rows <= 0)
        return;
    CellTexts cells(rows, cols);
    KrGenVector<int> widths(cols, 0);
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < cols; ++c) {
            char* text = formatCell(m(r, c));
            cells.texts(r, c) = text;
            const int width = int(std::strlen(text)) + 1;
            if (width > widths(c))
                widths(c) = width;
        }
    }
    for (int r = 0; r < rows; ++r) {
        os << (r == 0 ? "[" : " ") << "[ ";
        for (int c = 0; c < cols; ++c) {
            const char* text = cells.texts(r, c);
            for (int pad = widths(c) - 1 - int(std::strlen(text)); pad > 0; --pad)
                os << ' ';
            os << text << ' ';
        }
        os << ']';
        if (r == rows - 1)
            os << ']';
        os << '\n';
    }
}

} // namespace

std::ostream& operator<<(std::ostream& os, const KrGenMatrix<double>& m) {
    printMatrix(os, m);
    return os;
}

std::ostream& operator<<(std::ostream& os, const KrGenMatrix<int>& m) {
    printMatrix(os, m);
    return os;
}
