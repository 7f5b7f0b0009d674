#pragma once

#include <array>

#include "class_guard.h"
#include "names.h"
#include "object.h"

// Every object that the module keeps for itself: one line each, and its visit, its clearing and its release follow.
#define CITATION_CHECK_KEPT(X) \
    X(builtins) \
    X(function_type) \
    X(generator_type) \
    /* the keyword names of calls, as vectorcall wants them */ \
    X(keywords_checked_skipped) \
    X(keywords_decide) \
    X(keywords_default_factory) \
    X(keywords_exc_info) \
    X(keywords_frozen) \
    X(keywords_max_questions_budget) \
    X(keywords_pool) \
    X(keywords_read_text) \
    X(keywords_should_stop) \
    /* fixed values */ \
    X(no_arguments) \
    X(one) \
    X(left_out_starts) \
    /* what fast roads stand in for, as the import found it */ \
    X(pattern_type) \
    X(pattern_match) \
    X(pattern_search) \
    X(pattern_scanner) \
    X(scanner_search) \
    X(match_span) \
    X(list_mark) \
    X(sentence_end) \
    X(prose_blocks) \
    X(claim_text) \
    X(cited_lines) \
    X(passage) \
    X(re_module) \
    X(re_sub)

namespace py {

// The state of one copy of the module. Lives in the module object's own memory, zeroed before the import sequence runs.
struct Module {
    PyObject* self;     // borrowed: the module object, which owns this state
    PyObject* globals;  // owned to the very end: the namespace, which may outlive `self` being cleared
    Names names;
#define CITATION_CHECK_FIELD(field) PyObject* field;
    CITATION_CHECK_KEPT(CITATION_CHECK_FIELD)
#undef CITATION_CHECK_FIELD
    // The classes whose every change is noticed.
    ClassGuard cited_claim_guard;
    ClassGuard checked_claim_guard;
    ClassGuard path_guard;

    // The value that a module-level name has now: the namespace's, else the interpreter's builtin. NameError with
    // the interpreter's wording when there is neither. Looked up at each use, so a rebound name counts at once.
    Ref global(const Name& name) const {
        // Whatever changes a dictionary gives it a new version before it releases or runs anything.
        const auto version = reinterpret_cast<PyDictObject*>(globals)->ma_version_tag;
        return name.version == version ? borrow(name.value) : look_up(name);
    }

    // Binds a module-level name.
    void bind(PyObject* name, Borrowed value) const;

    // Sets the state up in `module`'s memory: the names, and nothing kept yet.
    static Module& initialise(PyObject* module);
    static Module& of(PyObject* module) { return *static_cast<Module*>(PyModule_GetState(module)); }

    // RuntimeError when the collector has cleared the module; what `name` would run has lost what it needs then.
    void refuse_when_collected(PyObject* name) const;

    // What the interpreter's collector and the end of the module need.
    int visit(visitproc visit, void* argument);
    void clear();
    void release_names();

  private:
    Ref look_up(const Name& name) const;

    std::array<ClassGuard*, 3> guards() { return {&cited_claim_guard, &checked_claim_guard, &path_guard}; }
};

// Keeps `object` in a field of the module's list above.
inline void keep(PyObject*& field, Ref object) { Ref old = take(std::exchange(field, object.release())); }

}  // namespace py
