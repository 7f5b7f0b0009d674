#include <memory>

#include "originals.h"
#include "python/error.h"
#include "surface.h"

namespace citation_check {

namespace {

int execute(PyObject* self) noexcept {
    return py::guarded_status([self] {
        State*& slot = State::slot(self);
        slot = std::make_unique<State>(self).release();
        run_import_sequence(self, *slot);
        keep_originals(*slot);
    });
}

int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    const State* const state = State::slot(self);
    return state == nullptr ? 0 : state->visit(visit, arg);
}

int clear(PyObject* self) noexcept {
    if (State* const state = State::slot(self)) state->clear();
    return 0;
}

void end(void* self) noexcept {
    const std::unique_ptr<State> state(std::exchange(State::slot(static_cast<PyObject*>(self)), nullptr));
}

PyModuleDef_Slot slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(execute)},
    {0, nullptr},
};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "citation_check", nullptr, sizeof(State::Slot), nullptr, slots, traverse, clear, end,
};

}  // namespace

}  // namespace citation_check

PyMODINIT_FUNC PyInit_citation_check() { return PyModuleDef_Init(&citation_check::definition); }
