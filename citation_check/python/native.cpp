#include "native.h"

namespace py {

Ref make_natives(Borrowed module, PyMethodDef* definitions) {
    // A module object: the collector visits its attributes, and the interpreter specialises their look-up.
    Ref natives = steal(api(PyModule_New, "native"));
    for (PyMethodDef* definition = definitions; definition->ml_name != nullptr; ++definition) {
        const Ref builtin = steal(api(PyCFunction_NewEx, definition, module.get(), nullptr));
        check(api(PyObject_SetAttrString, natives.get(), definition->ml_name, builtin.get()));
    }
    return natives;
}

}  // namespace py
