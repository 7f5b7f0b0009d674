#include "state.h"

#include "python/call.h"

namespace citation_check {

using py::Borrowed;
using py::Ref;

namespace {

// What a dictionary holds under a name: a borrowed reference, or NULL for nothing.
PyObject* find(Borrowed dict, Borrowed name) {
    PyObject* const value = py::api(PyDict_GetItemWithError, dict.get(), name.get());
    if (value == nullptr && PyErr_Occurred()) throw py::Error{};
    return value;
}

// NameError as the interpreter raises it: the missing name is in the message and in its attribute `name`.
[[noreturn]] void raise_name_error(Borrowed name) {
    const Ref message = py::steal(PyUnicode_FromFormat("name '%U' is not defined", name.get()));
    const Ref error = py::call(PyExc_NameError, message);
    py::check(py::api(PyObject_SetAttrString, error.get(), "name", name.get()));
    py::api(PyErr_SetObject, PyExc_NameError, error.get());
    throw py::Error{};
}

}  // namespace

State::State(Borrowed module)
    : scan_mark(py::call(reinterpret_cast<PyObject*>(&PyBaseObject_Type))),
      globals_(py::borrow(PyModule_GetDict(module.get()))),
      builtins_(py::borrow(PyEval_GetBuiltins())) {}

Ref State::global(Borrowed name) const {
    if (Ref value = find_global(name)) return value;
    raise_name_error(name);
}

Ref State::find_global(Borrowed name) const {
    if (PyObject* value = find(globals_, name)) return py::borrow(value);
    PyObject* const value = find(builtins_, name);
    return value == nullptr ? Ref() : py::borrow(value);
}

bool State::has_original(Borrowed name, Kept which) const {
    PyObject* const value = find(globals_, name);
    return value != nullptr && kept_[static_cast<std::size_t>(which)].is(value);
}

int State::visit(visitproc visit, void* arg) const {
    Py_VISIT(globals_.get());
    Py_VISIT(builtins_.get());
    for (const py::Original& original : kept_) {
        if (const int status = original.visit(visit, arg)) return status;
    }
    return 0;
}

void State::clear() {
    for (py::Original& original : kept_) original.clear();
}

}  // namespace citation_check
