#pragma once

#include "object.h"

namespace py {

// A new type of one copy of the module.
Ref make_type(PyObject* module, PyType_Spec& slots);

}  // namespace py
