#pragma once

#include <cstdint>
#include <optional>

#include "object.h"

namespace py {

// The value of an exact `int` that fits; nothing for any other object. No Python code runs here.
inline std::optional<std::int64_t> plain_integer(Borrowed object) {
    if (!PyLong_CheckExact(object.get())) return {};
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(object.get(), &overflow);
    if (overflow != 0) return {};
    return value;
}

}  // namespace py
