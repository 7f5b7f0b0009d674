#include "surface.h"

#include "check.h"
#include "entry.h"
#include "extract.h"
#include "frozen_surface.h"
#include "prose.h"
#include "python/frozen.h"
#include "python/native.h"
#include "sources.h"

namespace citation_check {

namespace {

// The C++ body of each function of surface.py, under the name by which `native` has it there.
PyMethodDef bodies[] = {
    py::native<ref>("ref"),
    py::native<score>("score"),
    py::native<findings>("findings"),
    py::native<warnings>("warnings"),
    py::native<begin_scan>("begin_scan"),
    py::native<next_block>("next_block"),
    py::native<claim_text>("claim_text"),
    py::native<cited_claims>("cited_claims"),
    py::native<cited_lines>("cited_lines"),
    py::native<init_sources>("init_sources"),
    py::native<passage>("passage"),
    py::native<read>("read"),
    py::native<select_claims>("select_claims"),
    py::native<ask>("ask"),
    py::native<put_questions>("put_questions"),
    py::native<init_checker>("init_checker"),
    py::native<enabled>("enabled"),
    py::native<check>("check"),
    py::native<citation_check>("citation_check"),
    py::native<citation_lint_findings>("citation_lint_findings"),
    {},
};

}  // namespace

void run_import_sequence(py::Borrowed module, State& state) {
    const py::Borrowed globals = state.globals();
    // As `exec` does for the body of a module.
    py::check(py::api(PyDict_SetItemString, globals.get(), "__builtins__", PyEval_GetBuiltins()));
    const auto [module_body, definitions] = py::unpack<2>(py::thaw(frozen_surface));
    py::run(module_body, globals);
    py::call(py::make_function(definitions, globals), py::make_natives(module, bodies));
}

}  // namespace citation_check
