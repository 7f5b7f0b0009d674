#include "call.h"

namespace py {

namespace {

Ref iterator_to_unpack(Borrowed iterable) {
    Ref iterator = take(api(PyObject_GetIter, iterable.get()));
    if (iterator) return iterator;
    const bool iterable_type = iterable.type()->tp_iter != nullptr || PySequence_Check(iterable.get()) != 0;
    if (PyErr_ExceptionMatches(PyExc_TypeError) && !iterable_type) {
        raise(PyExc_TypeError, "cannot unpack non-iterable %.200s object", iterable.type()->tp_name);
    }
    throw Error{};
}

}  // namespace

void unpack_into(Borrowed iterable, Ref* values, std::size_t count) {
    if (PyTuple_CheckExact(iterable.get()) && PyTuple_GET_SIZE(iterable.get()) == static_cast<Py_ssize_t>(count)) {
        for (std::size_t index = 0; index < count; ++index) {
            values[index] = borrow(PyTuple_GET_ITEM(iterable.get(), static_cast<Py_ssize_t>(index)));
        }
        return;
    }
    const Ref iterator = iterator_to_unpack(iterable);
    for (std::size_t index = 0; index < count; ++index) {
        values[index] = take(api(PyIter_Next, iterator.get()));
        if (values[index]) continue;
        if (PyErr_Occurred()) throw Error{};
        raise(PyExc_ValueError, "not enough values to unpack (expected %zd, got %zd)", count, index);
    }
    if (take(api(PyIter_Next, iterator.get())))
        raise(PyExc_ValueError, "too many values to unpack (expected %zd)", count);
    if (PyErr_Occurred()) throw Error{};
}

Ref prefix(Borrowed value, Borrowed stop) {
    const Ref slice = steal(api(PySlice_New, nullptr, stop.get(), nullptr));
    return item(value, slice);
}

Ref lookup_special(Borrowed object, Borrowed name) {
    PyObject* const found = api(interpreter::class_attribute, object.type(), name.get());
    if (found == nullptr) return {};
    Ref method = borrow(found);
    const descrgetfunc bind = Py_TYPE(found)->tp_descr_get;
    if (bind == nullptr) return method;
    PyObject* const type = reinterpret_cast<PyObject*>(object.type());
    return steal(api(bind, method.get(), object.get(), type));
}

ContextManager::ContextManager(Borrowed manager, Borrowed enter_name, Borrowed exit_name)
    : enter_(lookup_special(manager, enter_name)) {
    if (!enter_) {
        raise(PyExc_TypeError, "'%.200s' object does not support the context manager protocol",
              manager.type()->tp_name);
    }
    exit_ = lookup_special(manager, exit_name);
    if (!exit_) {
        raise(PyExc_TypeError, "'%.200s' object does not support the context manager protocol (missed __exit__ method)",
              manager.type()->tp_name);
    }
}

bool ContextManager::exit_with_error() {
    Handled error;
    if (!truth(call(exit_, error.type(), error.value(), error.traceback()))) error.reraise();
    return false;
}

}  // namespace py
