#pragma once

#include <initializer_list>

#include "module.h"

namespace py {

struct FieldValue {
    Borrowed name;
    Borrowed value;
};

// What calling a frozen dataclass does while nothing of it is replaced, without running its `__init__`: a new instance
// whose attributes are set past the frozen `__setattr__`.
Ref make_record(const Module& module, Borrowed type, std::initializer_list<FieldValue> fields);

}  // namespace py
