#pragma once

#include "function.h"

namespace py {

// The body of a class statement: what it binds, in its order, and then the class.
class ClassBody {
  public:
    // An empty body without annotations has none in its namespace either.
    enum class Annotated { no, yes };

    ClassBody(Module& module, const char* name, const char* doc, Annotated annotated = Annotated::no);

    void annotate(const char* name, const char* annotation) const;
    void assign(const char* name, Borrowed value) const;
    void define(const FunctionRow& row) const;
    // A function under one of the interpreter's decorators, `property` or `classmethod`.
    void define(const FunctionRow& row, PyTypeObject& decorator) const;

    // `type(name, (), namespace)`
    Ref make() const;

  private:
    Module& module_;
    Ref name_;
    Ref namespace_;
    Ref annotations_;
};

}  // namespace py
