#include "check.h"
#include "finding.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::format;
using py::Ref;
using py::steal;

namespace {

Ref detail(State& state, Borrowed claim, Borrowed wording) {
    const auto& names = state.names;
    const Ref ref = format(attr(claim, names.ref));
    const Ref said = format(wording);
    const Ref sentence = attr(claim, names.claim);
    const Ref quoted = format(py::prefix(sentence, state.global(names.DETAIL_CLAIM_CHARS)));
    return py::join(names.empty, ref, names.space, said, names.quotation, quoted, names.closing_quote);
}

}  // namespace

Ref score(State& state, Borrowed self) {
    const auto& names = state.names;
    if (!py::truth(attr(self, names.checked))) return py::none();
    Py_ssize_t supported = 0;
    py::Iteration entries(attr(self, names.checked));
    const bool is_counted = py::succeeds([&] {
        Ref checked;
        while (entries.next(checked)) {
            const Ref verdict = attr(attr(checked, names.answer), names.verdict);
            if (py::compare(verdict, names.supports, Py_EQ)) ++supported;
        }
    });
    if (!is_counted) {
        py::api(py::interpreter::leave_generator_expression);
        throw py::Error{};
    }
    const Ref total = py::integer(py::length(attr(self, names.checked)));
    return steal(py::api(PyNumber_TrueDivide, py::integer(supported).get(), total.get()));
}

Ref findings(State& state, Borrowed self, Borrowed page_id) {
    const auto& names = state.names;
    Ref out = py::new_list();
    Ref checked, entry, claim;
    std::array<Ref, 3> parts;
    py::Iteration entries(attr(self, names.checked));
    while (entries.next(checked)) {
        const Ref get = attr(state.global(names.VERDICT_FINDINGS), names.get);
        entry = call(get, attr(attr(checked, names.answer), names.verdict));
        if (entry.is_none()) continue;
        parts = py::unpack<3>(entry);
        const auto& [severity, kind, wording] = parts;
        claim = attr(checked, names.claim);
        const Ref text = detail(state, claim, wording);
        py::append(out, make_finding(state, severity, kind, py::list_of(page_id), text));
    }
    return out;
}

Ref warnings(State& state, Borrowed self) {
    const auto& names = state.names;
    Ref out = py::new_list();
    Ref finding;
    py::Iteration found(py::call_method(self, names.findings, names.empty));
    while (found.next(finding)) {
        const Ref kind = format(py::item(finding, names.kind));
        const Ref text = format(py::item(finding, names.detail));
        py::append(out, py::join(names.empty, kind, names.colon, text));
    }
    return out;
}

}  // namespace citation_check
