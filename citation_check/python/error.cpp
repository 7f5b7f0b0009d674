#include "error.h"

#include <unistd.h>

#include <exception>
#include <new>
#include <stdexcept>

namespace py {

namespace {

[[noreturn]] void park() noexcept {
    while (true) pause();
}

// Not PyGILState_Check: that says yes to everybody once the interpreter has ended.
bool holds_interpreter_lock() noexcept {
    const PyThreadState* const own = PyGILState_GetThisThreadState();
    return own != nullptr && own == _PyThreadState_UncheckedGet();
}

}  // namespace

void park_when_finalizing() noexcept {
    if (!holds_interpreter_lock()) park();
}

void set_error_from_exception() noexcept {
    try {
        throw;
    } catch (const Error&) {
        if (!PyErr_Occurred()) PyErr_SetString(PyExc_SystemError, "an error was reported without an exception");
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::length_error&) {
        // More than any container can hold is more than any memory can.
        PyErr_NoMemory();
    } catch (const std::exception& error) {
        PyErr_Format(PyExc_SystemError, "unforeseen failure: %s", error.what());
    } catch (...) {
        // What ends a thread is no exception of C++'s.
        if (!std::current_exception()) park();
        PyErr_SetString(PyExc_SystemError, "unforeseen failure");
    }
}

Handled::Handled() {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    trace_failure();
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    if (traceback != nullptr) PyException_SetTraceback(value, traceback);
    type_ = take(type);
    value_ = take(value);
    traceback_ = take(traceback);
    // PyErr_GetHandledException would look further out, and what it found would then be left behind in the frame's
    // own place, a generator's for instance; so the place itself is saved and put back.
    PyObject*& handled = PyThreadState_Get()->exc_info->exc_value;
    outer_ = take(std::exchange(handled, Py_XNewRef(value)));
}

Handled::~Handled() {
    park_ended_thread();
    PyObject*& handled = PyThreadState_Get()->exc_info->exc_value;
    const Ref own = take(std::exchange(handled, outer_.release()));
}

void Handled::reraise() {
    // Restored, not raised anew: an exception does not become its own context.
    PyErr_Restore(type_.release(), value_.release(), traceback_.release());
    throw Error{};
}

}  // namespace py
