#include "import.h"

#include "call.h"

namespace py {

namespace {

// `builtins.__import__`, which a host may have replaced, called as the IMPORT_NAME instruction calls it.
Ref import_through_builtins(const Module& module, Borrowed name, Borrowed names) {
    PyObject* const found = PyDict_GetItemWithError(module.builtins, module.names.import_dunder);
    if (found == nullptr) {
        if (PyErr_Occurred()) throw Error{};
        raise(PyExc_ImportError, "__import__ not found");
    }
    const Ref import = borrow(found);
    return call(import, name, module.globals, module.globals, names, integer(0));
}

bool is_initialising(const Module& module, Borrowed imported) {
    const Ref spec = take(PyObject_GetAttr(imported.get(), module.names.spec_dunder));
    const Ref value = take(spec ? PyObject_GetAttr(spec.get(), module.names.initializing) : nullptr);
    const int initialising = value ? PyObject_IsTrue(value.get()) : 0;
    PyErr_Clear();
    return initialising == 1;
}

[[noreturn]] void raise_import_error(const Module& module, Borrowed imported, PyObject* name, PyObject* source) {
    Ref path = take(PyModule_GetFilenameObject(imported.get()));
    if (!path) PyErr_Clear();
    const Ref unknown = steal(PyUnicode_FromString("<unknown module name>"));
    PyObject* const shown = source == nullptr ? unknown.get() : source;
    Ref message;
    if (!path) {
        message = steal(PyUnicode_FromFormat("cannot import name %R from %R (unknown location)", name, shown));
    } else if (is_initialising(module, imported)) {
        message =
            steal(PyUnicode_FromFormat("cannot import name %R from partially initialized module %R "
                                       "(most likely due to a circular import) (%S)",
                                       name, shown, path.get()));
    } else {
        message = steal(PyUnicode_FromFormat("cannot import name %R from %R (%S)", name, shown, path.get()));
    }
    PyErr_SetImportError(message.get(), source, path.get());
    throw Error{};
}

// The IMPORT_FROM instruction: the attribute, else a submodule that a circular import has not bound yet.
Ref import_from(const Module& module, Borrowed imported, PyObject* name) {
    Ref value = take(PyObject_GetAttr(imported.get(), name));
    if (value) return value;
    if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw Error{};
    PyErr_Clear();
    const Ref source = take(PyObject_GetAttr(imported.get(), module.names.name_dunder));
    const bool named = source && PyUnicode_Check(source.get());
    if (!named) {
        PyErr_Clear();
        raise_import_error(module, imported, name, nullptr);
    }
    const Ref full_name = steal(PyUnicode_FromFormat("%U.%U", source.get(), name));
    value = take(PyImport_GetModule(full_name.get()));
    if (value) return value;
    if (PyErr_Occurred()) throw Error{};
    raise_import_error(module, imported, name, source.get());
}

}  // namespace

void import_module(const Module& module, const char* name) {
    const Ref interned = steal(PyUnicode_InternFromString(name));
    module.bind(interned.get(), import_through_builtins(module, interned, Py_None));
}

void import_names(const Module& module, const char* source, std::initializer_list<const char*> names) {
    const Ref tuple = steal(PyTuple_New(static_cast<Py_ssize_t>(names.size())));
    Py_ssize_t index = 0;
    for (const char* name : names) {
        PyTuple_SET_ITEM(tuple.get(), index++, steal(PyUnicode_InternFromString(name)).release());
    }
    const Ref imported = import_through_builtins(module, steal(PyUnicode_FromString(source)), tuple);
    for (Py_ssize_t place = 0; place < index; ++place) {
        PyObject* const name = PyTuple_GET_ITEM(tuple.get(), place);
        module.bind(name, import_from(module, imported, name));
    }
}

}  // namespace py
