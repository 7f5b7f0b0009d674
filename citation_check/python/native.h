#pragma once

#include <cstddef>
#include <utility>

#include "call.h"

// C++ functions as builtin functions.
namespace py {

namespace detail {

template <class State, class... Values, std::size_t... Index>
Ref call_body(Ref (*body)(State&, Values...), PyObject* self, PyObject* const* arguments,
              std::index_sequence<Index...>) {
    return body(State::of(self), Borrowed(arguments[Index])...);
}

template <class State, class... Values>
PyObject* enter(Ref (*body)(State&, Values...), PyObject* self, PyObject* const* arguments, Py_ssize_t count) noexcept {
    return guarded([&] {
        if (count != sizeof...(Values)) {
            raise(PyExc_TypeError, "expected %zd arguments, got %zd", sizeof...(Values), count);
        }
        return call_body(body, self, arguments, std::index_sequence_for<Values...>{});
    });
}

template <auto Body>
PyObject* native(PyObject* self, PyObject* const* arguments, Py_ssize_t count) noexcept {
    return enter(Body, self, arguments, count);
}

}  // namespace detail

// The builtin function over `Ref Body(State&, Borrowed...)`: it takes one positional argument for each Borrowed, which
// the caller keeps alive. `State::of` gives the state of the module that the builtin was made for.
template <auto Body>
PyMethodDef native(const char* name) {
    const auto function = reinterpret_cast<void (*)()>(&detail::native<Body>);
    return {name, reinterpret_cast<PyCFunction>(function), METH_FASTCALL, nullptr};
}

// An object whose attributes are these builtins, made for `module`; `definitions` ends with an empty one, and must
// outlive them.
Ref make_natives(Borrowed module, PyMethodDef* definitions);

}  // namespace py
