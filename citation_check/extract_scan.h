#pragma once

#include <cstddef>

#include "python/text.h"

// What the module's own patterns find, for exact `str` objects: the same on every character.
namespace citation_check::scan {

// Where the text begins behind its list mark (`_LIST_MARK_RE`); 0 without one.
std::size_t list_mark_end(py::Borrowed text);

// Whether a stripped line that is not blank begins a heading, a table row or a quote.
bool is_left_out(py::Borrowed stripped);

// The gap between two sentences (`_SENTENCE_END_RE`): the first one at or behind `from`; empty at the end of the text.
struct Gap {
    std::size_t begin;
    std::size_t end;
};
Gap sentence_gap(py::Borrowed block, std::size_t from);

// A sentence without its citations, tidied: no whitespace before a punctuation mark, none at the ends, and runs of it
// made one space.
py::Ref tidy(py::Borrowed text);

}  // namespace citation_check::scan
