#include "host.h"

#include "genuine.h"
#include "python/text.h"

namespace citation_check::host {

using py::attr;
using py::call;
using py::call_method;
using py::call_with;
using py::steal;
using py::truth;
using py::unpack;

bool is_fence(Module& module, Borrowed line) {
    const Ref fence = module.global(module.names.FENCE_RE);
    if (genuine::is_pattern(module, fence)) return !call(module.pattern_match, fence, line).is_none();
    return truth(call_method(fence, module.names.match, line));
}

namespace {

// What `finditer` wraps in an iterator.
void scan_citations(const Module& module, Borrowed sentence, Citations& found) {
    const Ref scanner = call(module.pattern_scanner, found.pattern, sentence);
    for (Ref match = call(module.scanner_search, scanner); !match.is_none();) {
        found.matches.push_back(std::move(match));
        match = call(module.scanner_search, scanner);
    }
}

// Most sentences carry one citation, and two searches are cheaper than a scanner. A second match would tell where its
// search began, so from two on, and where a match is empty, the scanner finds them all.
void search_citations(const Module& module, Borrowed sentence, Citations& found) {
    Ref match = call(module.pattern_search, found.pattern, sentence);
    if (match.is_none()) return;
    const auto [begin, end] = unpack<2>(call(module.match_span, match));
    const bool empty = py::compare(begin, end, Py_EQ);
    if (empty || !call(module.pattern_search, found.pattern, sentence, end).is_none()) {
        scan_citations(module, sentence, found);
    } else {
        found.matches.push_back(std::move(match));
    }
}

}  // namespace

void find_citations(Module& module, Borrowed sentence, Citations& found) {
    const auto& names = module.names;
    found.matches.clear();
    found.pattern = module.global(names.CITATION_RE);
    found.standard = genuine::is_pattern(module, found.pattern) && py::text::is_exact(sentence);
    if (found.standard) {
        search_citations(module, sentence, found);
        return;
    }
    const Ref list = steal(PySequence_List(call_method(found.pattern, names.finditer, sentence).get()));
    for (Py_ssize_t index = 0; index < PyList_GET_SIZE(list.get()); ++index) {
        found.matches.push_back(py::borrow(PyList_GET_ITEM(list.get(), index)));
    }
}

Ref without_citations(Module& module, Borrowed sentence) {
    const auto& names = module.names;
    return call_method(module.global(names.CITATION_RE), names.sub, names.empty, sentence);
}

CitationKey citation_key(Module& module, Borrowed match) {
    auto [path, start, end] = unpack<3>(call(module.global(module.names.citation_key), match));
    return {std::move(path), std::move(start), std::move(end)};
}

Ref normal_path(Module& module, Borrowed path) { return call(module.global(module.names.norm), path); }

bool switched_on(Module& module, Borrowed client) {
    return truth(call_method(client, module.names.feature_enabled, module.names.wiki_check_citations));
}

bool consented(Module& module, Borrowed client) {
    return truth(call(module.global(module.names.source_consented), client));
}

Ref new_budget(Module& module, Borrowed client, Borrowed should_stop) {
    return call_with(attr(client, module.names.new_budget), module.keywords_should_stop, should_stop);
}

Ref questions_per_page(Module& module, Borrowed client) {
    return attr(attr(client, module.names.config), module.names.wiki_check_citations_per_page);
}

Ref parallel_calls(Module& module, Borrowed client) {
    const Ref configured = attr(attr(client, module.names.config), module.names.max_parallel_calls);
    return steal(PyNumber_Long(configured.get()));
}

Request citation_request(Module& module, Borrowed claim, Borrowed passage) {
    const Ref request = module.global(module.names.citation_request);
    auto [state, questions] = unpack<2>(call(request, attr(claim, module.names.claim), passage));
    return {std::move(state), std::move(questions)};
}

Ref decide(Module& module, Borrowed client, const Request& request, Borrowed budget) {
    const Ref decide = attr(client, module.names.decide);
    const Ref version = module.global(module.names.CITATION_QUESTION_VERSION);
    return call_with(decide, module.keywords_decide, request.state, request.questions, version, budget);
}

Ref citation_answer(Module& module, Borrowed result) {
    return call(module.global(module.names.citation_answer), result);
}

}  // namespace citation_check::host
