#pragma once

#include "python/module.h"

// Whether a name still holds the very object that the module made or met at import, so that C++ may do its work
// itself without anybody being able to tell. Each answer holds only until Python code runs again.
namespace citation_check::genuine {

// Remembers what the namespace holds at the end of the import.
void remember(py::Module& module);

// A pattern of the standard `re`, whose methods nobody can replace or watch.
bool is_pattern(const py::Module& module, py::Borrowed object);

// `_LIST_MARK_RE` and `_SENTENCE_END_RE`: the module's own patterns.
bool is_list_mark(const py::Module& module, py::Borrowed pattern);
bool is_sentence_end(const py::Module& module, py::Borrowed pattern);

// `_prose_blocks`, `_claim_text`, `cited_lines` and `CitedSources.passage`: the module's own functions.
bool is_prose_blocks(const py::Module& module, py::Borrowed function);
bool is_claim_text(const py::Module& module, py::Borrowed function);
bool is_cited_lines(const py::Module& module, py::Borrowed function);
bool is_passage(const py::Module& module, py::Borrowed function);

// `re`: the standard module with its own `sub`.
bool is_re(const py::Module& module, py::Borrowed re);

// `CitedClaim` and `CheckedClaim`: the module's own record classes, with nothing on them replaced.
bool is_cited_claim(py::Module& module, py::Borrowed type);
bool is_checked_claim(py::Module& module, py::Borrowed type);

// A plain path of `pathlib` whose class has nothing replaced on it.
bool is_plain_path(py::Module& module, py::Borrowed path);

}  // namespace citation_check::genuine
