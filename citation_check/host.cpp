#include "host.h"

#include "originals.h"
#include "python/error.h"

namespace citation_check::host {

using py::attr;
using py::call;
using py::call_method;
using py::call_with;
using py::steal;
using py::truth;
using py::unpack;

bool is_fence(State& state, Borrowed line) {
    const Ref fence = state.global(state.names.FENCE_RE);
    if (is_standard_pattern(state, fence)) {
        return !call(state.kept(Kept::pattern_type).attribute(state.names.match), fence, line).is_none();
    }
    return truth(call_method(fence, state.names.match, line));
}

namespace {

// Takes a match of a standard pattern, whose span is two exact ints that fit; whether it holds any text.
bool take_match(State& state, Ref match, Citations& found) {
    const auto [begin, end] = unpack<2>(call(state.kept(Kept::match_type).attribute(state.names.span), match));
    const py::text::Span span = {PyLong_AsSize_t(begin.get()), PyLong_AsSize_t(end.get())};
    found.spans.push_back(span);
    found.matches.push_back(std::move(match));
    return span.begin < span.end;
}

// What `finditer` wraps in an iterator.
void scan_for_citations(State& state, Borrowed pattern, Borrowed sentence, Citations& found) {
    const Ref scanner = call_method(pattern, state.names.scanner, sentence);
    const Borrowed search = state.kept(Kept::scanner_type).attribute(state.names.search);
    py::PeriodicYield periodic_yield;
    for (Ref match = call(search, scanner); !match.is_none(); match = call(search, scanner)) {
        periodic_yield.step();
        take_match(state, std::move(match), found);
    }
}

// Most sentences carry one citation, and two searches are cheaper than a scanner. A match found from a later start
// shows it in `match.pos`, so from two on, and where a match is empty, the scanner finds them all.
void search_citations(State& state, Borrowed pattern, Borrowed sentence, Citations& found) {
    const Borrowed search = state.kept(Kept::pattern_type).attribute(state.names.search);
    Ref first = call(search, pattern, sentence);
    if (first.is_none()) return;
    const bool has_text = take_match(state, std::move(first), found);
    const Ref after = py::integer(static_cast<Py_ssize_t>(found.spans[0].end));
    if (has_text && call(search, pattern, sentence, after).is_none()) return;
    found.matches.clear();
    found.spans.clear();
    scan_for_citations(state, pattern, sentence, found);
}

}  // namespace

void find_citations(State& state, Borrowed sentence, Citations& found) {
    const auto& names = state.names;
    const Ref pattern = state.global(names.CITATION_RE);
    found.standard = is_standard_pattern(state, pattern) && py::text::is_plain(sentence);
    if (found.standard) {
        found.matches.clear();
        found.spans.clear();
        search_citations(state, pattern, sentence, found);
        found.list = Ref();
        return;
    }
    Ref all = steal(py::api(PySequence_List, call_method(pattern, names.finditer, sentence).get()));
    std::vector<Ref> matches;
    py::Iteration rest(all);
    for (Ref match; rest.next(match);) matches.push_back(std::move(match));
    found.matches = std::move(matches);
    found.list = std::move(all);
}

Ref without_citations(State& state, Borrowed sentence) {
    return call_method(state.global(state.names.CITATION_RE), state.names.sub, state.names.empty, sentence);
}

std::array<Ref, 3> citation_key(State& state, Borrowed match) {
    return unpack<3>(call(state.global(state.names.citation_key), match));
}

Ref normal_path(State& state, Borrowed path) { return call(state.global(state.names.norm), path); }

bool switched_on(State& state, Borrowed client) {
    return truth(call_method(client, state.names.feature_enabled, state.names.wiki_check_citations));
}

bool consented(State& state, Borrowed client) {
    return truth(call(state.global(state.names.source_consented), client));
}

Ref new_budget(State& state, Borrowed client, Borrowed should_stop) {
    const Ref new_budget = attr(client, state.names.new_budget);
    return call_with(new_budget, py::tuple_of(state.names.should_stop).get(), should_stop);
}

Ref questions_per_page(State& state, Borrowed client) {
    return attr(attr(client, state.names.config), state.names.wiki_check_citations_per_page);
}

Ref parallel_calls(State& state, Borrowed client) {
    const Ref configured = attr(attr(client, state.names.config), state.names.max_parallel_calls);
    return steal(py::api(PyNumber_Long, configured.get()));
}

std::array<Ref, 2> citation_request(State& state, Borrowed claim, Borrowed passage) {
    const Ref citation_request = state.global(state.names.citation_request);
    const Ref sentence = attr(claim, state.names.claim);
    return unpack<2>(call(citation_request, sentence, passage));
}

Ref decide(State& state, Borrowed client, const std::array<Ref, 2>& request, Borrowed budget) {
    const auto& names = state.names;
    const Ref decide = attr(client, names.decide);
    const Ref version = state.global(names.CITATION_QUESTION_VERSION);
    const Ref keywords = py::tuple_of(names.question_version, names.budget);
    return call_with(decide, keywords.get(), request[0], request[1], version, budget);
}

Ref citation_answer(State& state, Borrowed result) { return call(state.global(state.names.citation_answer), result); }

}  // namespace citation_check::host
