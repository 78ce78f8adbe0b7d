#pragma once

#include <pybind11/pybind11.h>

/// The library's exceptions as Python exceptions, one class per family, each
/// carrying the library's text unchanged:
///
///     tavrix.Error                      every library error (Exception)
///     tavrix.IllegalArgumentError       Error and ValueError
///     tavrix.BadIndexError              IllegalArgumentError and IndexError
///     tavrix.UnsupportedOperationError  Error
///     tavrix.NullPointerError           Error
///     tavrix.MatrixError                Error (the solvers' KrMatrixError)
///
/// The bare strings a few image paths throw become tavrix.Error.
namespace TrPyErrors {

/// Adds the classes to `module` and registers their translation.
void define(pybind11::module_& module);

} // namespace TrPyErrors
