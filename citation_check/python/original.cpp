#include "original.h"

#include <algorithm>

namespace py {

namespace {

// The code that a call of this object runs, for a Python function; empty for anything else.
PyObject* code_of(PyObject* object) noexcept {
    return object != nullptr && PyFunction_Check(object) ? PyFunction_GET_CODE(object) : nullptr;
}

// What a class or a module holds under a name; NULL for nothing.
PyObject* attribute_of(PyObject* object, PyObject* name) noexcept {
    if (PyType_Check(object)) return api(interpreter::class_attribute, reinterpret_cast<PyTypeObject*>(object), name);
    return PyModule_Check(object) ? api(PyDict_GetItem, PyModule_GetDict(object), name) : nullptr;
}

Ref keep(PyObject* object) noexcept { return take(Py_XNewRef(object)); }

}  // namespace

void Original::remember(Borrowed object, std::initializer_list<Borrowed> attributes) {
    std::vector<Part> parts;
    for (const Borrowed name : attributes) {
        PyObject* const value = attribute_of(object.get(), name.get());
        parts.push_back({name.get(), keep(value), keep(code_of(value))});
    }
    parts_ = std::move(parts);
    code_ = keep(code_of(object.get()));
    type_ = borrow(reinterpret_cast<PyObject*>(object.type()));
    object_ = borrow(object);
    is_replaceable_ = code_ || !parts_.empty();
}

bool Original::has_same_parts() const noexcept {
    PyObject* const object = object_.get();
    if (reinterpret_cast<PyObject*>(Py_TYPE(object)) != type_.get() || code_of(object) != code_.get()) return false;
    return std::ranges::all_of(parts_, [object](const Part& part) {
        PyObject* const value = attribute_of(object, part.name);
        return value == part.value.get() && code_of(value) == part.code.get();
    });
}

Borrowed Original::attribute(std::size_t place) const noexcept {
    return place < parts_.size() && parts_[place].value ? parts_[place].value.get() : Py_None;
}

int Original::visit(visitproc visit, void* arg) const {
    Py_VISIT(object_.get());
    Py_VISIT(type_.get());
    Py_VISIT(code_.get());
    for (const Part& part : parts_) {
        Py_VISIT(part.value.get());
        Py_VISIT(part.code.get());
    }
    return 0;
}

void Original::clear() {
    // Moved out first: what dies here may run Python code that asks again.
    const Ref object = std::move(object_);
    const Ref type = std::move(type_);
    const Ref code = std::move(code_);
    const std::vector<Part> parts = std::move(parts_);
}

}  // namespace py
