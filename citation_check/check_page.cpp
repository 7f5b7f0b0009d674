#include "check.h"
#include "host.h"
#include "python/text.h"

namespace citation_check {

using py::Borrowed;
using py::call;
using py::call_method;
using py::Ref;
using py::steal;

Ref select_claims(State& state, Borrowed sources, Borrowed markdown, Borrowed max_questions) {
    const auto& names = state.names;
    const Ref asked = py::new_list();
    Py_ssize_t skipped = 0;
    py::PeriodicYield periodic_yield;
    Ref claim, passage;
    py::Iteration claims(call(state.global(names.cited_claims), markdown));
    while (claims.next(claim)) {
        const Ref so_far = py::integer(PyList_GET_SIZE(asked.get()));
        const bool within_cap = py::compare(so_far, max_questions, Py_LT);
        passage = within_cap ? call_method(sources, names.passage, claim) : py::borrow(names.empty);
        if (py::text::is_blank(passage, names.strip)) {
            periodic_yield.step();
            ++skipped;
        } else {
            py::append(asked, py::tuple_of(claim, passage));
        }
    }
    const Ref last = claim ? py::tuple_of(claim, passage) : py::none();
    const Ref count = py::integer(skipped);
    return py::tuple_of(asked, count, last);
}

Ref ask(State& state, Borrowed item, Borrowed client, Borrowed budget, Borrowed failed) {
    const auto& names = state.names;
    if (py::truth(call_method(failed, names.is_set))) return py::none();
    const auto [claim, passage] = py::unpack<2>(item);
    const auto request = host::citation_request(state, claim, passage);
    return py::try_except(
        PyExc_Exception,
        [&] {
            const Ref result = host::decide(state, client, request, budget);
            return host::citation_answer(state, result);
        },
        [&](py::Handled& error) -> Ref {
            call_method(failed, names.set);
            error.reraise();
        });
}

namespace {

// `max(1, min(int(client.config.max_parallel_calls), len(asked)))`
Ref worker_count(State& state, Borrowed client, Borrowed asked) {
    const Ref allowed = host::parallel_calls(state, client);
    const Ref questions = py::integer(py::length(asked));
    const Ref one = py::integer(1);
    const bool fewer_questions = py::compare(questions, allowed, Py_LT);
    const Ref& least = fewer_questions ? questions : allowed;
    return py::borrow(py::compare(least, one, Py_GT) ? least : one);
}

// The answers to `asked`, in its order; raises the exception of the first failed question in that order. `pool` gets
// the pool that gave them.
Ref answers_of(State& state, Borrowed ask, Borrowed asked, Borrowed workers, Ref& pool) {
    const auto& names = state.names;
    const Ref pool_type = state.global(names.ThreadPoolExecutor);
    const Ref keywords = py::tuple_of(names.max_workers, names.thread_name_prefix);
    const Ref executor = py::call_with(pool_type, keywords.get(), workers, names.wiki_cite);
    Ref answers;
    py::ContextManager manager(executor, names.enter_dunder, names.exit_dunder);
    manager.run([&](Borrowed entered) {
        pool = py::borrow(entered);
        const Ref results = call_method(pool, names.map, ask, asked);
        answers = steal(py::api(PySequence_List, results.get()));
    });
    if (!answers) py::raise_unbound("answers");  // by an executor that swallowed the exception
    return answers;
}

// A record for each pair that has an answer. A patched pool may have changed either list.
Ref checked_claims(State& state, Borrowed asked, Borrowed answers) {
    Ref checked = py::new_list();
    Ref pair, answer;
    py::Iteration pairs(asked);
    py::Iteration results(answers);
    while (pairs.next(pair) && results.next(answer)) {
        const auto [claim, passage] = py::unpack<2>(pair);
        if (answer.is_none()) continue;
        py::append(checked, call(state.global(state.names.CheckedClaim), claim, answer));
    }
    return checked;
}

}  // namespace

Ref put_questions(State& state, Borrowed ask, Borrowed asked, Borrowed skipped, Borrowed client) {
    const auto& names = state.names;
    const Ref workers = worker_count(state, client, asked);
    Ref pool;  // lives as long as the page's check
    const Ref answers = answers_of(state, ask, asked, workers, pool);
    const Ref checked = checked_claims(state, asked, answers);
    const Ref type = state.global(names.CitationCheck);
    const Ref keywords = py::tuple_of(names.checked, names.skipped);
    return py::call_with(type, keywords.get(), checked, skipped);
}

}  // namespace citation_check
