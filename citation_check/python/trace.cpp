#include "trace.h"

#include <utility>

namespace py {

namespace {

// The innermost native function that runs on this thread, if any.
thread_local const FunctionRow* running = nullptr;

}  // namespace

Running::Running(const FunctionRow& row) noexcept : outer_(std::exchange(running, &row)) {}

Running::~Running() { running = outer_; }

void trace_failure() noexcept {
    PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    const bool starts_here = traceback == nullptr;
    PyErr_Restore(type, value, traceback);
    if (starts_here && running != nullptr) {
        _PyTraceback_Add(running->name, running->body.file, running->body.line);
    }
}

}  // namespace py
