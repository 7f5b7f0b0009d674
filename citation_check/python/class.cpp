#include "class.h"

namespace py {

ClassBody::ClassBody(Module& module, const char* name, const char* doc, Annotated annotated)
    : module_(module), name_(steal(PyUnicode_InternFromString(name))), namespace_(new_dict()) {
    const Names& names = module.names;
    set_item(namespace_, names.module_dunder, module.global(names.name_dunder));
    set_item(namespace_, names.qualname_dunder, name_);
    if (annotated == Annotated::yes) {
        annotations_ = new_dict();
        set_item(namespace_, names.annotations_dunder, annotations_);
    }
    set_item(namespace_, names.doc_dunder, steal(PyUnicode_FromString(doc)));
}

void ClassBody::annotate(const char* name, const char* annotation) const {
    set_item(annotations_, steal(PyUnicode_InternFromString(name)), steal(PyUnicode_InternFromString(annotation)));
}

void ClassBody::assign(const char* name, Borrowed value) const {
    set_item(namespace_, steal(PyUnicode_InternFromString(name)), value);
}

void ClassBody::define(const FunctionRow& row) const { assign(row.name, make_function(module_, row)); }

void ClassBody::define(const FunctionRow& row, PyTypeObject& decorator) const {
    const Ref function = make_function(module_, row);
    assign(row.name, call(reinterpret_cast<PyObject*>(&decorator), function));
}

Ref ClassBody::make() const {
    const Ref bases = steal(PyTuple_New(0));
    return call(reinterpret_cast<PyObject*>(&PyType_Type), name_, bases, namespace_);
}

}  // namespace py
