#include "heap_type.h"

namespace py {

Ref make_type(PyObject* module, PyType_Spec& slots) {
    Ref type = take(PyType_FromModuleAndSpec(module, &slots, nullptr));
    if (type) return type;
    // The interpreter reports no error when it has no memory for the copy of the name.
    if (!PyErr_Occurred()) PyErr_NoMemory();
    throw Error{};
}

}  // namespace py
