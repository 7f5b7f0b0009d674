#include "module.h"

#include "call.h"

namespace py {

namespace {

// NameError as the interpreter raises it: the missing name is in the message and in its attribute `name`.
[[noreturn]] void raise_name_error(const Module& module, PyObject* name) {
    const Ref message = steal(PyUnicode_FromFormat("name '%U' is not defined", name));
    const Ref error = call(PyExc_NameError, message);
    set_attr(error, module.names.name, name);
    PyErr_SetObject(PyExc_NameError, error.get());
    throw Error{};
}

}  // namespace

Ref Module::look_up(const Name& name) const {
    if (PyObject* value = PyDict_GetItemWithError(globals, name)) {
        name.value = value;
        name.version = reinterpret_cast<PyDictObject*>(globals)->ma_version_tag;
        return borrow(value);
    }
    if (!PyErr_Occurred() && builtins != nullptr) {
        if (PyObject* value = PyDict_GetItemWithError(builtins, name)) return borrow(value);
    }
    if (PyErr_Occurred()) throw Error{};
    raise_name_error(*this, name);
}

void Module::bind(PyObject* name, Borrowed value) const { set_item(globals, name, value); }

Module& Module::initialise(PyObject* module) {
    Module& state = of(module);
    state.self = module;
    state.globals = Py_NewRef(PyModule_GetDict(module));
#define CITATION_CHECK_INTERN(field, text) state.names.field.object = steal(PyUnicode_InternFromString(text)).release();
    CITATION_CHECK_NAMES(CITATION_CHECK_INTERN)
#undef CITATION_CHECK_INTERN
    return state;
}

void Module::refuse_when_collected(PyObject* name) const {
    if (builtins == nullptr) raise(PyExc_RuntimeError, "%U() was called after its module had been collected", name);
}

int Module::visit(visitproc visit, void* argument) {
    // The macro's own parameter names, which Py_VISIT needs, are `visit` and `arg`.
    void* const arg = argument;
    Py_VISIT(globals);
#define CITATION_CHECK_VISIT(field) Py_VISIT(field);
    CITATION_CHECK_KEPT(CITATION_CHECK_VISIT)
#undef CITATION_CHECK_VISIT
    for (ClassGuard* guard : guards()) {
        Py_VISIT(guard->type);
        Py_VISIT(guard->snapshot);
    }
    return 0;
}

void Module::clear() {
#define CITATION_CHECK_CLEAR(field) Py_CLEAR(field);
    CITATION_CHECK_KEPT(CITATION_CHECK_CLEAR)
#undef CITATION_CHECK_CLEAR
    for (ClassGuard* guard : guards()) {
        Py_CLEAR(guard->type);
        Py_CLEAR(guard->snapshot);
    }
}

// Apart from `clear`: a function or a generator may still be looked at between the clearing and its own end. Strings
// are in no cycle, and the namespace breaks those that it is in itself.
void Module::release_names() {
#define CITATION_CHECK_CLEAR(field, text) Py_CLEAR(names.field.object);
    CITATION_CHECK_NAMES(CITATION_CHECK_CLEAR)
#undef CITATION_CHECK_CLEAR
    Py_CLEAR(globals);
}

}  // namespace py
