#include "check.h"
#include "entry.h"
#include "extract.h"
#include "genuine.h"
#include "python/class.h"
#include "python/generator.h"
#include "python/import.h"
#include "sources.h"

namespace citation_check {

namespace {

using py::keep;
using py::Module;
using py::Ref;
using py::steal;

constexpr const char* module_doc =
    "Checking cited sentences against the lines they cite (``qep.wiki_check_citations``).\n"
    "\n"
    "A page's cited claims are put to the decision model with the lines they cite; a claim the lines do not\n"
    "support is a warning at ``save_page`` and a finding in ``wiki lint``. The first failure of the check\n"
    "ends it and is a finding of its own. Off by default; every question is bounded and cached.\n";

// What the bodies need besides the namespace: made first, so that everything made later can be called.
void keep_fixed_objects(Module& module) {
    const auto& names = module.names;
    keep(module.builtins, py::borrow(PyEval_GetBuiltins()));
    keep(module.function_type, py::make_function_type(module.self));
    keep(module.generator_type, py::make_generator_type(module.self));
    keep(module.keywords_checked_skipped, py::tuple_of(names.checked, names.skipped));
    keep(module.keywords_decide, py::tuple_of(names.question_version, names.budget));
    keep(module.keywords_default_factory, py::tuple_of(names.default_factory));
    keep(module.keywords_exc_info, py::tuple_of(names.exc_info));
    keep(module.keywords_frozen, py::tuple_of(names.frozen));
    keep(module.keywords_max_questions_budget, py::tuple_of(names.max_questions, names.budget));
    keep(module.keywords_pool, py::tuple_of(names.max_workers, names.thread_name_prefix));
    keep(module.keywords_read_text, py::tuple_of(names.encoding, names.errors));
    keep(module.keywords_should_stop, py::tuple_of(names.should_stop));
    keep(module.no_arguments, steal(PyTuple_New(0)));
    keep(module.one, py::integer(1));
    keep(module.left_out_starts, py::tuple_of(steal(PyUnicode_FromString("#")), steal(PyUnicode_FromString("|")),
                                              steal(PyUnicode_FromString(">"))));
}

void import_everything(const Module& module) {
    py::import_names(module, "__future__", {"annotations"});
    for (const char* name : {"logging", "re", "threading"}) py::import_module(module, name);
    py::import_names(module, "collections.abc", {"Callable", "Iterator", "Mapping"});
    py::import_names(module, "concurrent.futures", {"ThreadPoolExecutor"});
    py::import_names(module, "dataclasses", {"dataclass", "field"});
    py::import_names(module, "pathlib", {"Path"});
    py::import_names(module, "typing", {"Any"});
    py::import_names(module, "quenlow.engines.decision",
                     {"CITATION_QUESTION_VERSION", "CitationAnswer", "DecisionClient", "RunBudget", "citation_answer",
                      "citation_request"});
    py::import_names(module, "quenlow.engines.decision_text", {"source_consented"});
    py::import_names(module, "quenlow.workers.wiki.repo_facts", {"_norm"});
    py::import_names(module, "quenlow.workers.wiki.types", {"_CITATION_RE", "citation_key"});
    py::import_names(module, "quenlow.workers.wiki_types", {"_FENCE_RE"});
}

Ref make_logger(const Module& module) {
    const auto& names = module.names;
    const Ref get_logger = py::attr(module.global(names.logging), names.getLogger);
    return py::call(get_logger, module.global(names.name_dunder));
}

Ref compile(const Module& module, const char* pattern) {
    const auto& names = module.names;
    return py::call_method(module.global(names.re), names.compile, steal(PyUnicode_FromString(pattern)));
}

void bind_function(Module& module, const py::FunctionRow& row) {
    const Ref name = steal(PyUnicode_InternFromString(row.name));
    module.bind(name.get(), py::make_function(module, row));
}

// The order is the order of the names in the namespace, and of what an import can fail at.
void run_import_sequence(Module& module) {
    const auto& names = module.names;
    module.bind(names.builtins_dunder, module.builtins);
    module.bind(names.doc_dunder, steal(PyUnicode_FromString(module_doc)));
    import_everything(module);
    module.bind(names.logger, make_logger(module));
    module.bind(names.PASSAGE_CHARS, py::integer(2200));
    module.bind(names.CLAIM_MIN_CHARS, py::integer(12));
    module.bind(names.SENTENCE_END_RE, compile(module, sentence_end_pattern));
    module.bind(names.LIST_MARK_RE, compile(module, list_mark_pattern));
    module.bind(names.CitedClaim, make_cited_claim_class(module));
    module.bind(names.CheckedClaim, make_checked_claim_class(module));
    module.bind(names.VERDICT_FINDINGS, make_verdict_findings(module));
    module.bind(names.DETAIL_CLAIM_CHARS, py::integer(160));
    module.bind(names.FAILURE_CHARS, py::integer(200));
    module.bind(names.CitationCheck, make_citation_check_class(module));
    for (const auto* row : {&prose_blocks_row, &claim_text_row, &cited_claims_row, &cited_lines_row}) {
        bind_function(module, *row);
    }
    module.bind(names.CitedSources, make_cited_sources_class(module));
    bind_function(module, check_citations_row);
    module.bind(names.CitationChecker, make_citation_checker_class(module));
    module.bind(names.CitationCheckMixin, make_citation_check_mixin_class(module));
    bind_function(module, citation_lint_findings_row);
    genuine::remember(module);
}

int execute(PyObject* self) noexcept {
    return py::guarded_status([self] {
        Module& module = Module::initialise(self);
        keep_fixed_objects(module);
        run_import_sequence(module);
    });
}

int traverse(PyObject* self, visitproc visit, void* argument) noexcept {
    return Module::of(self).visit(visit, argument);
}

int clear(PyObject* self) noexcept {
    Module::of(self).clear();
    return 0;
}

void release(void* self) noexcept {
    Module& module = Module::of(static_cast<PyObject*>(self));
    module.clear();
    module.release_names();
}

PyModuleDef_Slot slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(execute)},
    {0, nullptr},
};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "citation_check", nullptr, sizeof(Module), nullptr, slots, traverse, clear, release,
};

}  // namespace

}  // namespace citation_check

PyMODINIT_FUNC PyInit_citation_check() { return PyModuleDef_Init(&citation_check::definition); }
