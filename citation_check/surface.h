#pragma once

#include "state.h"

namespace citation_check {

// Runs the import sequence: binds every name of the module in its order, and stops at the first failure.
void run_import_sequence(py::Borrowed module, State& state);

}  // namespace citation_check
