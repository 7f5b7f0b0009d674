#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

// What this module uses of the interpreter beyond its documented interface, in one place: when a later version changes
// one of these, the public function named beside it is the one to call.
// A function that may run Python code is not `noexcept`, so that a thread which ends inside it can be parked outside.
namespace py::interpreter {

// Py_IsFinalizing, from 3.13 on.
inline bool is_finalizing() noexcept { return _Py_IsFinalizing() != 0; }

// What a class or its bases hold under an interned name: a borrowed reference, or NULL without an error. Runs Python
// code only for a namespace with a key that is no exact `str` and has the same hash. PyType_GetDict over the class's
// `__mro__`, from 3.12 on.
inline PyObject* class_attribute(PyTypeObject* type, PyObject* name) { return _PyType_Lookup(type, name); }

// Whether a tracer or a profiler sees the calls of this thread. The fields of the same name stay in later versions.
inline bool is_traced() noexcept {
    const PyThreadState* const thread = PyThreadState_Get();
    return thread->c_tracefunc != nullptr || thread->c_profilefunc != nullptr;
}

// Where the exception that the running generator, or else the thread, handles is kept; NULL or None for none.
// PyErr_GetHandledException looks further out, at what a generator's caller handles, so putting its result back would
// leave that in the generator.
inline PyObject*& handled_exception() noexcept { return PyThreadState_Get()->exc_info->exc_value; }

// For the error of a generator expression that C++ runs: StopIteration becomes what a generator makes of it.
// PyErr_Format with PyException_SetCause.
inline void leave_generator_expression() {
    if (PyErr_ExceptionMatches(PyExc_StopIteration) == 0) return;
    _PyErr_FormatFromCause(PyExc_RuntimeError, "generator raised StopIteration");
}

}  // namespace py::interpreter
