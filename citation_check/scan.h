#pragma once

#include <span>

#include "python/text.h"

// What the module's own patterns find in plain texts.
namespace citation_check::scan {

using py::text::Span;

// Where the text begins after its list mark (`_LIST_MARK_RE`); 0 without one.
std::size_t list_mark_end(py::Borrowed text);

// The first gap between two sentences (`_SENTENCE_END_RE`) at or after `from`; empty at the end of the text for none.
Span sentence_gap(py::Borrowed block, std::size_t from);

// A text without the spans, which are in order and do not overlap, and tidied: no whitespace before a punctuation
// mark, none at the ends, and runs of it made one space.
py::Ref tidy(py::Borrowed text, std::span<const Span> left_out);

}  // namespace citation_check::scan
