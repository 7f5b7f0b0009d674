#pragma once

#include "python/call.h"
#include "python/module.h"

// Reading a cited file's text, from inside the repository only.
namespace citation_check {

// What `(root / path).resolve()`, the test that it lies in `root`, and `read_text` of it give, done natively and
// race-free. Empty when anything is unusual: only `pathlib` itself has the exact answer then.
py::Ref read_natively(py::Module& module, py::Borrowed root, py::Borrowed path);

// `target.read_text(encoding="utf-8", errors="replace")` for a target found in `root`. A plain path's text comes only
// from a regular file that is verified to lie in `root` when it is opened; anything else gives the empty text.
py::Ref read_target(py::Module& module, py::Borrowed target, py::Borrowed root);

}  // namespace citation_check
