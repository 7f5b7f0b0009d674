#include "genuine.h"

#include <cstring>

#include "extract.h"
#include "python/call.h"

namespace citation_check::genuine {

using py::attr;
using py::Borrowed;
using py::keep;
using py::Module;
using py::Ref;

namespace {

// A pattern that `re` itself compiled from this text: a host may have put a compiler of its own in its place.
bool is_compiled_pattern(const Module& module, Borrowed object, const char* text) {
    constexpr long unicode = 32;  // `re.UNICODE`, and no other flag
    const bool standard = PyType_HasFeature(object.type(), Py_TPFLAGS_IMMUTABLETYPE) &&
                          std::strcmp(object.type()->tp_name, "re.Pattern") == 0;
    if (!standard || PyLong_AsLong(attr(object, module.names.flags).get()) != unicode) return false;
    const Ref pattern = attr(object, module.names.pattern);
    return PyUnicode_Check(pattern.get()) && PyUnicode_CompareWithASCIIString(pattern.get(), text) == 0;
}

// A function that was written in that module.
bool is_function_of(Borrowed object, Borrowed module) {
    return PyFunction_Check(object.get()) && PyModule_Check(module.get()) &&
           PyFunction_GET_GLOBALS(object.get()) == PyModule_GetDict(module.get());
}

bool is_function_of(Borrowed object, const char* module_name) {
    const Ref name = py::steal(PyUnicode_FromString(module_name));
    const Ref module = py::take(PyImport_GetModule(name.get()));
    if (!module) PyErr_Clear();
    return module && is_function_of(object, module);
}

// What a class holds under a name, a static method's function included; empty for nothing. No Python code runs.
Ref class_attribute(Borrowed type, Borrowed name) {
    PyObject* const found = _PyType_Lookup(reinterpret_cast<PyTypeObject*>(type.get()), name.get());
    if (found == nullptr || !Py_IS_TYPE(found, &PyStaticMethod_Type)) return py::take(Py_XNewRef(found));
    return py::steal(PyStaticMethod_Type.tp_descr_get(found, nullptr, type.get()));
}

PyObject* type_of(Borrowed object) { return reinterpret_cast<PyObject*>(object.type()); }

// The type of all standard patterns, and the methods of it that are called most; its attributes cannot be replaced.
void remember_standard_patterns(Module& module, Borrowed pattern) {
    const auto& names = module.names;
    const Ref scanner = py::call_method(pattern, names.scanner, names.empty);
    const Ref match = py::call_method(pattern, names.match, py::steal(PyUnicode_FromString("- item")));
    keep(module.pattern_match, attr(type_of(pattern), names.match));
    keep(module.pattern_search, attr(type_of(pattern), names.search));
    keep(module.pattern_scanner, attr(type_of(pattern), names.scanner));
    keep(module.scanner_search, attr(type_of(scanner), names.search));
    keep(module.match_span, attr(type_of(match), names.span));
    keep(module.pattern_type, py::borrow(type_of(pattern)));
}

void remember_re(Module& module) {
    const Ref re = module.global(module.names.re);
    if (!PyModule_CheckExact(re.get())) return;
    PyObject* const sub = PyDict_GetItem(PyModule_GetDict(re.get()), module.names.sub);
    if (sub == nullptr || !is_function_of(sub, re)) return;
    keep(module.re_module, py::borrow(re));
    keep(module.re_sub, py::borrow(sub));
}

void remember_records(Module& module) {
    const auto& names = module.names;
    if (!is_function_of(module.global(names.dataclass), "dataclasses")) return;
    module.cited_claim_guard.remember(module.global(names.CitedClaim));
    module.checked_claim_guard.remember(module.global(names.CheckedClaim));
}

void remember_path(Module& module) {
    const auto& names = module.names;
    const Ref type = module.global(names.Path);
    if (!PyType_CheckExact(type.get())) return;
    for (PyObject* method : {names.resolve, names.is_relative_to, names.read_text, names.open, names.truediv_dunder,
                             names.str_dunder, names.fspath_dunder, names.new_dunder}) {
        const Ref function = class_attribute(type, method);
        if (!function || !is_function_of(function, "pathlib")) return;
    }
    // `Path()` makes an object of the class for this system, and that class is the one to watch.
    module.path_guard.remember(type_of(py::call(type)));
}

}  // namespace

void remember(Module& module) {
    const auto& names = module.names;
    const Ref list_mark = module.global(names.LIST_MARK_RE);
    const Ref sentence_end = module.global(names.SENTENCE_END_RE);
    if (is_compiled_pattern(module, list_mark, list_mark_pattern)) {
        keep(module.list_mark, py::borrow(list_mark));
        remember_standard_patterns(module, list_mark);
    }
    if (is_compiled_pattern(module, sentence_end, sentence_end_pattern)) {
        keep(module.sentence_end, py::borrow(sentence_end));
    }
    keep(module.prose_blocks, module.global(names.prose_blocks));
    keep(module.claim_text, module.global(names.claim_text));
    keep(module.cited_lines, module.global(names.cited_lines));
    keep(module.passage, attr(module.global(names.CitedSources), names.passage));
    remember_re(module);
    remember_records(module);
    remember_path(module);
}

bool is_pattern(const Module& module, Borrowed object) { return type_of(object) == module.pattern_type; }

bool is_list_mark(const Module& module, Borrowed pattern) { return pattern.is(module.list_mark); }

bool is_sentence_end(const Module& module, Borrowed pattern) { return pattern.is(module.sentence_end); }

bool is_prose_blocks(const Module& module, Borrowed function) { return function.is(module.prose_blocks); }

bool is_claim_text(const Module& module, Borrowed function) { return function.is(module.claim_text); }

bool is_cited_lines(const Module& module, Borrowed function) { return function.is(module.cited_lines); }

bool is_passage(const Module& module, Borrowed function) { return function.is(module.passage); }

bool is_re(const Module& module, Borrowed re) {
    if (!re.is(module.re_module) || !PyModule_CheckExact(re.get())) return false;
    PyObject* const sub = PyDict_GetItem(PyModule_GetDict(re.get()), module.names.sub);
    return sub != nullptr && sub == module.re_sub;
}

bool is_cited_claim(Module& module, Borrowed type) { return module.cited_claim_guard.is_unchanged(type); }

bool is_checked_claim(Module& module, Borrowed type) { return module.checked_claim_guard.is_unchanged(type); }

bool is_plain_path(Module& module, Borrowed path) { return module.path_guard.is_unchanged(type_of(path)); }

}  // namespace citation_check::genuine
