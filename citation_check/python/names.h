#pragma once

#include <cstdint>

#include "object.h"

// Every interned name and fixed text that C++ hands to the interpreter: one line each, and the field, its making and
// its release follow from it.
#define CITATION_CHECK_NAMES(X) \
    /* the interpreter's own */ \
    X(annotations_dunder, "__annotations__") \
    X(builtins_dunder, "__builtins__") \
    X(doc_dunder, "__doc__") \
    X(enter_dunder, "__enter__") \
    X(exit_dunder, "__exit__") \
    X(fspath_dunder, "__fspath__") \
    X(import_dunder, "__import__") \
    X(initializing, "_initializing") \
    X(module_dunder, "__module__") \
    X(name, "name") \
    X(name_dunder, "__name__") \
    X(new_dunder, "__new__") \
    X(qualname_dunder, "__qualname__") \
    X(return_, "return") \
    X(spec_dunder, "__spec__") \
    X(str_dunder, "__str__") \
    X(truediv_dunder, "__truediv__") \
    /* names in the module's namespace */ \
    X(CITATION_QUESTION_VERSION, "CITATION_QUESTION_VERSION") \
    X(CITATION_RE, "_CITATION_RE") \
    X(CLAIM_MIN_CHARS, "_CLAIM_MIN_CHARS") \
    X(CheckedClaim, "CheckedClaim") \
    X(CitationCheck, "CitationCheck") \
    X(CitationCheckMixin, "CitationCheckMixin") \
    X(CitationChecker, "CitationChecker") \
    X(CitedClaim, "CitedClaim") \
    X(CitedSources, "CitedSources") \
    X(DETAIL_CLAIM_CHARS, "_DETAIL_CLAIM_CHARS") \
    X(FAILURE_CHARS, "_FAILURE_CHARS") \
    X(FENCE_RE, "_FENCE_RE") \
    X(LIST_MARK_RE, "_LIST_MARK_RE") \
    X(PASSAGE_CHARS, "_PASSAGE_CHARS") \
    X(SENTENCE_END_RE, "_SENTENCE_END_RE") \
    X(Path, "Path") \
    X(ThreadPoolExecutor, "ThreadPoolExecutor") \
    X(VERDICT_FINDINGS, "_VERDICT_FINDINGS") \
    X(check_citations, "check_citations") \
    X(citation_answer, "citation_answer") \
    X(citation_key, "citation_key") \
    X(citation_request, "citation_request") \
    X(cited_claims, "cited_claims") \
    X(cited_lines, "cited_lines") \
    X(claim_text, "_claim_text") \
    X(dataclass, "dataclass") \
    X(field, "field") \
    X(logger, "logger") \
    X(logging, "logging") \
    X(norm, "_norm") \
    X(prose_blocks, "_prose_blocks") \
    X(re, "re") \
    X(source_consented, "source_consented") \
    X(threading, "threading") \
    /* attributes, methods and keywords */ \
    X(Event, "Event") \
    X(Lock, "Lock") \
    X(answer, "answer") \
    X(budget, "budget") \
    X(check, "check") \
    X(checked, "checked") \
    X(citation_checker, "_citation_checker") \
    X(claim, "claim") \
    X(client, "client") \
    X(compile, "compile") \
    X(config, "config") \
    X(decide, "decide") \
    X(decision_client, "decision_client") \
    X(default_factory, "default_factory") \
    X(detail, "detail") \
    X(enabled, "enabled") \
    X(encoding, "encoding") \
    X(end, "end") \
    X(errors, "errors") \
    X(exc_info, "exc_info") \
    X(failed, "_failed") \
    X(failure, "failure") \
    X(feature_enabled, "feature_enabled") \
    X(findings, "findings") \
    X(finditer, "finditer") \
    X(frozen, "frozen") \
    X(get, "get") \
    X(getLogger, "getLogger") \
    X(is_relative_to, "is_relative_to") \
    X(is_set, "is_set") \
    X(items, "items") \
    X(kind, "kind") \
    X(lock, "_lock") \
    X(map, "map") \
    X(match, "match") \
    X(max_parallel_calls, "max_parallel_calls") \
    X(max_questions, "max_questions") \
    X(max_workers, "max_workers") \
    X(new_budget, "new_budget") \
    X(open, "open") \
    X(pages, "pages") \
    X(passage, "passage") \
    X(path, "path") \
    X(pattern, "pattern") \
    X(question_version, "question_version") \
    X(read, "_read") \
    X(read_text, "read_text") \
    X(ref, "ref") \
    X(repo_root, "repo_root") \
    X(resolve, "resolve") \
    X(root, "root") \
    X(scanner, "scanner") \
    X(flags, "flags") \
    X(search, "search") \
    X(set, "set") \
    X(severity, "severity") \
    X(should_stop, "should_stop") \
    X(skipped, "skipped") \
    X(span, "span") \
    X(split, "split") \
    X(splitlines, "splitlines") \
    X(start, "start") \
    X(startswith, "startswith") \
    X(strip, "strip") \
    X(sub, "sub") \
    X(texts, "_texts") \
    X(thread_name_prefix, "thread_name_prefix") \
    X(verdict, "verdict") \
    X(warning, "warning") \
    X(wiki_check_citations_per_page, "wiki_check_citations_per_page") \
    /* texts */ \
    X(empty, "") \
    X(line_feed, "\n") \
    X(space, " ") \
    X(bracket, "[") \
    X(first_line, ":L") \
    X(last_line, "-L") \
    X(closing_bracket, "]") \
    X(colon, ": ") \
    X(quotation, ": \"") \
    X(closing_quote, "\"") \
    X(space_before_mark, "\\s+([.,;:!?])") \
    X(first_group, "\\1") \
    X(space_run, "\\s{2,}") \
    X(contradicts, "contradicts") \
    X(says_nothing, "says_nothing") \
    X(supports, "supports") \
    X(utf_8, "utf-8") \
    X(replace, "replace") \
    X(wiki_check_citations, "wiki_check_citations") \
    X(wiki_cite, "wiki-cite") \
    X(medium, "medium") \
    X(low, "low") \
    X(citation_contradicted, "citation-contradicted") \
    X(citation_unsupported, "citation-unsupported") \
    X(citation_check_skipped, "citation-check-skipped") \
    X(citation_check_failed, "citation-check-failed")

namespace py {

// An interned name, and what the namespace gave for it at one version of the namespace.
struct Name {
    PyObject* object;
    mutable std::uint64_t version;  // 0: nothing is known
    mutable PyObject* value;        // borrowed from the namespace; alive while that has this version

    operator PyObject*() const { return object; }
};

struct Names {
#define CITATION_CHECK_FIELD(field, text) Name field;
    CITATION_CHECK_NAMES(CITATION_CHECK_FIELD)
#undef CITATION_CHECK_FIELD
};

}  // namespace py
