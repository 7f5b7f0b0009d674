#pragma once

#include "state.h"

namespace citation_check {

// Keeps what the namespace and the library hold at the end of the import, as far as shortcuts may stand in for it: an
// object that a host had already replaced is not kept, and so never found to be the original.
void keep_originals(State& state);

// A pattern of the standard `re`, whose methods cannot be replaced.
bool is_standard_pattern(State& state, py::Borrowed object);

}  // namespace citation_check
