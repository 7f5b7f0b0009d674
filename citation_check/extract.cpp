#include "extract.h"

#include "blocks.h"
#include "claim_list.h"
#include "host.h"
#include "python/number.h"
#include "python/text.h"
#include "scan.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::call_method;
using py::format;
using py::Ref;

Ref ref(State& state, Borrowed self) {
    const auto& names = state.names;
    const Ref start = attr(self, names.start);
    const Ref end = attr(self, names.end);
    const bool one_line = py::compare(start, end, Py_EQ);
    const Ref first = format(attr(self, names.start));
    const Ref last = one_line ? Ref{} : format(attr(self, names.end));
    const Ref path = format(attr(self, names.path));
    if (one_line) return py::join(names.empty, names.bracket, path, names.first_line, first, names.closing_bracket);
    return py::join(names.empty, names.bracket, path, names.first_line, first, names.last_line, last,
                    names.closing_bracket);
}

Ref claim_text(State& state, Borrowed sentence) {
    const auto& names = state.names;
    Ref text = host::without_citations(state, sentence);
    const bool original = state.has_original(names.re, Kept::re) && !py::interpreter::is_traced();
    if (original && py::text::is_plain(text)) return scan::tidy(text, {});
    text = call_method(state.global(names.re), names.sub, names.space_before_mark, names.first_group, text);
    text = call_method(state.global(names.re), names.sub, names.space_run, names.space, text);
    return call_method(text, names.strip);
}

namespace {

// `for sentence in _SENTENCE_END_RE.split(block): body()`; `sentence` keeps the last one, as the loop's variable does.
template <class Body>
void for_each_sentence(State& state, Borrowed block, Ref& sentence, Body body) {
    const auto& names = state.names;
    if (!state.has_original(names.SENTENCE_END_RE, Kept::sentence_end) || !py::text::is_plain(block)) {
        py::Iteration sentences(call_method(state.global(names.SENTENCE_END_RE), names.split, block));
        while (sentences.next(sentence)) body();
        return;
    }
    const std::size_t size = py::text::size(block);
    std::size_t from = 0;
    while (true) {
        const scan::Span gap = scan::sentence_gap(block, from);
        sentence = py::text::slice(block, from, gap.begin);
        body();
        if (gap.begin == size) return;
        from = gap.end;
    }
}

// `len(claim) < _CLAIM_MIN_CHARS`
bool is_too_short(State& state, Borrowed claim) {
    const Py_ssize_t length = py::length(claim);
    const Ref least = state.global(state.names.CLAIM_MIN_CHARS);
    const auto plain = py::plain_integer(least);
    return plain ? length < *plain : py::compare(py::integer(length), least, Py_LT);
}

// The extraction of one page: its claims so far, and room that is used again for each sentence.
class Extraction {
  public:
    explicit Extraction(State& state) : state_(state), claims_(state) {}

    // Adds a claim for each citation of a sentence that is long enough.
    void add(Borrowed sentence) {
        periodic_yield_.step();
        host::find_citations(state_, sentence, citations_);
        claim_ = citations_.matches.empty() ? py::borrow(state_.names.empty) : claim_text_of(sentence);
        if (is_too_short(state_, claim_)) return;
        for (const Ref& match : citations_.matches) {
            match_ = py::borrow(match);
            key_ = host::citation_key(state_, match);
            const auto& [path, start, end] = key_;
            Ref type = state_.global(state_.names.CitedClaim);
            Ref normal = host::normal_path(state_, path);
            claims_.add(std::move(type), claim_, std::move(normal), start, end);
        }
    }

    Ref release() { return claims_.release(); }

  private:
    // `_claim_text(sentence)`. A standard pattern's `sub` would only find the same citations again.
    Ref claim_text_of(Borrowed sentence) {
        const auto& names = state_.names;
        const bool original = citations_.standard && state_.has_original(names.claim_text, Kept::claim_text) &&
                              state_.has_original(names.re, Kept::re) && !py::interpreter::is_traced();
        return original ? scan::tidy(sentence, citations_.spans) : call(state_.global(names.claim_text), sentence);
    }

    State& state_;
    ClaimList claims_;
    // The variables of the extraction, which live from one sentence to the next.
    Ref match_;
    std::array<Ref, 3> key_;
    Ref claim_;
    host::Citations citations_;
    py::PeriodicYield periodic_yield_;
};

}  // namespace

Ref cited_claims(State& state, Borrowed markdown) {
    Extraction extraction(state);
    Blocks blocks(state, markdown);
    Ref sentence;
    for (Ref block; blocks.next(block);) {
        for_each_sentence(state, block, sentence, [&] { extraction.add(sentence); });
    }
    return extraction.release();
}

}  // namespace citation_check
