#pragma once

#include <memory>

#include "function.h"

namespace py {

// A computation that a generator carries on step by step.
class Steps {
  public:
    virtual ~Steps() = default;
    // The next value, or empty at the end. After the end, or after an exception, it is not called again.
    virtual Ref next() = 0;
    virtual int visit(visitproc visit, void* argument) const = 0;
};

// The next value of `steps` as a generator's frame would give it: a StopIteration from inside is a RuntimeError.
Ref advance(Steps& steps);

// A generator object that carries `steps` on; `row` is the generator function that it is made by.
Ref make_generator(Module& module, const FunctionRow& row, std::unique_ptr<Steps> steps);

Ref make_generator_type(PyObject* module);

}  // namespace py
