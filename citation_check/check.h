#pragma once

#include "python/class.h"

// Citation checking: a page's result, the check of one page, and the checker of one run.
namespace citation_check {

// `CheckedClaim` and `CitationCheck`: a cited claim with its answer, and a page's result.
py::Ref make_checked_claim_class(py::Module& module);
py::Ref make_citation_check_class(py::Module& module);

// `_VERDICT_FINDINGS`: which verdicts become findings, with their severity, kind and wording.
py::Ref make_verdict_findings(py::Module& module);

// A finding's dictionary; `pages` becomes its list.
py::Ref make_finding(py::Module& module, py::Borrowed severity, py::Borrowed kind, py::Borrowed pages,
                     py::Borrowed detail);

// The check of one page.
extern const py::FunctionRow check_citations_row;

// `CitationChecker`: the budget and the first failure of one run.
py::Ref make_citation_checker_class(py::Module& module);

}  // namespace citation_check
