#include "function.h"

#include <structmember.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "bind.h"
#include "code.h"
#include "heap_type.h"
#include "trace.h"

namespace py {

namespace {

enum Field : std::size_t {
    module_object,
    name,
    qualname,
    module_name,
    doc,
    annotations,
    defaults,
    keyword_defaults,
    closure,
    code,
    parameters,
    field_count
};

struct FunctionObject {
    PyObject_HEAD
    vectorcallfunc vectorcall;
    const FunctionRow* row;
    Module* module;  // kept alive by fields[module_object]
    PyObject* dict;
    PyObject* weak_references;
    std::array<PyObject*, field_count> fields;
};

FunctionObject& as_function(PyObject* object) { return *reinterpret_cast<FunctionObject*>(object); }

// --- calling -------------------------------------------------------------------------------------------------------

std::size_t positional_count(const FunctionRow& row) {
    const auto first_keyword = std::ranges::find_if(row.parameters, &Parameter::keyword_only);
    return static_cast<std::size_t>(first_keyword - row.parameters.begin());
}

Ref run(FunctionObject& function, PyObject* const* arguments, std::size_t count, PyObject* keywords) {
    const FunctionRow& row = *function.row;
    function.module->refuse_when_collected(function.fields[qualname]);
    const Closure cells(function.fields[closure], row.free_variables);
    if (keywords == nullptr && count == row.parameters.size() && positional_count(row) == count) {
        return row.body.enter(*function.module, {arguments, cells});
    }
    // A keyword's comparison may run code that replaces these.
    const auto held = [&function](Field field) { return take(Py_XNewRef(function.fields[field])); };
    const Ref held_name = held(qualname);
    const Ref held_defaults = held(defaults);
    const Ref held_keyword_defaults = held(keyword_defaults);
    const std::size_t positional = positional_count(row);
    const Signature signature{held_name,           function.fields[parameters],
                              positional,          row.parameters.size() - positional,
                              held_defaults.get(), held_keyword_defaults.get()};
    const BoundArguments bound(signature, arguments, count, keywords);
    return row.body.enter(*function.module, {bound.values(), cells});
}

// A generator has the names that its function has by now.
void name_generator(Borrowed generator, const FunctionObject& function) {
    set_attr(generator, function.module->names.name_dunder, function.fields[name]);
    set_attr(generator, function.module->names.qualname_dunder, function.fields[qualname]);
}

PyObject* call_function(PyObject* self, PyObject* const* arguments, std::size_t flagged_count,
                        PyObject* keywords) noexcept {
    const Ref alive = borrow(self);
    const auto count = static_cast<std::size_t>(PyVectorcall_NARGS(flagged_count));
    const Running running(*as_function(self).row);
    PyObject* const result = guarded([&] {
        const RecursionDepth depth;
        Ref result = run(as_function(self), arguments, count, keywords);
        if ((as_function(self).row->code_flags & CO_GENERATOR) != 0) name_generator(result, as_function(self));
        return result;
    });
    if (result == nullptr) trace_failure();
    return result;
}

PyObject* bind_method(PyObject* self, PyObject* instance, PyObject* /*owner*/) noexcept {
    if (instance == nullptr || instance == Py_None) return Py_NewRef(self);
    return PyMethod_New(self, instance);
}

// --- attributes ----------------------------------------------------------------------------------------------------

// What may be assigned to an attribute.
enum class Takes { anything, text, tuple_or_none, dict_or_none };

struct Rule {
    Field field;
    Takes takes = Takes::anything;
    const char* refusal = nullptr;
};

Rule name_rule{name, Takes::text, "__name__ must be set to a string object"};
Rule qualname_rule{qualname, Takes::text, "__qualname__ must be set to a string object"};
Rule module_rule{module_name};
Rule doc_rule{doc};
Rule annotations_rule{annotations, Takes::dict_or_none, "__annotations__ must be set to a dict object"};
Rule defaults_rule{defaults, Takes::tuple_or_none, "__defaults__ must be set to a tuple object"};
Rule keyword_defaults_rule{keyword_defaults, Takes::dict_or_none, "__kwdefaults__ must be set to a dict object"};
Rule closure_rule{closure};

PyObject* get_field(PyObject* self, void* rule) noexcept {
    PyObject* const value = as_function(self).fields[static_cast<Rule*>(rule)->field];
    return Py_NewRef(value == nullptr ? Py_None : value);
}

bool accepts(Takes takes, PyObject* value) {
    const bool absent = value == nullptr || value == Py_None;
    switch (takes) {
        case Takes::text: return value != nullptr && PyUnicode_Check(value);
        case Takes::tuple_or_none: return absent || PyTuple_Check(value);
        case Takes::dict_or_none: return absent || PyDict_Check(value);
        case Takes::anything: break;
    }
    return true;
}

int set_field(PyObject* self, PyObject* value, void* closure_data) noexcept {
    const Rule& rule = *static_cast<Rule*>(closure_data);
    if (!accepts(rule.takes, value)) {
        PyErr_SetString(PyExc_TypeError, rule.refusal);
        return -1;
    }
    if (value == Py_None) value = nullptr;
    const Ref old = take(std::exchange(as_function(self).fields[rule.field], Py_XNewRef(value)));
    return 0;
}

PyObject* get_annotations(PyObject* self, void* /*unused*/) noexcept {
    PyObject*& value = as_function(self).fields[annotations];
    if (value == nullptr) value = PyDict_New();
    return Py_XNewRef(value);
}

PyObject* get_code(PyObject* self, void* /*unused*/) noexcept {
    return guarded([self] {
        FunctionObject& function = as_function(self);
        if (function.fields[code] == nullptr) {
            // Made by Python code, so another thread may have come first.
            Ref made = make_code(*function.module, *function.row);
            if (function.fields[code] == nullptr) function.fields[code] = made.release();
        }
        return borrow(function.fields[code]);
    });
}

PyObject* get_globals(PyObject* self, void* /*unused*/) noexcept {
    return Py_NewRef(as_function(self).module->globals);
}

PyObject* get_builtins(PyObject* self, void* /*unused*/) noexcept {
    PyObject* const value = as_function(self).module->builtins;
    return Py_NewRef(value == nullptr ? Py_None : value);
}

// What makes `isinstance(f, types.FunctionType)`, and all of the library that asks so, see a function.
PyObject* get_class(PyObject* /*self*/, void* /*unused*/) noexcept {
    return Py_NewRef(reinterpret_cast<PyObject*>(&PyFunction_Type));
}

PyGetSetDef attributes[] = {
    {"__name__", get_field, set_field, nullptr, &name_rule},
    {"__qualname__", get_field, set_field, nullptr, &qualname_rule},
    {"__module__", get_field, set_field, nullptr, &module_rule},
    {"__doc__", get_field, set_field, nullptr, &doc_rule},
    {"__annotations__", get_annotations, set_field, nullptr, &annotations_rule},
    {"__defaults__", get_field, set_field, nullptr, &defaults_rule},
    {"__kwdefaults__", get_field, set_field, nullptr, &keyword_defaults_rule},
    {"__closure__", get_field, nullptr, nullptr, &closure_rule},
    {"__code__", get_code, nullptr, nullptr, nullptr},
    {"__globals__", get_globals, nullptr, nullptr, nullptr},
    {"__builtins__", get_builtins, nullptr, nullptr, nullptr},
    {"__class__", get_class, nullptr, nullptr, nullptr},
    {"__dict__", PyObject_GenericGetDict, PyObject_GenericSetDict, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

// Pickled and copied by its qualified name, as every function is.
PyObject* reduce(PyObject* self, PyObject* /*unused*/) noexcept {
    return Py_NewRef(as_function(self).fields[qualname]);
}

PyMethodDef methods[] = {
    {"__reduce__", reduce, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyMemberDef members[] = {
    {"__vectorcalloffset__", T_PYSSIZET, offsetof(FunctionObject, vectorcall), READONLY, nullptr},
    {"__dictoffset__", T_PYSSIZET, offsetof(FunctionObject, dict), READONLY, nullptr},
    {"__weaklistoffset__", T_PYSSIZET, offsetof(FunctionObject, weak_references), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyObject* represent(PyObject* self) noexcept {
    return PyUnicode_FromFormat("<function %U at %p>", as_function(self).fields[qualname], self);
}

// --- life ----------------------------------------------------------------------------------------------------------

int traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(as_function(self).dict);
    for (PyObject* field : as_function(self).fields) Py_VISIT(field);
    return 0;
}

// The module, the names and the parameters stay to the end: a function that is being collected can still be called.
int clear(PyObject* self) {
    FunctionObject& function = as_function(self);
    Py_CLEAR(function.dict);
    for (const Field field : {module_name, doc, annotations, defaults, keyword_defaults, code}) {
        Py_CLEAR(function.fields[field]);
    }
    return 0;
}

void deallocate(PyObject* self) {
    PyTypeObject* const type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    if (as_function(self).weak_references != nullptr) PyObject_ClearWeakRefs(self);
    clear(self);
    for (PyObject*& field : as_function(self).fields) Py_CLEAR(field);
    type->tp_free(self);
    Py_DECREF(type);
}

PyType_Slot slots[] = {
    {Py_tp_call, reinterpret_cast<void*>(PyVectorcall_Call)},
    {Py_tp_descr_get, reinterpret_cast<void*>(bind_method)},
    {Py_tp_getset, attributes},
    {Py_tp_methods, methods},
    {Py_tp_members, members},
    {Py_tp_repr, reinterpret_cast<void*>(represent)},
    {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
    {Py_tp_clear, reinterpret_cast<void*>(clear)},
    {Py_tp_dealloc, reinterpret_cast<void*>(deallocate)},
    {0, nullptr},
};

PyType_Spec type_spec = {
    "citation_check.function",
    sizeof(FunctionObject),
    0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_HAVE_VECTORCALL | Py_TPFLAGS_METHOD_DESCRIPTOR |
        Py_TPFLAGS_DISALLOW_INSTANTIATION | Py_TPFLAGS_IMMUTABLETYPE,
    slots,
};

// --- making --------------------------------------------------------------------------------------------------------

Ref annotations_of(const Module& module, const FunctionRow& row) {
    Ref dict = new_dict();
    for (const Parameter& parameter : row.parameters) {
        if (parameter.annotation == nullptr) continue;
        set_item(dict, steal(PyUnicode_InternFromString(parameter.name)),
                 steal(PyUnicode_InternFromString(parameter.annotation)));
    }
    set_item(dict, module.names.return_, steal(PyUnicode_InternFromString(row.returns)));
    return dict;
}

// The defaults are all None: a tuple for the last positional parameters, a dictionary for the keyword-only ones.
Ref defaults_of(const FunctionRow& row) {
    const auto has_default = [](const Parameter& parameter) {
        return parameter.defaults_to_none && !parameter.keyword_only;
    };
    const auto count = std::ranges::count_if(row.parameters, has_default);
    if (count == 0) return {};
    Ref tuple = steal(PyTuple_New(count));
    for (Py_ssize_t index = 0; index < count; ++index) PyTuple_SET_ITEM(tuple.get(), index, none().release());
    return tuple;
}

Ref keyword_defaults_of(const FunctionRow& row) {
    Ref dict = new_dict();
    for (const Parameter& parameter : row.parameters) {
        if (!parameter.keyword_only || !parameter.defaults_to_none) continue;
        set_item(dict, steal(PyUnicode_InternFromString(parameter.name)), Py_None);
    }
    return PyDict_GET_SIZE(dict.get()) != 0 ? std::move(dict) : Ref{};
}

}  // namespace

Ref parameter_names(const FunctionRow& row) {
    Ref tuple = steal(PyTuple_New(static_cast<Py_ssize_t>(row.parameters.size())));
    Py_ssize_t index = 0;
    for (const Parameter& parameter : row.parameters) {
        PyTuple_SET_ITEM(tuple.get(), index++, steal(PyUnicode_InternFromString(parameter.name)).release());
    }
    return tuple;
}

Ref make_function(Module& module, const FunctionRow& row, PyObject* cells) {
    auto* const type = reinterpret_cast<PyTypeObject*>(module.function_type);
    Ref made = steal(type->tp_alloc(type, 0));
    FunctionObject& function = as_function(made.get());
    function.vectorcall = call_function;
    function.row = &row;
    function.module = &module;
    auto& fields = function.fields;
    fields[module_object] = Py_NewRef(module.self);
    fields[closure] = Py_XNewRef(cells);
    fields[name] = steal(PyUnicode_InternFromString(row.name)).release();
    fields[qualname] = steal(PyUnicode_InternFromString(row.qualname)).release();
    fields[module_name] = module.global(module.names.name_dunder).release();
    if (row.doc != nullptr) fields[doc] = steal(PyUnicode_FromString(row.doc)).release();
    fields[annotations] = annotations_of(module, row).release();
    fields[defaults] = defaults_of(row).release();
    fields[keyword_defaults] = keyword_defaults_of(row).release();
    fields[parameters] = parameter_names(row).release();
    return made;
}

Ref make_function_type(PyObject* module) { return make_type(module, type_spec); }

}  // namespace py
