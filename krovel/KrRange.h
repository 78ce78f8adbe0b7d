#pragma once

/// An inclusive index range, first..last, selecting rows or columns of a
/// matrix. An inverted range is not rejected: it selects a negative count.
struct KrRange {
    KrRange(int first, int last) : first(first), last(last) {}
    int first;
    int last;
};

/// Tag selecting all rows or all columns.
struct KrAll {};
