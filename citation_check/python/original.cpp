#include "original.h"

#include <algorithm>

namespace py {

namespace {

// What a call of this object runs, as an Original keeps it; borrowed.
std::array<PyObject*, 3> called_by(PyObject* object) noexcept {
    if (object == nullptr || !PyFunction_Check(object)) return {};
    return {PyFunction_GET_CODE(object), PyFunction_GET_DEFAULTS(object), PyFunction_GET_KW_DEFAULTS(object)};
}

// What a class or a module holds under a name; NULL for nothing.
PyObject* attribute_of(PyObject* object, PyObject* name) noexcept {
    if (PyType_Check(object)) return api(interpreter::class_attribute, reinterpret_cast<PyTypeObject*>(object), name);
    return PyModule_Check(object) ? api(PyDict_GetItem, PyModule_GetDict(object), name) : nullptr;
}

Ref keep(PyObject* object) noexcept { return take(Py_XNewRef(object)); }

std::array<Ref, 3> keep(const std::array<PyObject*, 3>& called) noexcept {
    return {keep(called[0]), keep(called[1]), keep(called[2])};
}

bool are_same(const std::array<PyObject*, 3>& now, const std::array<Ref, 3>& kept) noexcept {
    return now[0] == kept[0].get() && now[1] == kept[1].get() && now[2] == kept[2].get();
}

}  // namespace

void Original::remember(Borrowed object, std::initializer_list<Borrowed> attributes) {
    std::vector<Part> parts;
    for (const Borrowed name : attributes) {
        PyObject* const value = attribute_of(object.get(), name.get());
        parts.push_back({name.get(), keep(value), keep(called_by(value))});
    }
    parts_ = std::move(parts);
    called_ = keep(called_by(object.get()));
    type_ = borrow(reinterpret_cast<PyObject*>(object.type()));
    object_ = borrow(object);
    is_replaceable_ = called_[0] || !parts_.empty();
}

bool Original::has_same_parts() const noexcept {
    PyObject* const object = object_.get();
    if (reinterpret_cast<PyObject*>(Py_TYPE(object)) != type_.get() || !are_same(called_by(object), called_))
        return false;
    return std::ranges::all_of(parts_, [object](const Part& part) {
        PyObject* const value = attribute_of(object, part.name);
        return value == part.value.get() && (!part.called[0] || are_same(called_by(value), part.called));
    });
}

Borrowed Original::attribute(Borrowed name) const noexcept {
    const auto part = std::ranges::find(parts_, name.get(), &Part::name);
    return part != parts_.end() && part->value ? part->value.get() : Py_None;
}

int Original::visit(visitproc visit, void* arg) const {
    Py_VISIT(object_.get());
    Py_VISIT(type_.get());
    for (const Ref& part : called_) Py_VISIT(part.get());
    for (const Part& part : parts_) {
        Py_VISIT(part.value.get());
        for (const Ref& called : part.called) Py_VISIT(called.get());
    }
    return 0;
}

void Original::clear() {
    // Moved out first: what dies here may run Python code that asks again.
    const Ref object = std::move(object_);
    const Ref type = std::move(type_);
    const Called called = std::move(called_);
    const std::vector<Part> parts = std::move(parts_);
}

}  // namespace py
