#include "class_guard.h"

#include "call.h"
#include "module.h"

namespace py {

namespace {

// Put there by the library when an instance is pickled or copied; says nothing about the class.
constexpr const char* slot_names_cache = "__slotnames__";

bool is_same_namespace(PyObject* now, PyObject* then) {
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    Py_ssize_t place = 0;
    Py_ssize_t same = 0;
    while (PyDict_Next(now, &place, &key, &value)) {
        if (PyUnicode_Check(key) && PyUnicode_CompareWithASCIIString(key, slot_names_cache) == 0) continue;
        if (PyDict_GetItem(then, key) != value) return false;
        ++same;
    }
    return same == PyDict_GET_SIZE(then);
}

// 0 while the interpreter has given the class no version.
unsigned version_of(const PyTypeObject* type) {
    return (type->tp_flags & Py_TPFLAGS_VALID_VERSION_TAG) != 0 ? type->tp_version_tag : 0;
}

}  // namespace

void ClassGuard::remember(Borrowed class_object) {
    if (!Py_IS_TYPE(class_object.get(), &PyType_Type)) return;
    PyObject* const bases = reinterpret_cast<PyTypeObject*>(class_object.get())->tp_mro;
    const Py_ssize_t count = PyTuple_GET_SIZE(bases) - 1;  // `object`, the last one, cannot change
    Ref dictionaries = steal(PyTuple_New(count));
    for (Py_ssize_t index = 0; index < count; ++index) {
        auto* const base = reinterpret_cast<PyTypeObject*>(PyTuple_GET_ITEM(bases, index));
        Ref copy = steal(PyDict_Copy(base->tp_dict));
        PyTuple_SET_ITEM(dictionaries.get(), index, copy.release());
    }
    keep(snapshot, std::move(dictionaries));
    keep(type, borrow(class_object));
}

bool ClassGuard::is_unchanged(Borrowed class_object) {
    if (type == nullptr || !class_object.is(type)) return false;
    auto* const watched = reinterpret_cast<PyTypeObject*>(type);
    if (version != 0 && version == version_of(watched)) return true;
    PyObject* const bases = watched->tp_mro;
    const Py_ssize_t count = PyTuple_GET_SIZE(snapshot);
    if (PyTuple_GET_SIZE(bases) != count + 1) return false;
    for (Py_ssize_t index = 0; index < count; ++index) {
        auto* const base = reinterpret_cast<PyTypeObject*>(PyTuple_GET_ITEM(bases, index));
        if (!is_same_namespace(base->tp_dict, PyTuple_GET_ITEM(snapshot, index))) return false;
    }
    version = version_of(watched);
    return true;
}

}  // namespace py
