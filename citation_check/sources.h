#pragma once

#include "state.h"

// Cited sources: the stored files that a page cites, read once each, and the passages cut out of them. Declares the C++
// bodies of the functions of these names.
namespace citation_check {

py::Ref cited_lines(State& state, py::Borrowed text, py::Borrowed start, py::Borrowed end);

// `CitedSources`
py::Ref init_sources(State& state, py::Borrowed self, py::Borrowed repo_root);
py::Ref passage(State& state, py::Borrowed self, py::Borrowed claim);
py::Ref read(State& state, py::Borrowed self, py::Borrowed path);

}  // namespace citation_check
