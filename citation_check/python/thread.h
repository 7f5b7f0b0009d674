#pragma once

#include "private.h"

// Threads that the interpreter ends. While it is finalized, every other thread that comes for its lock is ended by
// unwinding its stack, C++ frames included, without the lock. Nothing of the interpreter may be touched any more then,
// so such a thread is parked where the unwinding enters C++, before the first destructor runs.
namespace py {

// Waits for the end of the process.
[[noreturn]] void park() noexcept;

// Calls a function of the interpreter. Each one that may run Python code is called through this, and so is each one
// that makes an object which the garbage collector tracks: collecting garbage runs Python code.
template <class Function, class... Arguments>
auto api(Function function, Arguments... arguments) noexcept {
    try {
        return function(arguments...);
    } catch (...) {
        park();
    }
}

// Releases the last reference to an object, which may run Python code.
void release_last(PyObject* object) noexcept;

// Releases one reference.
inline void release(PyObject* object) noexcept {
    if (Py_REFCNT(object) > 1) {
        Py_DECREF(object);
    } else {
        release_last(object);
    }
}

// Other threads may run while this lives. During finalization it does nothing: the thread that finalizes must keep the
// lock, since it would be ended itself if it asked for it within a sub-interpreter.
class WithoutLock {
  public:
    WithoutLock() : state_(interpreter::is_finalizing() ? nullptr : PyEval_SaveThread()) {}
    WithoutLock(const WithoutLock&) = delete;
    WithoutLock& operator=(const WithoutLock&) = delete;
    ~WithoutLock() {
        if (state_ != nullptr) api(PyEval_RestoreThread, state_);
    }

  private:
    PyThreadState* state_;
};

}  // namespace py
