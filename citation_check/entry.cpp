#include "entry.h"

#include "check.h"
#include "host.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::call_method;
using py::Module;
using py::Ref;
using py::steal;

namespace {

constexpr const char* skipped_detail =
    "qep.wiki_check_citations is on, but the check uploads the cited source lines and "
    "qep.allow_source_upload is off: the identifier check stays";

constexpr const char* failed_detail =
    "the citation check stopped here (%U); this page and the ones after it were not checked";

// --- citation_lint_findings ----------------------------------------------------------------------------------------

Ref skipped_finding(Module& module) {
    const auto& names = module.names;
    const Ref detail = steal(PyUnicode_FromString(skipped_detail));
    return make_finding(module, names.low, names.citation_check_skipped, py::new_list(), detail);
}

Ref failed_finding(Module& module, Borrowed checker, Borrowed page_id) {
    const auto& names = module.names;
    const Ref failure = py::format(attr(checker, names.failure));
    const Ref detail = steal(PyUnicode_FromFormat(failed_detail, failure.get()));
    return make_finding(module, names.low, names.citation_check_failed, py::list_of(page_id), detail);
}

// The findings of a run without a checker: there is no client, the switch is off, or the consent is missing.
Ref findings_without_checker(Module& module, Borrowed client) {
    if (client.is_none() || !host::switched_on(module, client)) return py::new_list();
    return py::list_of(skipped_finding(module));
}

Ref citation_lint_findings(Module& module, Borrowed client, Borrowed texts, Borrowed repo_root, Borrowed should_stop) {
    const auto& names = module.names;
    const Ref enabled = attr(module.global(names.CitationChecker), names.enabled);
    const Ref checker = call(enabled, client, repo_root, should_stop);
    if (checker.is_none()) return findings_without_checker(module, client);
    Ref out = py::new_list();
    py::Iteration pages(call_method(texts, names.items));
    while (const Ref page = pages.next()) {
        const auto [page_id, markdown] = py::unpack<2>(page);
        const Ref check = call_method(checker, names.check, markdown);
        if (check.is_none()) {
            py::append(out, failed_finding(module, checker, page_id));
            break;
        }
        const Ref findings = call_method(check, names.findings, page_id);
        steal(PySequence_InPlaceConcat(out.get(), findings.get()));
    }
    return out;
}

constexpr py::Parameter lint_parameters[] = {
    {"client", "DecisionClient | None"},
    {"texts", "Mapping[str, str]"},
    {"repo_root", "Path"},
    py::Parameter{"should_stop", "Callable[[], bool] | None"}.or_none(),
};

// --- CitationCheckMixin --------------------------------------------------------------------------------------------

Ref new_checker(Module& module, Borrowed self) {
    const auto& names = module.names;
    const Ref enabled = attr(module.global(names.CitationChecker), names.enabled);
    const Ref client = attr(self, names.decision_client);
    const Ref repo_root = attr(self, names.repo_root);
    Ref checker = call(enabled, client, repo_root, attr(self, names.should_stop));
    py::set_attr(self, names.citation_checker, checker);
    return checker;
}

Ref citation_check(Module& module, Borrowed self, Borrowed markdown) {
    const auto& names = module.names;
    Ref checker = attr(self, names.citation_checker);
    const bool current = !checker.is_none() && attr(checker, names.client).is(attr(self, names.decision_client));
    if (!current) checker = new_checker(module, self);
    if (checker.is_none()) return py::none();
    return call_method(checker, names.check, markdown);
}

constexpr py::Parameter citation_check_parameters[] = {{"self"}, {"markdown", "str"}};
constexpr py::FunctionRow citation_check_row = {
    "_citation_check",
    "CitationCheckMixin._citation_check",
    citation_check_parameters,
    "CitationCheck | None",
    "The citation check of a page, or None while it is off or after it failed.",
    py::native<citation_check>,
};

}  // namespace

const py::FunctionRow citation_lint_findings_row = {
    "citation_lint_findings",
    "citation_lint_findings",
    lint_parameters,
    "list[dict[str, Any]]",
    "Lint findings of the citation check over pages (``page_id -> markdown``); none while\n"
    "    ``qep.wiki_check_citations`` is off. The first failure ends the check, and is a finding of its\n"
    "    own on the page it stopped at (``citation-check-failed``): the pages left were not checked.\n"
    "    The pages share one batch budget, which ``should_stop`` (the lint's stop) ends.",
    py::native<citation_lint_findings>,
};

Ref make_citation_check_mixin_class(Module& module) {
    const py::ClassBody body(module, "CitationCheckMixin",
                             "The citation check of a generator's pages, mixed into ``VerifyMixin``: one checker per\n"
                             "    generator, so one batch budget and one first failure per run.",
                             py::ClassBody::Annotated::yes);
    body.annotate("repo_root", "Path");
    body.annotate("should_stop", "Callable[[], bool]");
    body.assign("decision_client", Py_None);
    body.annotate("decision_client", "DecisionClient | None");
    body.assign("_citation_checker", Py_None);
    body.annotate("_citation_checker", "CitationChecker | None");
    body.define(citation_check_row);
    return body.make();
}

}  // namespace citation_check
