#pragma once

#include <chrono>

#include "object.h"

namespace py {

// Inside a catch block: the kind of error that the exception stands for, NULL for a `py::Error` that has one set. What
// means that memory does not suffice is MemoryError, and what nobody foresaw is SystemError.
PyObject* kind_of_exception() noexcept;

// Sets an error of that kind; none for NULL.
void set_error(PyObject* kind) noexcept;

// Runs `body`; false with the interpreter's error set when it threw. Nothing that may run Python code, as making an
// error may, is done in the handler: a thread that the interpreter ends there cannot be parked, and aborts the process.
template <class Body>
bool succeeds(Body body) noexcept {
    PyObject* kind = nullptr;
    try {
        body();
        return true;
    } catch (...) {
        kind = kind_of_exception();
    }
    set_error(kind);
    return false;
}

// The edge to the interpreter: what `body` returns, or NULL with the error set.
template <class Body>
PyObject* guarded(Body body) noexcept {
    Ref result;
    return succeeds([&] { result = body(); }) ? result.relinquish() : nullptr;
}

// The same edge for slots that report a status: 0, or -1 with the error set.
template <class Body>
int guarded_status(Body body) noexcept {
    return succeeds(body) ? 0 : -1;
}

// The error that was set, as an `except` clause holds it: while this lives it is the handled exception
// (`sys.exc_info()`, and the `__context__` of what is raised meanwhile); afterwards the outer one is back. Its
// traceback begins with the function that runs, as it does in a clause of that function.
class Handled {
  public:
    Handled();
    ~Handled();
    Handled(const Handled&) = delete;
    Handled& operator=(const Handled&) = delete;

    Borrowed value() const noexcept { return value_; }
    Borrowed type() const noexcept { return type_; }
    // None for none.
    Ref traceback() const;
    // Leaves the running function's entry out: the interpreter adds one when the error leaves that function.
    [[noreturn]] void reraise();

  private:
    Ref type_;
    Ref value_;
    Ref traceback_;  // the one that begins with the running function; may be empty
    Ref outer_;      // what was handled before; may be empty
};

// `try: body()`, `except kind as error: handler(error)`; whatever is not of `kind` passes through.
template <class Body, class Handler>
Ref try_except(PyObject* kind, Body body, Handler handler) {
    Ref result;
    if (succeeds([&] { result = body(); })) return result;
    Handled error;
    if (PyErr_GivenExceptionMatches(error.value().get(), kind) == 0) error.reraise();
    return handler(error);
}

// Raises `kind` with a message in the format of PyErr_Format.
template <class... Arguments>
[[noreturn]] void raise(PyObject* kind, const char* format, Arguments... arguments) {
    api(PyErr_Format, kind, format, arguments...);
    throw Error{};
}

// What the interpreter raises for a variable that has no value.
[[noreturn]] inline void raise_unbound(const char* name) {
    raise(PyExc_UnboundLocalError, "cannot access local variable '%s' where it is not associated with a value", name);
}

// Runs the handlers of the signals that have come, Ctrl-C's for instance, whose exceptions pass through.
inline void check_signals() { check(api(PyErr_CheckSignals)); }

// Called at each step of a loop that goes over a text without running Python code: now and then it checks for signals,
// and it lets other threads run.
class PeriodicYield {
  public:
    void step() {
        if (++steps_ % 64 == 0) yield_now();
    }

  private:
    using Clock = std::chrono::steady_clock;

    void yield_now();

    unsigned steps_ = 0;
    Clock::time_point last_switch_;
};

}  // namespace py
