#pragma once

#include <optional>

#include "prose.h"

namespace citation_check {

// `for block in _prose_blocks(markdown)`, as an Iteration. The blocks come straight from a scan as long as it runs no
// Python code, which could see that the generator is missing. Then a generator goes on with the scan, unless
// `_prose_blocks` was patched since: a generator that runs keeps the code that it began with.
class Blocks {
  public:
    Blocks(State& state, py::Borrowed markdown);

    bool next(py::Ref& block);

  private:
    bool runs_no_python_code();

    State& state_;
    std::optional<Scan> scan_;  // empty once the generator has it
    py::Ref fence_;             // the last `_FENCE_RE` that was found to be a standard pattern for text
    std::optional<py::Iteration> generator_;
};

}  // namespace citation_check
