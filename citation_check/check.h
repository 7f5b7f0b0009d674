#pragma once

#include "state.h"

// Citation checking: a page's result, the check of one page, and the checker of one run. Declares the C++ bodies
// of the functions of these names.
namespace citation_check {

// `CitationCheck`
py::Ref score(State& state, py::Borrowed self);
py::Ref findings(State& state, py::Borrowed self, py::Borrowed page_id);
py::Ref warnings(State& state, py::Borrowed self);

// The first half of `check_citations`: the list of pairs of a claim and its passage that are asked about, how many
// claims are skipped, and the last claim with its passage, which live on as variables of a loop do.
py::Ref select_claims(State& state, py::Borrowed sources, py::Borrowed markdown, py::Borrowed max_questions);

// `check_citations.<locals>.ask`: the question of one such pair, on a worker thread.
py::Ref ask(State& state, py::Borrowed item, py::Borrowed client, py::Borrowed budget, py::Borrowed failed);

// The second half: puts a question for each pair, and gives the page's result.
py::Ref put_questions(State& state, py::Borrowed ask, py::Borrowed asked, py::Borrowed skipped, py::Borrowed client);

// `CitationChecker`
py::Ref init_checker(State& state, py::Borrowed self, py::Borrowed client, py::Borrowed repo_root,
                     py::Borrowed should_stop);
py::Ref enabled(State& state, py::Borrowed cls, py::Borrowed client, py::Borrowed repo_root, py::Borrowed should_stop);
py::Ref check(State& state, py::Borrowed self, py::Borrowed markdown);

}  // namespace citation_check
