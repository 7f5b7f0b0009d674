#pragma once

#include "python/class.h"

// Cited sources: the stored files that a page cites, read once each, and the passages cut out of them.
namespace citation_check {

py::Ref make_cited_sources_class(py::Module& module);

extern const py::FunctionRow cited_lines_row;

}  // namespace citation_check
