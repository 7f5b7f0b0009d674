#include "error.h"

#include <frameobject.h>

#include <new>
#include <stdexcept>

namespace py {

PyObject* kind_of_exception() noexcept {
    try {
        throw;
    } catch (const Error&) {
        return PyErr_Occurred() ? nullptr : PyExc_SystemError;
    } catch (const std::bad_alloc&) {
        return PyExc_MemoryError;
    } catch (const std::length_error&) {
        // More than any container can hold is more than any memory can.
        return PyExc_MemoryError;
    } catch (...) {
        return PyExc_SystemError;
    }
}

void set_error(PyObject* kind) noexcept {
    if (kind == PyExc_MemoryError) {
        api(PyErr_NoMemory);
    } else if (kind != nullptr) {
        api(PyErr_SetString, kind, "unforeseen failure");
    }
}

namespace {

// Adds the running function's entry to the traceback of the error that is set.
void trace_running_function() {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    // Put aside meanwhile: the interpreter loses the error when it has no memory for the frame's object.
    PyErr_Fetch(&type, &value, &traceback);
    const Ref frame = take(reinterpret_cast<PyObject*>(api(PyThreadState_GetFrame, PyThreadState_Get())));
    api(PyErr_Restore, type, value, traceback);
    if (frame) api(PyTraceBack_Here, reinterpret_cast<PyFrameObject*>(frame.get()));
}

}  // namespace

Handled::Handled() {
    trace_running_function();
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    api(PyErr_NormalizeException, &type, &value, &traceback);
    if (traceback != nullptr) api(PyException_SetTraceback, value, traceback);
    type_ = take(type);
    value_ = take(value);
    traceback_ = take(traceback);
    outer_ = take(std::exchange(interpreter::handled_exception(), Py_NewRef(value)));
}

Handled::~Handled() { const Ref own = take(std::exchange(interpreter::handled_exception(), outer_.relinquish())); }

Ref Handled::traceback() const {
    Ref traceback = take(PyException_GetTraceback(value_.get()));
    return traceback ? std::move(traceback) : none();
}

void Handled::reraise() {
    Ref traceback = take(PyException_GetTraceback(value_.get()));
    if (traceback && traceback.is(traceback_)) {
        traceback = take(Py_XNewRef(reinterpret_cast<PyTracebackObject*>(traceback.get())->tb_next));
    }
    // Restored, not raised anew: an exception does not become its own context.
    api(PyErr_Restore, type_.relinquish(), value_.relinquish(), traceback.relinquish());
    throw Error{};
}

void PeriodicYield::yield_now() {
    check_signals();
    const Clock::time_point now = Clock::now();
    if (last_switch_ == Clock::time_point()) last_switch_ = now;
    // Longer than a thread waits before it asks for the lock, 5 ms: only one that has asked is sure to get it.
    if (now - last_switch_ < std::chrono::milliseconds(10)) return;
    { const WithoutLock other_threads_run; }
    last_switch_ = Clock::now();
}

}  // namespace py
