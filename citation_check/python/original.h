#pragma once

#include <array>
#include <initializer_list>
#include <vector>

#include "object.h"

namespace py {

// An object of the import, with those parts of it that can be replaced in place. While both are unpatched, and no
// tracer or profiler is active, C++ can do the object's work itself: that cannot be observed.
class Original {
  public:
    // Remembers `object`, and of a class or a module what it holds under these interned names, or that it holds
    // nothing. The names must outlive this.
    void remember(Borrowed object, std::initializer_list<Borrowed> attributes = {});

    // Whether `object` is the one remembered, its remembered attributes hold the same objects, and its functions have
    // the same code and defaults. Valid only until Python code runs again.
    bool is(Borrowed object) const noexcept { return object.get() == object_.get() && is_unpatched(); }

    // Whether that holds of the object remembered; false before there is one.
    bool is_unpatched() const noexcept { return object_ && (!is_replaceable_ || has_same_parts()); }

    // The same for the calls that it stands for: false while a tracer or a profiler would see them.
    bool is_untraced(Borrowed object) const noexcept { return is(object) && !interpreter::is_traced(); }

    // The object remembered; None before.
    Borrowed object() const noexcept { return object_ ? object_.get() : Py_None; }
    // What was remembered of the attribute of that name; None for nothing.
    Borrowed attribute(Borrowed name) const noexcept;

    int visit(visitproc visit, void* arg) const;
    // Nothing is the original any more.
    void clear();

  private:
    bool has_same_parts() const noexcept;

    // What a call of a Python function runs: its code with the defaults; all empty for anything else.
    using Called = std::array<Ref, 3>;

    struct Part {
        PyObject* name;
        Ref value;  // empty for an attribute that was not there
        Called called;
    };

    Ref object_;
    Ref type_;
    Called called_;
    std::vector<Part> parts_;
    bool is_replaceable_ = false;  // there is anything that could be replaced in place
};

}  // namespace py
