#include "code.h"

#include <algorithm>

namespace py {

Ref make_code(Module& module, const FunctionRow& row) {
    const Ref empty = steal(reinterpret_cast<PyObject*>(PyCode_NewEmpty(row.body.file, row.name, row.body.line)));
    const auto keyword_only = std::ranges::count_if(row.parameters, &Parameter::keyword_only);
    const auto count = static_cast<Py_ssize_t>(row.parameters.size());
    const Ref names = parameter_names(row);
    const Ref changes = steal(Py_BuildValue("{s:n,s:n,s:n,s:i,s:O,s:s}", "co_argcount", count - keyword_only,
                                            "co_kwonlyargcount", keyword_only, "co_nlocals", count, "co_flags",
                                            CO_OPTIMIZED | CO_NEWLOCALS | CO_FUTURE_ANNOTATIONS | row.code_flags,
                                            "co_varnames", names.get(), "co_qualname", row.qualname));
    const Ref replace = attr(empty, module.names.replace);
    return steal(PyObject_VectorcallDict(replace.get(), nullptr, 0, changes.get()));
}

void trace_failure(const FunctionRow& row) noexcept {
    PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    const bool starts_here = traceback == nullptr;
    PyErr_Restore(type, value, traceback);
    if (starts_here) _PyTraceback_Add(row.name, row.body.file, row.body.line);
}

}  // namespace py
