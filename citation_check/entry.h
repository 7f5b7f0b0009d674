#pragma once

#include "python/class.h"

// The host's entry points: lint findings over many pages, and the mix-in for the page generator.
namespace citation_check {

py::Ref make_citation_check_mixin_class(py::Module& module);

extern const py::FunctionRow citation_lint_findings_row;

}  // namespace citation_check
