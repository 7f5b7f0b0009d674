#include "generator.h"

#include <frameobject.h>
#include <structmember.h>

#include <utility>

#include "code.h"
#include "heap_type.h"
#include "trace.h"

namespace py {

namespace {

enum class State { created, running, suspended, finished };

struct GeneratorObject {
    PyObject_HEAD
    PyObject* module;  // keeps the state alive that `steps` and `row` are used with
    const FunctionRow* row;
    PyObject* name;
    PyObject* qualname;
    PyObject* weak_references;
    Steps* steps;  // owned; NULL once finished
    State state;
};

GeneratorObject& as_generator(PyObject* object) { return *reinterpret_cast<GeneratorObject*>(object); }

void finish(GeneratorObject& generator) {
    generator.state = State::finished;
    // Moved out first: dropping the steps may run Python code that looks at the generator again.
    const std::unique_ptr<Steps> dropped(std::exchange(generator.steps, nullptr));
}

void refuse_when_running(const GeneratorObject& generator) {
    if (generator.state == State::running) raise(PyExc_ValueError, "generator already executing");
}

// A StopIteration that leaves a generator's frame would look like its end.
void convert_stop_iteration() {
    if (PyErr_ExceptionMatches(PyExc_StopIteration)) {
        _PyErr_FormatFromCause(PyExc_RuntimeError, "generator raised StopIteration");
    }
}

// The error that is set is put aside while the steps are dropped, which may run Python code.
void finish_with_error(GeneratorObject& generator) {
    PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    finish(generator);
    PyErr_Restore(type, value, traceback);
}

Ref resume(GeneratorObject& generator) {
    refuse_when_running(generator);
    if (generator.state == State::finished) return {};
    Module::of(generator.module).refuse_when_collected(generator.qualname);
    const Running running(*generator.row);
    const RecursionDepth depth;
    generator.state = State::running;
    try {
        Ref value = advance(*generator.steps);
        if (value) {
            generator.state = State::suspended;
        } else {
            finish(generator);
        }
        return value;
    } catch (...) {
        set_error_from_exception();
        trace_failure();
        finish_with_error(generator);
        throw Error{};
    }
}

PyObject* next(PyObject* self) noexcept {
    const Ref alive = borrow(self);
    return guarded([self] { return resume(as_generator(self)); });
}

PyObject* send(PyObject* self, PyObject* value) noexcept {
    return guarded([&] {
        const Ref alive = borrow(self);
        if (as_generator(self).state == State::created && value != Py_None) {
            raise(PyExc_TypeError, "can't send non-None value to a just-started generator");
        }
        Ref sent = resume(as_generator(self));
        if (!sent) {
            PyErr_SetNone(PyExc_StopIteration);
            throw Error{};
        }
        return sent;
    });
}

PyObject* close(PyObject* self, PyObject* /*unused*/) noexcept {
    return guarded([self] {
        const Ref alive = borrow(self);
        refuse_when_running(as_generator(self));
        finish(as_generator(self));
        return none();
    });
}

// Sets the error that `throw(kind, value, traceback)` asks for.
void set_thrown_error(PyObject* kind, PyObject* value, PyObject* traceback) {
    Ref error_type = borrow(kind);
    Ref error_value = take(Py_XNewRef(value == Py_None ? nullptr : value));
    Ref error_traceback = take(Py_XNewRef(traceback == Py_None ? nullptr : traceback));
    if (error_traceback && !PyTraceBack_Check(error_traceback.get())) {
        raise(PyExc_TypeError, "throw() third argument must be a traceback object");
    }
    if (PyExceptionInstance_Check(kind)) {
        if (error_value) raise(PyExc_TypeError, "instance exception may not have a separate value");
        error_value = borrow(kind);
        error_type = borrow(PyExceptionInstance_Class(kind));
        if (!error_traceback) error_traceback = take(PyException_GetTraceback(kind));
    } else if (!PyExceptionClass_Check(kind)) {
        raise(PyExc_TypeError, "exceptions must be classes or instances deriving from BaseException, not %s",
              Py_TYPE(kind)->tp_name);
    }
    PyObject* type = error_type.release();
    PyObject* instance = error_value.release();
    PyObject* trace = error_traceback.release();
    PyErr_NormalizeException(&type, &instance, &trace);
    PyErr_Restore(type, instance, trace);
}

PyObject* throw_into(PyObject* self, PyObject* const* arguments, Py_ssize_t count) noexcept {
    return guarded([&]() -> Ref {
        const Ref alive = borrow(self);
        if (count < 1) raise(PyExc_TypeError, "throw expected at least 1 argument, got %zd", count);
        if (count > 3) raise(PyExc_TypeError, "throw expected at most 3 arguments, got %zd", count);
        GeneratorObject& generator = as_generator(self);
        set_thrown_error(arguments[0], count > 1 ? arguments[1] : nullptr, count > 2 ? arguments[2] : nullptr);
        refuse_when_running(generator);
        // Nothing in the steps catches anything, so what is thrown in comes out at once.
        if (generator.state != State::finished) convert_stop_iteration();
        finish_with_error(generator);
        throw Error{};
    });
}

PyObject* get_running(PyObject* self, void* /*unused*/) noexcept {
    return PyBool_FromLong(as_generator(self).state == State::running);
}

PyObject* get_suspended(PyObject* self, void* /*unused*/) noexcept {
    return PyBool_FromLong(as_generator(self).state == State::suspended);
}

PyObject* get_none(PyObject* /*self*/, void* /*unused*/) noexcept { return Py_NewRef(Py_None); }

PyObject* get_code(PyObject* self, void* /*unused*/) noexcept {
    const GeneratorObject& generator = as_generator(self);
    return guarded([&] { return make_code(Module::of(generator.module), *generator.row); });
}

// A frame without variables: there to be told from None, which says that the generator is closed.
PyObject* get_frame(PyObject* self, void* /*unused*/) noexcept {
    return guarded([self] {
        const GeneratorObject& generator = as_generator(self);
        if (generator.state == State::finished) return none();
        Module& module = Module::of(generator.module);
        const Ref code = make_code(module, *generator.row);
        PyFrameObject* const frame =
            PyFrame_New(PyThreadState_Get(), reinterpret_cast<PyCodeObject*>(code.get()), module.globals, nullptr);
        return steal(reinterpret_cast<PyObject*>(frame));
    });
}

PyObject* get_class(PyObject* /*self*/, void* /*unused*/) noexcept {
    return Py_NewRef(reinterpret_cast<PyObject*>(&PyGen_Type));
}

PyObject* represent(PyObject* self) noexcept {
    return PyUnicode_FromFormat("<generator object %U at %p>", as_generator(self).qualname, self);
}

int traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(as_generator(self).module);
    return as_generator(self).steps ? as_generator(self).steps->visit(visit, arg) : 0;
}

int clear(PyObject* self) {
    finish(as_generator(self));
    return 0;
}

void deallocate(PyObject* self) {
    PyTypeObject* const type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    GeneratorObject& generator = as_generator(self);
    if (generator.weak_references != nullptr) PyObject_ClearWeakRefs(self);
    clear(self);
    Py_CLEAR(generator.module);
    Py_CLEAR(generator.name);
    Py_CLEAR(generator.qualname);
    type->tp_free(self);
    Py_DECREF(type);
}

PyMethodDef methods[] = {
    {"send", send, METH_O, nullptr},
    {"throw", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(throw_into)), METH_FASTCALL, nullptr},
    {"close", close, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyMemberDef members[] = {
    {"__weaklistoffset__", T_PYSSIZET, offsetof(GeneratorObject, weak_references), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

// The place of a name in the object, and what is said when something else than a text is to go there.
struct NameRule {
    PyObject* GeneratorObject::*field;
    const char* refusal;
};

NameRule name_rule{&GeneratorObject::name, "__name__ must be set to a string object"};
NameRule qualname_rule{&GeneratorObject::qualname, "__qualname__ must be set to a string object"};

PyObject* get_name(PyObject* self, void* rule) noexcept {
    return Py_NewRef(as_generator(self).*static_cast<NameRule*>(rule)->field);
}

int set_name(PyObject* self, PyObject* value, void* rule_data) noexcept {
    const NameRule& rule = *static_cast<NameRule*>(rule_data);
    if (value == nullptr || !PyUnicode_Check(value)) {
        PyErr_SetString(PyExc_TypeError, rule.refusal);
        return -1;
    }
    const Ref old = take(std::exchange(as_generator(self).*rule.field, Py_NewRef(value)));
    return 0;
}

PyGetSetDef attributes[] = {
    {"__name__", get_name, set_name, nullptr, &name_rule},
    {"__qualname__", get_name, set_name, nullptr, &qualname_rule},
    {"gi_running", get_running, nullptr, nullptr, nullptr},
    {"gi_suspended", get_suspended, nullptr, nullptr, nullptr},
    {"gi_yieldfrom", get_none, nullptr, nullptr, nullptr},
    {"gi_code", get_code, nullptr, nullptr, nullptr},
    {"gi_frame", get_frame, nullptr, nullptr, nullptr},
    {"__class__", get_class, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_iter, reinterpret_cast<void*>(PyObject_SelfIter)},
    {Py_tp_iternext, reinterpret_cast<void*>(next)},
    {Py_tp_methods, methods},
    {Py_tp_members, members},
    {Py_tp_getset, attributes},
    {Py_tp_repr, reinterpret_cast<void*>(represent)},
    {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
    {Py_tp_clear, reinterpret_cast<void*>(clear)},
    {Py_tp_dealloc, reinterpret_cast<void*>(deallocate)},
    {0, nullptr},
};

PyType_Spec type_spec = {
    "citation_check.generator",
    sizeof(GeneratorObject),
    0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION | Py_TPFLAGS_IMMUTABLETYPE,
    slots,
};

}  // namespace

Ref advance(Steps& steps) {
    try {
        return steps.next();
    } catch (const Error&) {
        convert_stop_iteration();
        throw;
    }
}

Ref make_generator(Module& module, const FunctionRow& row, std::unique_ptr<Steps> steps) {
    const Ref name = steal(PyUnicode_InternFromString(row.name));
    const Ref qualname = steal(PyUnicode_InternFromString(row.qualname));
    auto* const type = reinterpret_cast<PyTypeObject*>(module.generator_type);
    Ref made = steal(type->tp_alloc(type, 0));
    GeneratorObject& generator = as_generator(made.get());
    generator.module = Py_NewRef(module.self);
    generator.row = &row;
    generator.name = Py_NewRef(name.get());
    generator.qualname = Py_NewRef(qualname.get());
    generator.steps = steps.release();
    generator.state = State::created;
    return made;
}

Ref make_generator_type(PyObject* module) { return make_type(module, type_spec); }

}  // namespace py
