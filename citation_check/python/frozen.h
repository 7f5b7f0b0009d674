#pragma once

#include <marshal.h>

#include <span>

#include "object.h"

// Python code that was compiled when the module was built.
namespace py {

// The object that `marshal` wrote.
inline Ref thaw(std::span<const unsigned char> bytes) {
    return steal(api(PyMarshal_ReadObjectFromString, reinterpret_cast<const char*>(bytes.data()),
                     static_cast<Py_ssize_t>(bytes.size())));
}

// Runs the code of a module's body in its namespace.
inline void run(Borrowed code, Borrowed globals) {
    steal(api(PyEval_EvalCode, code.get(), globals.get(), globals.get()));
}

// The function that runs this code in a namespace.
inline Ref make_function(Borrowed code, Borrowed globals) {
    return steal(api(PyFunction_New, code.get(), globals.get()));
}

}  // namespace py
