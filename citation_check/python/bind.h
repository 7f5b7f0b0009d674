#pragma once

#include <array>

#include "function.h"

namespace py {

// What a call's arguments are bound to: the names, and the defaults that the function has now.
struct Signature {
    Borrowed qualname;
    Borrowed parameters;  // the tuple of parameter names
    std::size_t positional;
    std::size_t keyword_only;
    PyObject* defaults;          // a tuple or NULL, of the last positional parameters
    PyObject* keyword_defaults;  // a dictionary or NULL
};

// Binds a vectorcall's arguments as the interpreter binds those of a Python function, and raises the same TypeErrors.
class BoundArguments {
  public:
    BoundArguments(const Signature& signature, PyObject* const* arguments, std::size_t count, PyObject* keywords);

    PyObject* const* values() const noexcept { return values_.data(); }

  private:
    void take_keywords(const Signature& signature, PyObject* const* arguments, PyObject* keywords);
    void fill_in_defaults(const Signature& signature, std::size_t given);
    void fill_in_keyword_defaults(const Signature& signature);
    void set_default(std::size_t index, Borrowed value);

    std::array<PyObject*, most_parameters> values_{};
    // The callers keep their arguments alive; a default could be replaced while the body runs.
    std::array<Ref, most_parameters> defaults_;
};

}  // namespace py
