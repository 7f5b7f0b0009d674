#pragma once

#include <array>

#include "names.h"
#include "python/original.h"

namespace citation_check {

// The objects of the import that shortcuts stand in for.
enum class Kept : std::size_t {
    pattern_type,
    scanner_type,
    match_type,
    list_mark,
    sentence_end,
    re,
    prose_blocks,
    claim_text,
    cited_lines,
    cited_claim,
    path,          // `pathlib.PosixPath`, with what joins, resolves and reads
    path_reading,  // `pathlib.Path`, with what confinement needs: `open` and `read_text`
    os,
    os_path,
    io,
    path_of_os,     // `os`, whose `path` is os_path
    os_of_pathlib,  // `pathlib`, whose `os` is os
    io_of_pathlib,  // `pathlib`, whose `io` is io
    count,
};

// What one copy of the module keeps for itself. Lives as long as its module object.
class State {
  public:
    // For a module that is about to run its import sequence.
    explicit State(py::Borrowed module);

    // The state of a module whose import has begun.
    static State& of(PyObject* module) { return *slot(module); }
    // Where a module object keeps its state; NULL before the import and after the end.
    static State*& slot(PyObject* module) { return static_cast<Slot*>(PyModule_GetState(module))->state; }
    struct Slot {
        State* state;
    };

    // The value that a module-level name has now: the namespace's, else the interpreter's builtin. NameError with
    // the interpreter's wording when there is neither. Looked up at each use, so a rebound name counts at once.
    py::Ref global(py::Borrowed name) const;
    // The same without NameError: empty when there is neither.
    py::Ref find_global(py::Borrowed name) const;

    // Whether that name still has its original value: valid only until Python code runs again.
    bool has_original(py::Borrowed name, Kept which) const;

    py::Original& kept(Kept which) { return kept_[static_cast<std::size_t>(which)]; }

    py::Borrowed globals() const { return globals_; }

    // What the interpreter's collector needs. Clearing takes no more than the kept objects: the interpreter
    // clears the namespace itself, and functions can still be called while their module is being collected.
    int visit(visitproc visit, void* arg) const;
    void clear();

    const Names names;
    const py::Ref scan_mark;

  private:
    py::Ref globals_;
    py::Ref builtins_;
    std::array<py::Original, static_cast<std::size_t>(Kept::count)> kept_;
};

}  // namespace citation_check
