#include "check.h"
#include "genuine.h"
#include "host.h"
#include "python/record.h"
#include "python/text.h"
#include "sources.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::call_method;
using py::Module;
using py::Ref;
using py::steal;

namespace {

// --- the question of one claim, on a worker thread -----------------------------------------------------------------

// The places of the variables that `ask` holds from the page check that made it.
enum Held : std::size_t { held_budget, held_client, held_failed };
constexpr const char* held_names[] = {"budget", "client", "failed"};

Ref ask(Module& module, py::Closure held, Borrowed item) {
    const auto& names = module.names;
    if (py::truth(call_method(held[held_failed], names.is_set))) return py::none();
    const auto [claim, passage] = py::unpack<2>(item);
    const host::Request request = host::citation_request(module, claim, passage);
    return py::try_except(
        PyExc_Exception,
        [&] {
            const Ref result = host::decide(module, held[held_client], request, held[held_budget]);
            return host::citation_answer(module, result);
        },
        [&](py::Handled& error) -> Ref {
            call_method(held[held_failed], names.set);
            error.reraise();
        });
}

constexpr py::Parameter ask_parameters[] = {{"item", "tuple[CitedClaim, str]"}};
constexpr py::FunctionRow ask_row = {
    "ask",          "check_citations.<locals>.ask",
    ask_parameters, "CitationAnswer | None",
    nullptr,        py::native<ask>,
    CO_NESTED,      held_names,
};

Ref make_ask(Module& module, Borrowed client, Borrowed budget, Borrowed failed) {
    const Ref cells =
        py::tuple_of(steal(PyCell_New(budget.get())), steal(PyCell_New(client.get())), steal(PyCell_New(failed.get())));
    return py::make_function(module, ask_row, cells.get());
}

// --- the page ------------------------------------------------------------------------------------------------------

struct Selection {
    Ref asked = py::new_list();  // pairs of a claim and its passage
    Py_ssize_t skipped = 0;
};

// Which claims of the page are asked about: those with a passage that is not blank, up to the cap.
Selection select(Module& module, Borrowed markdown, Borrowed repo_root, Borrowed max_questions) {
    const auto& names = module.names;
    Selection selection;
    PassageCursor cursor;
    const Ref sources = call(module.global(names.CitedSources), repo_root);
    py::Iteration claims(call(module.global(names.cited_claims), markdown));
    while (const Ref claim = claims.next()) {
        const Ref so_far = py::integer(PyList_GET_SIZE(selection.asked.get()));
        const bool within_cap = py::compare(so_far, max_questions, Py_LT);
        const Ref passage = within_cap ? passage_of(module, sources, claim, cursor) : py::borrow(names.empty);
        const bool blank =
            py::text::is_exact(passage) ? py::text::is_blank(passage) : !py::truth(call_method(passage, names.strip));
        if (blank) {
            ++selection.skipped;
        } else {
            py::append(selection.asked, py::tuple_of(claim, passage));
        }
    }
    return selection;
}

// At least one worker, and no more than the configuration allows or the page has questions.
Ref worker_count(Module& module, Borrowed client, Borrowed asked) {
    const Ref allowed = host::parallel_calls(module, client);
    int overflow = 0;
    const long long bound = PyLong_AsLongLongAndOverflow(allowed.get(), &overflow);
    const Py_ssize_t questions = PyList_GET_SIZE(asked.get());
    const bool bounded = overflow < 0 || (overflow == 0 && bound < questions);
    const long long workers = bounded ? bound : questions;
    return py::integer(overflow < 0 || workers < 1 ? 1 : static_cast<Py_ssize_t>(workers));
}

// The answers to `asked`, in its order; raises the exception of the first failed question in that order.
Ref answers_of(Module& module, Borrowed question, Borrowed asked, Borrowed workers) {
    const auto& names = module.names;
    const Ref executor =
        py::call_with(module.global(names.ThreadPoolExecutor), module.keywords_pool, workers, names.wiki_cite);
    Ref answers;
    py::ContextManager manager(executor, names.enter_dunder, names.exit_dunder);
    manager.run(
        [&](Borrowed pool) { answers = steal(PySequence_List(call_method(pool, names.map, question, asked).get())); });
    if (!answers) {
        // Only an executor that swallows exceptions comes here.
        py::raise(PyExc_UnboundLocalError,
                  "cannot access local variable 'answers' where it is not associated with a value");
    }
    return answers;
}

// A record for each pair that has an answer. The pool had both lists in hand, so nothing is taken for granted of them.
Ref checked_claims(Module& module, Borrowed asked, Borrowed answers) {
    const auto& names = module.names;
    Ref checked = py::new_list();
    py::Iteration pairs(asked);
    py::Iteration results(answers);
    while (const Ref pair = pairs.next()) {
        const Ref answer = results.next();
        if (!answer) break;
        const auto [claim, passage] = py::unpack<2>(pair);
        if (answer.is_none()) continue;
        const Ref checked_claim = module.global(names.CheckedClaim);
        py::append(checked, genuine::is_checked_claim(module, checked_claim)
                                ? py::make_record(module, checked_claim, {{names.claim, claim}, {names.answer, answer}})
                                : call(checked_claim, claim, answer));
    }
    return checked;
}

Ref check_citations(Module& module, Borrowed client, Borrowed markdown, Borrowed repo_root, Borrowed max_questions,
                    Borrowed budget) {
    const auto& names = module.names;
    const Selection selection = select(module, markdown, repo_root, max_questions);
    const Ref failed = call_method(module.global(names.threading), names.Event);
    const Ref question = make_ask(module, client, budget, failed);
    const Ref workers = worker_count(module, client, selection.asked);
    const Ref answers = answers_of(module, question, selection.asked, workers);
    const Ref checked = checked_claims(module, selection.asked, answers);
    return py::call_with(module.global(names.CitationCheck), module.keywords_checked_skipped, checked,
                         py::integer(selection.skipped));
}

constexpr py::Parameter check_citations_parameters[] = {
    {"client", "DecisionClient"},
    {"markdown", "str"},
    {"repo_root", "Path"},
    py::Parameter{"max_questions", "int"}.keyword(),
    py::Parameter{"budget", "RunBudget | None"}.keyword().or_none(),
};

}  // namespace

const py::FunctionRow check_citations_row = {
    "check_citations",
    "check_citations",
    check_citations_parameters,
    "CitationCheck",
    "Ask how the cited lines of each cited sentence of a page relate to it.\n"
    "\n"
    "    Args:\n"
    "        client: The decision client to ask (the caller checks its switch).\n"
    "        markdown: The page as saved.\n"
    "        repo_root: Where the cited files are stored.\n"
    "        max_questions: At most this many sentences are asked about; the rest are skipped.\n"
    "        budget: A batch pass's budget; None: each call ends by the interactive deadline.\n"
    "\n"
    "    Returns:\n"
    "        The answers, in page order.\n"
    "\n"
    "    Raises:\n"
    "        DecisionError: A call failed; no later question of the page is asked.\n"
    "    ",
    py::native<check_citations>,
};

}  // namespace citation_check
