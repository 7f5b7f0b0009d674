#pragma once

#include <array>
#include <cstddef>

#include "error.h"
#include "object.h"

// Each function here may run any Python code unless it says otherwise: hold a Ref to what is needed after it. C++ does
// not say in which order it works out the arguments of a call, so no two of them may run Python code.
namespace py {

// `object.name`
inline Ref attr(Borrowed object, Borrowed name) { return steal(api(PyObject_GetAttr, object.get(), name.get())); }

// `object.name = value`
inline void set_attr(Borrowed object, Borrowed name, Borrowed value) {
    check(api(PyObject_SetAttr, object.get(), name.get(), value.get()));
}

// `bool(object)`
inline bool truth(Borrowed object) { return check(api(PyObject_IsTrue, object.get())) != 0; }

// The truth of `left == right`, `left < right` and so on; `operation` is one of Py_EQ, Py_LT, ...
inline bool compare(Borrowed left, Borrowed right, int operation) {
    return truth(steal(api(PyObject_RichCompare, left.get(), right.get(), operation)));
}

// `len(object)`
inline Py_ssize_t length(Borrowed object) {
    const Py_ssize_t size = api(PyObject_Size, object.get());
    if (size < 0) throw Error{};
    return size;
}

// `container[key]`
inline Ref item(Borrowed container, Borrowed key) { return steal(api(PyObject_GetItem, container.get(), key.get())); }

// `item in container`
inline bool contains(Borrowed container, Borrowed item) {
    return check(api(PySequence_Contains, container.get(), item.get())) != 0;
}

// `callable(*positional, **keywords)`: the last values go with `keywords`, a tuple of names (NULL for none).
template <class... Values>
Ref call_with(Borrowed callable, PyObject* keywords, const Values&... values) {
    // The spare slot in front lets a bound method put its instance there without copying the arguments.
    PyObject* arguments[] = {nullptr, Borrowed(values).get()...};
    const std::size_t named = keywords == nullptr ? 0 : static_cast<std::size_t>(PyTuple_GET_SIZE(keywords));
    const std::size_t positional = (sizeof...(values) - named) | PY_VECTORCALL_ARGUMENTS_OFFSET;
    return steal(api(PyObject_Vectorcall, callable.get(), arguments + 1, positional, keywords));
}

// `callable(*values)`
template <class... Values>
Ref call(Borrowed callable, const Values&... values) {
    return call_with(callable, nullptr, values...);
}

// `object.name(*values)`
template <class... Values>
Ref call_method(Borrowed object, Borrowed name, const Values&... values) {
    PyObject* arguments[] = {object.get(), Borrowed(values).get()...};
    const std::size_t count = (1 + sizeof...(values)) | PY_VECTORCALL_ARGUMENTS_OFFSET;
    return steal(api(PyObject_VectorcallMethod, name.get(), arguments, count, nullptr));
}

// The next item of an iterator; empty at the end.
inline Ref next(Borrowed iterator) {
    Ref item = take(api(PyIter_Next, iterator.get()));
    if (!item && PyErr_Occurred()) throw Error{};
    return item;
}

// `for item in iterable`, as `while (iteration.next(item))`. As a variable of Python does, `item` keeps what it holds
// until it gets another value, so also after the end, when the iterator is gone and there is no next one to ask for.
class Iteration {
  public:
    explicit Iteration(Borrowed iterable) : iterator_(steal(api(PyObject_GetIter, iterable.get()))) {}

    bool next(Ref& item) {
        Ref found = py::next(iterator_);
        if (!found) {
            iterator_ = Ref();
            return false;
        }
        item = std::move(found);
        return true;
    }

  private:
    Ref iterator_;
};

// Takes exactly `count` values from an iterable, as an assignment to that many names does, into `values`.
void unpack_into(Borrowed iterable, Ref* values, std::size_t count);

template <std::size_t Count>
std::array<Ref, Count> unpack(Borrowed iterable) {
    std::array<Ref, Count> values;
    unpack_into(iterable, values.data(), Count);
    return values;
}

// What an f-string's braces make of a value: `format(value, "")`, a string.
inline Ref format(Borrowed value) {
    if (PyUnicode_CheckExact(value.get())) return borrow(value);
    return steal(api(PyObject_Format, value.get(), nullptr));
}

// `value[:stop]`, whatever both are
Ref prefix(Borrowed value, Borrowed stop);

// A tuple of values that the caller keeps alive.
template <class... Values>
Ref tuple_of(const Values&... values) {
    return steal(api(PyTuple_Pack, static_cast<Py_ssize_t>(sizeof...(values)), Borrowed(values).get()...));
}

// `separator.join(parts)`; with an empty separator, what an f-string makes of them, in no more memory than that.
template <class... Parts>
Ref join(Borrowed separator, const Parts&... parts) {
    return steal(api(PyUnicode_Join, separator.get(), tuple_of(parts...).get()));
}

inline Ref new_list() { return steal(api(PyList_New, Py_ssize_t{0})); }
inline Ref new_dict() { return steal(api(PyDict_New)); }

// A list of values that the caller keeps alive.
template <class... Values>
Ref list_of(const Values&... values) {
    Ref list = steal(api(PyList_New, static_cast<Py_ssize_t>(sizeof...(values))));
    Py_ssize_t index = 0;
    (PyList_SET_ITEM(list.get(), index++, Py_NewRef(Borrowed(values).get())), ...);
    return list;
}

inline Ref integer(Py_ssize_t value) { return steal(PyLong_FromSsize_t(value)); }

inline void append(Borrowed list, Borrowed item) { check(PyList_Append(list.get(), item.get())); }

// `list.extend(iterable)`, for which 3.11 has no public function
inline void extend(Borrowed list, Borrowed iterable) {
    steal(api(PySequence_InPlaceConcat, list.get(), iterable.get()));
}

inline void set_item(Borrowed dict, Borrowed key, Borrowed value) {
    check(api(PyDict_SetItem, dict.get(), key.get(), value.get()));
}

// A special method's look-up, on the type and not the instance; empty when the type has none.
Ref lookup_special(Borrowed object, Borrowed name);

// The two halves of a `with` statement; `__exit__` is looked up before `__enter__` is called.
class ContextManager {
  public:
    // Raises what the interpreter raises for an object that is no context manager.
    ContextManager(Borrowed manager, Borrowed enter_name, Borrowed exit_name);

    // `with manager as entered: body(entered)`. False when the manager swallowed the body's exception.
    template <class Body>
    bool run(Body body) {
        const Ref entered = call(enter_);
        if (!succeeds([&] { body(Borrowed(entered)); })) return exit_with_error();
        call(exit_, Py_None, Py_None, Py_None);
        return true;
    }

  private:
    bool exit_with_error();

    Ref enter_;
    Ref exit_;
};

}  // namespace py
