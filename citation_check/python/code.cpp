#include "code.h"

#include <algorithm>

namespace py {

namespace {

Ref interned(std::span<const char* const> texts) {
    Ref tuple = steal(PyTuple_New(static_cast<Py_ssize_t>(texts.size())));
    Py_ssize_t index = 0;
    for (const char* text : texts) {
        PyTuple_SET_ITEM(tuple.get(), index++, steal(PyUnicode_InternFromString(text)).release());
    }
    return tuple;
}

}  // namespace

Ref make_code(Module& module, const FunctionRow& row) {
    const Ref empty = steal(reinterpret_cast<PyObject*>(PyCode_NewEmpty(row.body.file, row.name, row.body.line)));
    const auto keyword_only = std::ranges::count_if(row.parameters, &Parameter::keyword_only);
    const auto count = static_cast<Py_ssize_t>(row.parameters.size());
    const Ref names = parameter_names(row);
    const Ref free_variables = interned(row.free_variables);
    const Ref changes = steal(Py_BuildValue(
        "{s:n,s:n,s:n,s:i,s:O,s:O,s:s}", "co_argcount", count - keyword_only, "co_kwonlyargcount", keyword_only,
        "co_nlocals", count, "co_flags", CO_OPTIMIZED | CO_NEWLOCALS | CO_FUTURE_ANNOTATIONS | row.code_flags,
        "co_varnames", names.get(), "co_freevars", free_variables.get(), "co_qualname", row.qualname));
    const Ref replace = attr(empty, module.names.replace);
    return steal(PyObject_VectorcallDict(replace.get(), nullptr, 0, changes.get()));
}

}  // namespace py
