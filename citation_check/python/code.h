#pragma once

#include "function.h"

namespace py {

// The code object that introspection reads for `row`: names, parameters and flags are a Python function's, the body
// is empty.
Ref make_code(Module& module, const FunctionRow& row);

// The tuple of a row's parameter names, interned.
Ref parameter_names(const FunctionRow& row);

}  // namespace py
