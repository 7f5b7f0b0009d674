#include "originals.h"

#include <cstring>

#include "python/call.h"

namespace citation_check {

using py::Borrowed;
using py::Original;
using py::Ref;

namespace {

// A pattern that `re` itself compiled from this text: a host may have put a compiler of its own in its place.
bool is_compiled_pattern(const State& state, Borrowed object, const char* text) {
    constexpr long unicode = 32;  // `re.UNICODE`, and no other flag
    const bool standard = PyType_HasFeature(object.type(), Py_TPFLAGS_IMMUTABLETYPE) &&
                          std::strcmp(object.type()->tp_name, "re.Pattern") == 0;
    if (!standard || PyLong_AsLong(py::attr(object, state.names.flags).get()) != unicode) return false;
    const Ref pattern = py::attr(object, state.names.pattern);
    return PyUnicode_Check(pattern.get()) && PyUnicode_CompareWithASCIIString(pattern.get(), text) == 0;
}

// A library module that is imported already; empty for none, and for what a host has put in its place.
Ref loaded_module(const char* name) {
    Ref module = py::take(py::api(PyImport_GetModule, py::interned(name).get()));
    if (!module && PyErr_Occurred()) throw py::Error{};
    return module && PyModule_CheckExact(module.get()) ? std::move(module) : Ref();
}

// A function that was written in that module, or the builtin of that name.
bool is_function_of(Borrowed object, Borrowed module, Borrowed name) {
    if (PyCFunction_CheckExact(object.get())) {
        const char* const own_name = reinterpret_cast<PyCFunctionObject*>(object.get())->m_ml->ml_name;
        return PyUnicode_CompareWithASCIIString(name.get(), own_name) == 0;
    }
    return PyFunction_Check(object.get()) && PyFunction_GET_GLOBALS(object.get()) == PyModule_GetDict(module.get());
}

// Remembers `object` if each of these attributes of it is a function of `module`.
void keep_functions(Original& kept, Borrowed object, Borrowed module, std::initializer_list<Borrowed> names) {
    Original found;
    found.remember(object, names);
    for (const Borrowed name : names) {
        if (!is_function_of(found.attribute(name), module, name)) return;
    }
    kept = std::move(found);
}

// Remembers `module` if that attribute of it is the module `other`.
void keep_module(Original& kept, Borrowed module, Borrowed name, Borrowed other) {
    Original found;
    found.remember(module, {name});
    if (found.attribute(name).is(other)) kept = std::move(found);
}

PyObject* type_of(Borrowed object) { return reinterpret_cast<PyObject*>(object.type()); }

// The methods of standard patterns that are called most: calling them needs no look-up.
void keep_pattern_methods(State& state, Borrowed pattern) {
    const auto& names = state.names;
    const Ref scanner = py::call_method(pattern, names.scanner, names.empty);
    const Ref match = py::call_method(pattern, names.match, py::interned("- item"));
    state.kept(Kept::pattern_type).remember(type_of(pattern), {names.match, names.search});
    state.kept(Kept::scanner_type).remember(type_of(scanner), {names.search});
    state.kept(Kept::match_type).remember(type_of(match), {names.span});
}

void keep_patterns(State& state) {
    const Ref list_mark = state.global(state.names.LIST_MARK_RE);
    const Ref sentence_end = state.global(state.names.SENTENCE_END_RE);
    if (is_compiled_pattern(state, list_mark, R"(^(?:[-*+]|\d+[.)])\s+)")) {
        state.kept(Kept::list_mark).remember(list_mark);
        keep_pattern_methods(state, list_mark);
    }
    if (is_compiled_pattern(state, sentence_end, R"((?<=[.!?\]])\s+(?=[A-Z`*_]))")) {
        state.kept(Kept::sentence_end).remember(sentence_end);
    }
}

// The class of the records, with all that making and comparing a record would ask it for.
void keep_cited_claim(State& state) {
    const auto& names = state.names;
    const Ref dataclasses = loaded_module("dataclasses");
    if (!dataclasses || !is_function_of(state.global(names.dataclass), dataclasses, names.dataclass)) return;
    const Ref type = state.global(names.CitedClaim);
    state.kept(Kept::cited_claim)
        .remember(type, {names.init_dunder, names.new_dunder, names.eq_dunder, names.getattribute_dunder,
                         names.del_dunder, names.claim, names.path, names.start, names.end});
}

void keep_paths(State& state) {
    const auto& names = state.names;
    const Ref pathlib = loaded_module("pathlib");
    const Ref path = state.global(names.Path);
    if (!pathlib || !PyType_CheckExact(path.get())) return;
    // Reading is confined by these alone, whatever else a host has replaced.
    keep_functions(state.kept(Kept::path_reading), path, pathlib, {names.open, names.read_text});
    Original& io_of_pathlib = state.kept(Kept::io_of_pathlib);
    io_of_pathlib.remember(pathlib, {names.io});
    const Borrowed io = io_of_pathlib.attribute(names.io);
    if (PyModule_CheckExact(io.get())) keep_functions(state.kept(Kept::io), io, io, {names.open, names.text_encoding});
    const Ref os = loaded_module("os");
    const Ref os_path = loaded_module("posixpath");
    // The class of the paths for this system is below `Path`, and has the same functions.
    const Ref own_type = py::take(py::api(PyObject_GetAttrString, pathlib.get(), "PosixPath"));
    if (!own_type && !PyErr_ExceptionMatches(PyExc_AttributeError)) throw py::Error{};
    if (!os || !os_path || !own_type || !PyType_CheckExact(own_type.get())) return py::api(PyErr_Clear);
    keep_functions(state.kept(Kept::path), own_type, pathlib,
                   {names.str_dunder, names.fspath_dunder, names.truediv_dunder, names.resolve, names.is_relative_to,
                    names.relative_to, names.make_child, names.stat, names.open, names.read_text});
    keep_functions(state.kept(Kept::os_path), os_path, os_path, {names.realpath, names.joinrealpath, names.abspath});
    keep_functions(state.kept(Kept::os), os, os, {names.lstat, names.readlink, names.stat, names.fspath});
    keep_module(state.kept(Kept::path_of_os), os, names.path, os_path);
    keep_module(state.kept(Kept::os_of_pathlib), pathlib, names.os, os);
}

}  // namespace

void keep_originals(State& state) {
    const auto& names = state.names;
    keep_patterns(state);
    keep_cited_claim(state);
    keep_paths(state);
    state.kept(Kept::prose_blocks).remember(state.global(names.prose_blocks));
    state.kept(Kept::claim_text).remember(state.global(names.claim_text));
    state.kept(Kept::cited_lines).remember(state.global(names.cited_lines));
    const Ref re = state.global(names.re);
    if (PyModule_CheckExact(re.get()))
        keep_functions(state.kept(Kept::re), re, re, {names.sub, names.compile_function});
}

bool is_standard_pattern(State& state, Borrowed object) {
    return state.kept(Kept::pattern_type).object().is(type_of(object));
}

}  // namespace citation_check
