#pragma once

#include <iosfwd>

namespace Krovel {

/// Reads n doubles for a small vector, barred ("| a b |") or bare ("a b").
/// Returns whether the stream is still usable; on false, `out` may hold
/// partial values and the caller must not take them.
bool _readElements(std::istream& is, double* out, int n);

} // namespace Krovel
