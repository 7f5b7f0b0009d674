#pragma once

#include <cstddef>

#include "python/text.h"

// What the module's own patterns find, for exact `str` objects: the same on every character.
namespace citation_check::scan {

// Where the text begins behind its list mark (`_LIST_MARK_RE`); 0 without one.
std::size_t list_mark_end(py::Borrowed text);

// Whether a stripped line that is not blank begins a heading, a table row or a quote.
bool is_left_out(py::Borrowed stripped);

// A stretch of a text, from its first character to behind its last.
struct Span {
    std::size_t begin;
    std::size_t end;
};

// The gap between two sentences (`_SENTENCE_END_RE`): the first one at or behind `from`; empty at the end of the text.
Span sentence_gap(py::Borrowed block, std::size_t from);

// A text without the spans, which are in order and do not overlap, and tidied: no whitespace before a punctuation
// mark, none at the ends, and runs of it made one space.
py::Ref tidy(py::Borrowed text, std::span<const Span> left_out);

}  // namespace citation_check::scan
