#pragma once

#include "state.h"

// The host's entry points: lint findings over many pages, and the mix-in for the page generator. Declares the C++
// bodies of the functions of these names.
namespace citation_check {

py::Ref citation_lint_findings(State& state, py::Borrowed client, py::Borrowed texts, py::Borrowed repo_root,
                               py::Borrowed should_stop);

// `CitationCheckMixin._citation_check`
py::Ref citation_check(State& state, py::Borrowed self, py::Borrowed markdown);

}  // namespace citation_check
