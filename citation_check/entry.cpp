#include "entry.h"

#include "finding.h"
#include "host.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::call_method;
using py::Ref;
using py::steal;

namespace {

constexpr const char* skipped_detail =
    "qep.wiki_check_citations is on, but the check uploads the cited source lines and "
    "qep.allow_source_upload is off: the identifier check stays";

constexpr const char* failed_detail =
    "the citation check stopped here (%U); this page and the ones after it were not checked";

Ref skipped_finding(State& state) {
    const auto& names = state.names;
    const Ref detail = steal(PyUnicode_FromString(skipped_detail));
    return make_finding(state, names.low, names.citation_check_skipped, py::new_list(), detail);
}

Ref failed_finding(State& state, Borrowed checker, Borrowed page_id) {
    const auto& names = state.names;
    const Ref failure = py::format(attr(checker, names.failure));
    const Ref detail = steal(PyUnicode_FromFormat(failed_detail, failure.get()));
    return make_finding(state, names.low, names.citation_check_failed, py::list_of(page_id), detail);
}

// The findings of a run without a checker: there is no client, the switch is off, or the consent is missing.
Ref findings_without_checker(State& state, Borrowed client) {
    if (client.is_none() || !host::switched_on(state, client)) return py::new_list();
    return py::list_of(skipped_finding(state));
}

Ref new_checker(State& state, Borrowed self) {
    const auto& names = state.names;
    const Ref enabled = attr(state.global(names.CitationChecker), names.enabled);
    const Ref client = attr(self, names.decision_client);
    const Ref repo_root = attr(self, names.repo_root);
    Ref checker = call(enabled, client, repo_root, attr(self, names.should_stop));
    py::set_attr(self, names.citation_checker, checker);
    return checker;
}

}  // namespace

Ref citation_lint_findings(State& state, Borrowed client, Borrowed texts, Borrowed repo_root, Borrowed should_stop) {
    const auto& names = state.names;
    const Ref enabled = attr(state.global(names.CitationChecker), names.enabled);
    const Ref checker = call(enabled, client, repo_root, should_stop);
    if (checker.is_none()) return findings_without_checker(state, client);
    Ref out = py::new_list();
    Ref check;
    std::array<Ref, 2> text;
    py::Iteration pages(call_method(texts, names.items));
    for (Ref page; pages.next(page);) {
        text = py::unpack<2>(std::exchange(page, Ref()));
        const auto& [page_id, markdown] = text;
        check = call_method(checker, names.check, markdown);
        if (check.is_none()) {
            py::append(out, failed_finding(state, checker, page_id));
            break;
        }
        py::extend(out, call_method(check, names.findings, page_id));
    }
    return out;
}

Ref citation_check(State& state, Borrowed self, Borrowed markdown) {
    const auto& names = state.names;
    Ref checker = attr(self, names.citation_checker);
    const bool current = !checker.is_none() && attr(checker, names.client).is(attr(self, names.decision_client));
    if (!current) checker = new_checker(state, self);
    if (checker.is_none()) return py::none();
    return call_method(checker, names.check, markdown);
}

}  // namespace citation_check
