#include "tools/python/TrPyErrors.h"

#include "base/Exception.h"
#include "krovel/KrMatrixError.h"

#include <exception>

namespace py = pybind11;

namespace {

// Owned by the module, which keeps them for the life of the interpreter.
PyObject* error = nullptr;
PyObject* illegalArgument = nullptr;
PyObject* badIndex = nullptr;
PyObject* unsupported = nullptr;
PyObject* nullPointer = nullptr;
PyObject* matrixError = nullptr;

PyObject* makeClass(py::module_& module, const char* name, py::tuple bases) {
    const std::string qualified = std::string("tavrix.") + name;
    PyObject* type = PyErr_NewException(qualified.c_str(), bases.ptr(), nullptr);
    if (!type)
        throw py::error_already_set();
    module.add_object(name, py::handle(type));
    return type;
}

// pybind11 fixes the signature: the pointer comes by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void translate(std::exception_ptr p) {
    try {
        if (p)
            std::rethrow_exception(p);
    } catch (const BadIndexException& e) {
        PyErr_SetString(badIndex, e.what());
    } catch (const IllegalArgumentException& e) {
        PyErr_SetString(illegalArgument, e.what());
    } catch (const UnsupportedOperationException& e) {
        PyErr_SetString(unsupported, e.what());
    } catch (const NullPointerException& e) {
        PyErr_SetString(nullPointer, e.what());
    } catch (const KrMatrixError& e) {
        PyErr_SetString(matrixError, e.what());
    } catch (const Exception& e) {
        PyErr_SetString(error, e.what());
    } catch (const char* text) {
        PyErr_SetString(error, text ? text : "unknown error");
    }
}

} // namespace

void TrPyErrors::define(py::module_& module) {
    const py::handle base(PyExc_Exception);
    error = makeClass(module, "Error", py::make_tuple(base));
    const py::handle e(error);
    illegalArgument =
        makeClass(module, "IllegalArgumentError", py::make_tuple(e, py::handle(PyExc_ValueError)));
    badIndex = makeClass(module, "BadIndexError",
                         py::make_tuple(py::handle(illegalArgument), py::handle(PyExc_IndexError)));
    unsupported = makeClass(module, "UnsupportedOperationError", py::make_tuple(e));
    nullPointer = makeClass(module, "NullPointerError", py::make_tuple(e));
    matrixError = makeClass(module, "MatrixError", py::make_tuple(e));
    py::register_exception_translator(translate);
}
