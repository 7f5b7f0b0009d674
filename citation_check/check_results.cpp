#include "check.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::format;
using py::Module;
using py::Ref;
using py::steal;

namespace {

// --- CitationCheck -------------------------------------------------------------------------------------------------

Ref score(Module& module, Borrowed self) {
    const auto& names = module.names;
    if (!py::truth(attr(self, names.checked))) return py::none();
    Py_ssize_t supported = 0;
    py::Iteration entries(attr(self, names.checked));
    while (const Ref checked = entries.next()) {
        const Ref verdict = attr(attr(checked, names.answer), names.verdict);
        if (py::compare(verdict, names.supports, Py_EQ)) ++supported;
    }
    const Ref total = py::integer(py::length(attr(self, names.checked)));
    return steal(PyNumber_TrueDivide(py::integer(supported).get(), total.get()));
}

Ref detail(Module& module, Borrowed claim, Borrowed wording) {
    const auto& names = module.names;
    const Ref ref = format(attr(claim, names.ref));
    const Ref said = format(wording);
    const Ref sentence = attr(claim, names.claim);
    const Ref quoted = format(py::prefix(sentence, module.global(names.DETAIL_CLAIM_CHARS)));
    return py::join(names.empty, ref, names.space, said, names.quotation, quoted, names.closing_quote);
}

Ref findings(Module& module, Borrowed self, Borrowed page_id) {
    const auto& names = module.names;
    Ref out = py::new_list();
    py::Iteration entries(attr(self, names.checked));
    while (const Ref checked = entries.next()) {
        const Ref get = attr(module.global(names.VERDICT_FINDINGS), names.get);
        const Ref finding = call(get, attr(attr(checked, names.answer), names.verdict));
        if (finding.is_none()) continue;
        const auto [severity, kind, wording] = py::unpack<3>(finding);
        const Ref text = detail(module, attr(checked, names.claim), wording);
        py::append(out, make_finding(module, severity, kind, py::list_of(page_id), text));
    }
    return out;
}

Ref warnings(Module& module, Borrowed self) {
    const auto& names = module.names;
    Ref out = py::new_list();
    py::Iteration found(py::call_method(self, names.findings, names.empty));
    while (const Ref finding = found.next()) {
        const Ref kind = format(steal(PyObject_GetItem(finding.get(), names.kind)));
        const Ref text = format(steal(PyObject_GetItem(finding.get(), names.detail)));
        py::append(out, py::join(names.empty, kind, names.colon, text));
    }
    return out;
}

constexpr py::Parameter self_only[] = {{"self"}};
constexpr py::Parameter findings_parameters[] = {{"self"}, {"page_id", "str"}};

constexpr py::FunctionRow score_row = {
    "score",
    "CitationCheck.score",
    self_only,
    "float | None",
    "The share of checked sentences whose cited lines support them; None with none.",
    py::native<score>,
};

constexpr py::FunctionRow findings_row = {
    "findings",
    "CitationCheck.findings",
    findings_parameters,
    "list[dict[str, Any]]",
    "Lint findings: one per sentence its cited lines contradict or say nothing about.",
    py::native<findings>,
};

constexpr py::FunctionRow warnings_row = {
    "warnings",
    "CitationCheck.warnings",
    self_only,
    "list[str]",
    "The findings as ``save_page`` warnings (``kind: detail``).",
    py::native<warnings>,
};

}  // namespace

Ref make_finding(Module& module, Borrowed severity, Borrowed kind, Borrowed pages, Borrowed detail) {
    const auto& names = module.names;
    Ref finding = py::new_dict();
    py::set_item(finding, names.severity, severity);
    py::set_item(finding, names.kind, kind);
    py::set_item(finding, names.pages, pages);
    py::set_item(finding, names.detail, detail);
    return finding;
}

Ref make_checked_claim_class(Module& module) {
    const Ref frozen = py::call_with(module.global(module.names.dataclass), module.keywords_frozen, Py_True);
    const py::ClassBody body(module, "CheckedClaim", "A cited sentence and how its cited lines relate to it.",
                             py::ClassBody::Annotated::yes);
    body.annotate("claim", "CitedClaim");
    body.annotate("answer", "CitationAnswer");
    return call(frozen, body.make());
}

Ref make_citation_check_class(Module& module) {
    const auto& names = module.names;
    const Ref dataclass = module.global(names.dataclass);
    const py::ClassBody body(
        module, "CitationCheck",
        "What the decision model said about a page's cited sentences.\n"
        "\n"
        "    Attributes:\n"
        "        checked: The sentences asked about, with their answers, in page order.\n"
        "        skipped: Cited sentences not asked about: over the per-page cap, or whose cited lines\n"
        "            could not be read.\n"
        "    ",
        py::ClassBody::Annotated::yes);
    PyObject* const list = reinterpret_cast<PyObject*>(&PyList_Type);
    body.assign("checked", py::call_with(module.global(names.field), module.keywords_default_factory, list));
    body.annotate("checked", "list[CheckedClaim]");
    body.assign("skipped", py::integer(0));
    body.annotate("skipped", "int");
    body.define(score_row, PyProperty_Type);
    body.define(findings_row);
    body.define(warnings_row);
    return call(dataclass, body.make());
}

Ref make_verdict_findings(Module& module) {
    const auto& names = module.names;
    Ref table = py::new_dict();
    py::set_item(table, names.contradicts,
                 py::tuple_of(names.medium, names.citation_contradicted,
                              steal(PyUnicode_FromString("the cited lines contradict"))));
    py::set_item(table, names.says_nothing,
                 py::tuple_of(names.low, names.citation_unsupported,
                              steal(PyUnicode_FromString("the cited lines say nothing about"))));
    return table;
}

}  // namespace citation_check
