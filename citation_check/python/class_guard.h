#pragma once

#include "object.h"

namespace py {

// Tells whether a class is what it was: the attributes of it and of its bases are the very objects of then.
struct ClassGuard {
    PyObject* type;      // NULL: nothing is remembered, and no class is unchanged
    PyObject* snapshot;  // a tuple of dictionaries, of the class and of its bases up to `object`
    unsigned version;    // the interpreter's version of the class when it was last found unchanged; 0: none

    // Remembers an ordinary class as it is now; one with a metaclass of its own is not remembered.
    void remember(Borrowed class_object);

    // No Python code runs here. A change of the class costs a comparison of its attributes, once.
    bool is_unchanged(Borrowed class_object);
};

}  // namespace py
