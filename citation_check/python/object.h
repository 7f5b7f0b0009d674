#pragma once

#include <concepts>
#include <utility>

#include "thread.h"

namespace py {

// Thrown when the interpreter's error indicator is set; the error itself stays there.
struct Error {};

// A plain view of an object that somebody else keeps alive; never empty unless said so.
class Borrowed {
  public:
    // From a plain pointer, or from what stands for one.
    template <std::convertible_to<PyObject*> Object>
    Borrowed(const Object& object) noexcept : object_(object) {}

    PyObject* get() const noexcept { return object_; }
    PyTypeObject* type() const noexcept { return Py_TYPE(object_); }
    bool is(Borrowed other) const noexcept { return object_ == other.object_; }
    bool is_none() const noexcept { return object_ == Py_None; }

  private:
    PyObject* object_;
};

// One owned reference, or empty. Move-only, so each reference is released exactly once.
class Ref {
  public:
    Ref() noexcept = default;
    Ref(Ref&& other) noexcept : object_(other.relinquish()) {}
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    // A call for each of the many that are empty or shared would be a thirtieth of an extraction.
    [[gnu::always_inline]] ~Ref() {
        if (object_ != nullptr) release(object_);
    }

    // The old object goes last: its release may run Python code that looks at this very Ref.
    Ref& operator=(Ref&& other) noexcept {
        const Ref old(std::exchange(object_, other.relinquish()));
        return *this;
    }

    PyObject* get() const noexcept { return object_; }
    // The caller owns what comes back, and this Ref is empty.
    PyObject* relinquish() noexcept { return std::exchange(object_, nullptr); }
    bool is(Borrowed other) const noexcept { return object_ == other.get(); }
    bool is_none() const noexcept { return object_ == Py_None; }

    operator Borrowed() const noexcept { return {object_}; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    friend Ref take(PyObject* object) noexcept;
    explicit Ref(PyObject* object) noexcept : object_(object) {}

    PyObject* object_ = nullptr;
};

// Owns a new reference that may be NULL without an error: empty then.
inline Ref take(PyObject* object) noexcept { return Ref(object); }

// Owns the new reference that an interpreter call returned; NULL means that it set an error.
inline Ref steal(PyObject* object) {
    if (object == nullptr) throw Error{};
    return take(object);
}

// Owns one more reference to an object that somebody else keeps alive now.
inline Ref borrow(Borrowed object) noexcept { return take(Py_NewRef(object.get())); }

inline Ref none() noexcept { return borrow(Py_None); }

// The status of an interpreter call for which below 0 means that it set an error.
inline int check(int status) {
    if (status < 0) throw Error{};
    return status;
}

// A name or a fixed text, one object for all who intern the same characters.
inline Ref interned(const char* text) { return steal(PyUnicode_InternFromString(text)); }

}  // namespace py
