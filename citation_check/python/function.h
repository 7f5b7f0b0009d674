#pragma once

#include <cstddef>
#include <span>
#include <utility>

#include "call.h"
#include "module.h"

// Native functions that are Python functions to whoever looks at them.
namespace py {

struct Parameter {
    const char* name;
    const char* annotation = nullptr;  // none for `self` and `cls`
    bool keyword_only = false;
    bool defaults_to_none = false;

    constexpr Parameter keyword() const { return {name, annotation, true, defaults_to_none}; }
    constexpr Parameter or_none() const { return {name, annotation, keyword_only, true}; }
};

constexpr std::size_t most_parameters = 8;

// The variables that an inner function holds from the call that made it.
class Closure {
  public:
    Closure(PyObject* cells, std::span<const char* const> names) : cells_(cells), names_(names) {}

    // NameError for a variable that somebody has deleted.
    Ref operator[](std::size_t index) const {
        Ref value = take(PyCell_Get(PyTuple_GET_ITEM(cells_, static_cast<Py_ssize_t>(index))));
        if (value) return value;
        raise(PyExc_NameError,
              "cannot access free variable '%s' where it is not associated with a value in enclosing"
              " scope",
              names_[index]);
    }

  private:
    PyObject* cells_;
    std::span<const char* const> names_;
};

// What a function's body gets: a value for each parameter, all kept alive by the caller.
struct Arguments {
    PyObject* const* values;
    Closure closure;
};

using Body = Ref (*)(Module&, const Arguments&);

// A body, and the place in the sources where a row names it: tracebacks and code objects tell it.
struct PlacedBody {
    constexpr PlacedBody(Body body, const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : enter(body), file(file), line(line) {}

    Body enter;
    const char* file;
    int line;
};

// One native function: everything that it shows, and its body.
struct FunctionRow {
    const char* name;
    const char* qualname;
    std::span<const Parameter> parameters;  // the keyword-only ones last
    const char* returns;
    const char* doc;  // nullptr: `__doc__` is None
    PlacedBody body;
    int code_flags = 0;                                // of its code object, besides those of every function
    std::span<const char* const> free_variables = {};  // the names of what an inner function's cells hold
};

// A new function object for `row`, which must outlive it. `cells` is an inner function's tuple of cells, or NULL.
// The function keeps its module alive. Fails only for want of memory.
Ref make_function(Module& module, const FunctionRow& row, PyObject* cells = nullptr);

// The type of the functions of one copy of the module.
Ref make_function_type(PyObject* module);

namespace detail {

template <class... Values, std::size_t... Index>
Ref spread(Ref (*body)(Module&, Values...), Module& module, const Arguments& arguments,
           std::index_sequence<Index...> /*places*/) {
    return body(module, Borrowed(arguments.values[Index])...);
}

template <class... Values, std::size_t... Index>
Ref spread(Ref (*body)(Module&, Closure, Values...), Module& module, const Arguments& arguments,
           std::index_sequence<Index...> /*places*/) {
    return body(module, arguments.closure, Borrowed(arguments.values[Index])...);
}

template <class... Values>
Ref enter(Ref (*body)(Module&, Values...), Module& module, const Arguments& arguments) {
    return spread(body, module, arguments, std::index_sequence_for<Values...>{});
}

template <class... Values>
Ref enter(Ref (*body)(Module&, Closure, Values...), Module& module, const Arguments& arguments) {
    return spread(body, module, arguments, std::index_sequence_for<Values...>{});
}

}  // namespace detail

// The table's form of a C++ function `Ref f(Module&, [Closure,] Borrowed...)`, one Borrowed a parameter.
template <auto Function>
Ref native(Module& module, const Arguments& arguments) {
    return detail::enter(Function, module, arguments);
}

}  // namespace py
