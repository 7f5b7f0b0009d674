#pragma once

#include <optional>

#include "confined.h"
#include "state.h"

// Reading a cited file's text, from inside the repository only. An OSError on the way gives the empty text.
namespace citation_check {

// What a cited path led to, and the root's own path.
struct CitedFile {
    confined::Location location;
    std::string root;
};

// What `(root / path).resolve()` leads to, without a moment in which somebody could swap the file. Nothing unless all
// of `pathlib` is unpatched and the path leads to something: only `pathlib` itself has the exact answer then.
std::optional<CitedFile> locate_in_one_step(State& state, py::Borrowed root, py::Borrowed path);

// The text of a file found so: what the test that it lies in `root` and its `read_text` give. Empty when `pathlib` has
// been patched since.
py::Ref read_file(State& state, const CitedFile& file, py::Borrowed root);

// `target.read_text(encoding="utf-8", errors="replace")` for a target found in `root`. As long as the reading methods
// are the library's own, the text comes only from a regular file that is verified to lie in `root` when it is opened;
// anything else gives the empty text.
py::Ref read_target(State& state, py::Borrowed target, py::Borrowed root);

}  // namespace citation_check
