// The least that any implementation can do: the calls into the host that nothing can spare, on strings already cut.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "python/call.h"
#include "python/error.h"

namespace {

using py::Borrowed;
using py::interned;
using py::Ref;
using py::steal;

// What a sentence has for the host: no citation, citations of a text too short for a claim, or claims.
enum Carries : long { nothing, citations, claims };

Borrowed at(Borrowed tuple, Py_ssize_t place) { return PyTuple_GET_ITEM(tuple.get(), place); }

template <class Body>
void for_each(Borrowed list, Body body) {
    for (Py_ssize_t place = 0; place < PyList_GET_SIZE(list.get()); ++place)
        body(Borrowed(PyList_GET_ITEM(list.get(), place)));
}

struct Syntax {
    Borrowed fence, citation, citation_key, norm;
    Ref match = interned("match"), finditer = interned("finditer"), sub = interned("sub"), empty = interned("");
};

// `page` is (its lines, its sentences as (text, what it carries)).
void extract(Borrowed page, const Syntax& host) {
    for_each(at(page, 0), [&](Borrowed line) { py::call_method(host.fence, host.match, line); });
    for_each(at(page, 1), [&](Borrowed sentence) {
        const Borrowed text = at(sentence, 0);
        const long carries = PyLong_AsLong(at(sentence, 1).get());
        const Ref found = steal(PySequence_List(py::call_method(host.citation, host.finditer, text).get()));
        if (carries != nothing) py::call_method(host.citation, host.sub, host.empty, text);
        if (carries != claims) return;
        for_each(found, [&](Borrowed match) {
            const Ref key = py::call(host.citation_key, match);
            py::call(host.norm, at(key, 0));
        });
    });
}

Ref read(Borrowed path) {
    const char* const name = PyUnicode_AsUTF8(path.get());
    if (name == nullptr) throw py::Error{};
    const int file = ::open(name, O_RDONLY | O_CLOEXEC);
    if (file < 0) return steal(PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, path.get()));
    struct stat status {};
    std::string bytes(::fstat(file, &status) == 0 ? static_cast<size_t>(status.st_size) : 0, '\0');
    const ssize_t length = ::read(file, bytes.data(), bytes.size());
    ::close(file);
    if (length < 0) return steal(PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, path.get()));
    return steal(PyUnicode_DecodeUTF8(bytes.data(), length, "replace"));
}

// One question. `self` is (client, citation_request, citation_answer, version, budget, "decide", its keywords).
PyObject* ask(PyObject* self, PyObject* item) {
    return py::guarded([&] {
        const Ref request = py::call(at(self, 1), at(item, 0), at(item, 1));
        PyObject* arguments[] = {at(self, 0).get(), at(request, 0).get(), at(request, 1).get(), at(self, 3).get(),
                                 at(self, 4).get()};
        const size_t positional = 3 | PY_VECTORCALL_ARGUMENTS_OFFSET;
        const Ref result =
            steal(PyObject_VectorcallMethod(at(self, 5).get(), arguments, positional, at(self, 6).get()));
        return py::call(at(self, 2), result);
    });
}

PyMethodDef ask_definition = {"ask", ask, METH_O, nullptr};

Ref put_questions(Borrowed executor_class, Borrowed settings, Borrowed question, Borrowed asked) {
    const Ref call = steal(PyCFunction_New(&ask_definition, question.get()));
    const Ref executor = steal(PyObject_VectorcallDict(executor_class.get(), nullptr, 0, settings.get()));
    const Ref pool = py::call_method(executor, interned("__enter__"));
    Ref answers = steal(PySequence_List(py::call_method(pool, interned("map"), call, asked).get()));
    py::call_method(executor, interned("__exit__"), Py_None, Py_None, Py_None);
    return answers;
}

// extract(pages, _FENCE_RE, _CITATION_RE, citation_key, _norm)
PyObject* extract_pages(PyObject*, PyObject* given) {
    return py::guarded([&] {
        const Syntax host{at(given, 1), at(given, 2), at(given, 3), at(given, 4)};
        for_each(at(given, 0), [&](Borrowed page) { extract(page, host); });
        return py::none();
    });
}

// check(page, _FENCE_RE, _CITATION_RE, citation_key, _norm, files, pool class, its settings, question, asked)
PyObject* check_page(PyObject*, PyObject* given) {
    return py::guarded([&] {
        extract(at(given, 0), Syntax{at(given, 1), at(given, 2), at(given, 3), at(given, 4)});
        for_each(at(given, 5), [](Borrowed file) { read(file); });
        return put_questions(at(given, 6), at(given, 7), at(given, 8), at(given, 9));
    });
}

PyMethodDef functions[] = {{"extract", extract_pages, METH_VARARGS, nullptr},
                           {"check", check_page, METH_VARARGS, nullptr},
                           {nullptr, nullptr, 0, nullptr}};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "citation_check_floor", nullptr, 0, functions, nullptr, nullptr, nullptr, nullptr};

}  // namespace

PyMODINIT_FUNC PyInit_citation_check_floor() { return PyModuleDef_Init(&definition); }
