#include "check.h"

#include "host.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call_method;
using py::Module;
using py::Ref;
using py::set_attr;
using py::steal;

namespace {

constexpr const char* failure_message =
    "Wiki citation check failed; the identifier check stays in force for the rest of this run";

Ref init(Module& module, Borrowed self, Borrowed client, Borrowed repo_root, Borrowed should_stop) {
    const auto& names = module.names;
    set_attr(self, names.client, client);
    set_attr(self, names.repo_root, repo_root);
    set_attr(self, names.budget, host::new_budget(module, client, should_stop));
    set_attr(self, names.failure, Py_None);
    set_attr(self, names.failed, Py_False);
    set_attr(self, names.lock, call_method(module.global(names.threading), names.Lock));
    return py::none();
}

Ref enabled(Module& module, Borrowed cls, Borrowed client, Borrowed repo_root, Borrowed should_stop) {
    if (client.is_none()) return py::none();
    if (!host::switched_on(module, client)) return py::none();
    if (!host::consented(module, client)) return py::none();
    return py::call_with(cls, module.keywords_should_stop, client, repo_root, should_stop);
}

Ref check_page(Module& module, Borrowed self, Borrowed markdown) {
    const auto& names = module.names;
    const Ref check_citations = module.global(names.check_citations);
    const Ref client = attr(self, names.client);
    const Ref repo_root = attr(self, names.repo_root);
    const Ref max_questions = host::questions_per_page(module, attr(self, names.client));
    const Ref budget = attr(self, names.budget);
    return py::call_with(check_citations, module.keywords_max_questions_budget, client, markdown, repo_root,
                         max_questions, budget);
}

// Sets the latch; whether this failure is the one that set it.
bool latch_failure(Module& module, Borrowed self) {
    const auto& names = module.names;
    bool first = false;
    py::ContextManager lock(attr(self, names.lock), names.enter_dunder, names.exit_dunder);
    const bool latched = lock.run([&](Borrowed) {
        first = !py::truth(attr(self, names.failed));
        set_attr(self, names.failed, Py_True);
    });
    if (!latched) {
        // Only a lock that swallows exceptions comes here.
        py::raise(PyExc_UnboundLocalError,
                  "cannot access local variable 'first' where it is not associated with a value");
    }
    return first;
}

void report_failure(Module& module, Borrowed self, const py::Handled& error) {
    const auto& names = module.names;
    const Ref kind = py::format(attr(reinterpret_cast<PyObject*>(error.value().type()), names.name_dunder));
    const Ref message = py::format(error.value());
    const Ref text = py::join(names.empty, kind, names.colon, message);
    set_attr(self, names.failure, py::prefix(text, module.global(names.FAILURE_CHARS)));
    const Ref warning = attr(module.global(names.logger), names.warning);
    py::call_with(warning, module.keywords_exc_info, steal(PyUnicode_FromString(failure_message)), Py_True);
}

Ref check(Module& module, Borrowed self, Borrowed markdown) {
    if (py::truth(attr(self, module.names.failed))) return py::none();
    return py::try_except(
        PyExc_Exception, [&] { return check_page(module, self, markdown); },
        [&](const py::Handled& error) {
            if (latch_failure(module, self)) report_failure(module, self, error);
            return py::none();
        });
}

constexpr py::Parameter init_parameters[] = {
    {"self"},
    {"client", "DecisionClient"},
    {"repo_root", "Path"},
    py::Parameter{"should_stop", "Callable[[], bool] | None"}.keyword().or_none(),
};
constexpr py::FunctionRow init_row = {
    "__init__", "CitationChecker.__init__", init_parameters, "None", nullptr, py::native<init>,
};

constexpr py::Parameter enabled_parameters[] = {
    {"cls"},
    {"client", "DecisionClient | None"},
    {"repo_root", "Path"},
    py::Parameter{"should_stop", "Callable[[], bool] | None"}.or_none(),
};
constexpr py::FunctionRow enabled_row = {
    "enabled",
    "CitationChecker.enabled",
    enabled_parameters,
    "CitationChecker | None",
    "A checker for ``client``, or None when there is none, its switch is off, or the\n"
    "        consent to upload the cited source lines (``qep.allow_source_upload``) is not given.\n"
    "\n"
    "        Args:\n"
    "            client: The decision client.\n"
    "            repo_root: Where the cited files are stored.\n"
    "            should_stop: True once the run is asked to stop: its calls and retries end.\n"
    "        ",
    py::native<enabled>,
};

constexpr py::Parameter check_parameters[] = {{"self"}, {"markdown", "str"}};
constexpr py::FunctionRow check_row = {
    "check",
    "CitationChecker.check",
    check_parameters,
    "CitationCheck | None",
    "The page's answers, or None once a check has failed.",
    py::native<check>,
};

}  // namespace

Ref make_citation_checker_class(Module& module) {
    const py::ClassBody body(
        module, "CitationChecker",
        "Checks pages' cited sentences with one client, while ``qep.wiki_check_citations`` is on.\n"
        "\n"
        "    A checker is one run of a batch pass (a lint, a generation, a saved page): its calls share\n"
        "    one batch budget (``client.new_budget``), so they are bounded by ``qep.max_calls_per_batch``,\n"
        "    ``qep.max_input_tokens_per_batch`` and the run's stop, not by the interactive deadline that a\n"
        "    batch of parallel calls would spend waiting on each other. The first failure (a refusal, a\n"
        "    spent budget, an invalid answer, a bug) is logged once and ends the checking for this run: its\n"
        "    callers keep the identifier check instead.\n"
        "\n"
        "    Attributes:\n"
        "        failure: What the first failure was (its type and message), None while none has failed.\n"
        "        budget: The run's batch budget.\n"
        "    ");
    body.define(init_row);
    body.define(enabled_row, PyClassMethod_Type);
    body.define(check_row);
    return body.make();
}

}  // namespace citation_check
