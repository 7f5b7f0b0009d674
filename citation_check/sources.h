#pragma once

#include "python/class.h"
#include "python/text.h"

// Cited sources: the stored files that a page cites, read once each, and the passages cut out of them.
namespace citation_check {

// Where the last passage began. A page cites a file mostly from its top to its bottom, so the next one is counted on
// from there.
struct PassageCursor {
    py::Ref text;
    py::text::LineStart start;
};

// `sources.passage(claim)`
py::Ref passage_of(py::Module& module, py::Borrowed sources, py::Borrowed claim, PassageCursor& cursor);

py::Ref make_cited_sources_class(py::Module& module);

extern const py::FunctionRow cited_lines_row;

}  // namespace citation_check
