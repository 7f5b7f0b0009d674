#pragma once

#include "object.h"

namespace py {

// Inside a catch block: sets the interpreter's error for the exception being handled. A `py::Error` has one set
// already, what means that memory does not suffice is MemoryError, and what nobody foresaw is SystemError.
void set_error_from_exception() noexcept;

// With an error set: one that starts in the native function that runs gets its entry in the traceback, one that passes
// through has its own.
void trace_failure() noexcept;

// The edge to the interpreter: what `body` returns, or NULL with the error set.
template <class Body>
PyObject* guarded(Body body) noexcept {
    try {
        return body().release();
    } catch (...) {
        set_error_from_exception();
        return nullptr;
    }
}

// The same edge for slots that report a status: 0, or -1 with the error set.
template <class Body>
int guarded_status(Body body) noexcept {
    try {
        body();
        return 0;
    } catch (...) {
        set_error_from_exception();
        return -1;
    }
}

// The error that was set, as an `except` clause holds it: while this lives it is the handled exception
// (`sys.exc_info()`, and the `__context__` of what is raised meanwhile); afterwards the outer one is back.
class Handled {
  public:
    Handled();
    ~Handled();
    Handled(const Handled&) = delete;
    Handled& operator=(const Handled&) = delete;

    Borrowed value() const noexcept { return value_; }
    Borrowed type() const noexcept { return type_; }
    Borrowed traceback() const noexcept { return traceback_ ? traceback_.get() : Py_None; }
    [[noreturn]] void reraise();

  private:
    Ref type_;
    Ref value_;
    Ref traceback_;
    Ref outer_;
};

// `try: body()`, `except kind as error: handler(error)`; whatever is not of `kind` passes through.
template <class Body, class Handler>
auto try_except(PyObject* kind, Body body, Handler handler) -> decltype(body()) {
    try {
        return body();
    } catch (...) {
        set_error_from_exception();
    }
    if (!PyErr_ExceptionMatches(kind)) throw Error{};
    Handled error;
    return handler(error);
}

// One more step of the interpreter's recursion; RecursionError at its limit. Native code that calls native code has
// no frame that would count it.
class RecursionDepth {
  public:
    RecursionDepth() { check(Py_EnterRecursiveCall("") == 0 ? 0 : -1); }
    RecursionDepth(const RecursionDepth&) = delete;
    RecursionDepth& operator=(const RecursionDepth&) = delete;
    ~RecursionDepth() {
        park_ended_thread();
        Py_LeaveRecursiveCall();
    }
};

// Raises `kind` with a message in the format of PyErr_Format.
template <class... Arguments>
[[noreturn]] void raise(PyObject* kind, const char* format, Arguments... arguments) {
    PyErr_Format(kind, format, arguments...);
    throw Error{};
}

}  // namespace py
