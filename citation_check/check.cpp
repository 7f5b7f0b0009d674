#include "check.h"

#include "host.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call_method;
using py::Ref;
using py::set_attr;
using py::steal;

namespace {

constexpr const char* failure_message =
    "Wiki citation check failed; the identifier check stays in force for the rest of this run";

Ref check_page(State& state, Borrowed self, Borrowed markdown) {
    const auto& names = state.names;
    const Ref check_citations = state.global(names.check_citations);
    const Ref client = attr(self, names.client);
    const Ref repo_root = attr(self, names.repo_root);
    const Ref max_questions = host::questions_per_page(state, attr(self, names.client));
    const Ref budget = attr(self, names.budget);
    const Ref keywords = py::tuple_of(names.max_questions, names.budget);
    return py::call_with(check_citations, keywords.get(), client, markdown, repo_root, max_questions, budget);
}

// Sets the latch; whether this failure is the one that set it.
bool latch_failure(State& state, Borrowed self) {
    const auto& names = state.names;
    bool first = false;
    py::ContextManager lock(attr(self, names.lock), names.enter_dunder, names.exit_dunder);
    const bool latched = lock.run([&](Borrowed) {
        first = !py::truth(attr(self, names.failed));
        set_attr(self, names.failed, Py_True);
    });
    if (!latched) py::raise_unbound("first");  // by a lock that swallowed the exception
    return first;
}

void report_failure(State& state, Borrowed self, const py::Handled& error) {
    const auto& names = state.names;
    const Ref kind = py::format(attr(reinterpret_cast<PyObject*>(error.value().type()), names.name_dunder));
    const Ref message = py::format(error.value());
    const Ref text = py::join(names.empty, kind, names.colon, message);
    set_attr(self, names.failure, py::prefix(text, state.global(names.FAILURE_CHARS)));
    const Ref warning = attr(state.global(names.logger), names.warning);
    const Ref keywords = py::tuple_of(names.exc_info);
    py::call_with(warning, keywords.get(), steal(PyUnicode_FromString(failure_message)), Py_True);
}

}  // namespace

Ref init_checker(State& state, Borrowed self, Borrowed client, Borrowed repo_root, Borrowed should_stop) {
    const auto& names = state.names;
    set_attr(self, names.client, client);
    set_attr(self, names.repo_root, repo_root);
    set_attr(self, names.budget, host::new_budget(state, client, should_stop));
    set_attr(self, names.failure, Py_None);
    set_attr(self, names.failed, Py_False);
    set_attr(self, names.lock, call_method(state.global(names.threading), names.Lock));
    return py::none();
}

Ref enabled(State& state, Borrowed cls, Borrowed client, Borrowed repo_root, Borrowed should_stop) {
    if (client.is_none()) return py::none();
    if (!host::switched_on(state, client)) return py::none();
    if (!host::consented(state, client)) return py::none();
    return py::call_with(cls, py::tuple_of(state.names.should_stop).get(), client, repo_root, should_stop);
}

Ref check(State& state, Borrowed self, Borrowed markdown) {
    if (py::truth(attr(self, state.names.failed))) return py::none();
    return py::try_except(
        PyExc_Exception, [&] { return check_page(state, self, markdown); },
        [&](const py::Handled& error) {
            if (latch_failure(state, self)) report_failure(state, self, error);
            return py::none();
        });
}

}  // namespace citation_check
