#pragma once

#include <cstddef>
#include <utility>

#include "python/call.h"
#include "state.h"

// The prose blocks of a page, found one at a time.
namespace citation_check {

// `for line in page.split("\n")`, as far as a scan has come. The lines of a plain text are cut one at a time.
class Lines {
  public:
    // The lines of a plain text from this place on.
    Lines(py::Ref text, std::size_t place) : source_(std::move(text)), is_text_(true), place_(place) {}
    // Those that an iterator gives after `line`; empty for no iterator, and no more lines.
    Lines(py::Ref iterator, py::Ref line) : source_(std::move(iterator)), line_(std::move(line)) {}

    // False at the end, where `line` stays as it is.
    bool next();
    // The iterator's end, which releases what it holds.
    void finish() { source_ = py::Ref(); }

    py::Borrowed line() const { return line_; }

    // What a scan's list keeps: the plain text or the iterator, None after the end; and the place of the next line in
    // a text, else the last line.
    py::Ref take_source() { return source_ ? std::move(source_) : py::none(); }
    py::Ref take_last() { return is_text_ ? py::integer(static_cast<Py_ssize_t>(place_)) : std::move(line_); }

  private:
    bool next_of_text();

    py::Ref source_;
    py::Ref line_;
    bool is_text_ = false;
    std::size_t place_ = 0;
};

// How far a page has been cut into blocks.
struct Scan {
    Lines lines;
    py::Ref stripped = {};    // the last line, stripped; empty before the first
    bool is_pending = false;  // it completed a block and belongs to the next
    bool in_fence = false;
};

// The next block, None at the end; its lines are added to `block`, an empty list.
py::Ref cut_block(State& state, Scan& scan, py::Borrowed block);

// A scan as a list, all of whose objects the collector sees, for `_prose_blocks` to continue.
py::Ref to_list(State& state, Scan scan);

// `_prose_blocks` in two steps: a scan over a page, and the next block of a scan, None at the end. `begin_scan` returns
// a scan unchanged, so `_prose_blocks(scan)` continues it.
py::Ref begin_scan(State& state, py::Borrowed markdown);
py::Ref next_block(State& state, py::Borrowed list);

}  // namespace citation_check
