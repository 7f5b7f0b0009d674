#include "extract.h"

#include <optional>

#include "claim_list.h"
#include "extract_scan.h"
#include "genuine.h"
#include "host.h"
#include "python/number.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::call_method;
using py::compare;
using py::format;
using py::Module;
using py::Ref;
using py::steal;

namespace {

// --- CitedClaim.ref ------------------------------------------------------------------------------------------------

Ref ref(Module& module, Borrowed self) {
    const auto& names = module.names;
    const Ref start = attr(self, names.start);
    const bool one_line = compare(start, attr(self, names.end), Py_EQ);
    const Ref first = format(attr(self, names.start));
    const Ref last = one_line ? Ref{} : format(attr(self, names.end));
    const Ref path = format(attr(self, names.path));
    if (one_line) return py::join(names.empty, names.bracket, path, names.first_line, first, names.closing_bracket);
    return py::join(names.empty, names.bracket, path, names.first_line, first, names.last_line, last,
                    names.closing_bracket);
}

constexpr py::Parameter self_only[] = {{"self"}};
constexpr py::FunctionRow ref_row = {
    "ref", "CitedClaim.ref", self_only, "str", "The citation as a page writes it.", py::native<ref>,
};

// --- _claim_text ---------------------------------------------------------------------------------------------------

Ref claim_text(Module& module, Borrowed sentence) {
    const auto& names = module.names;
    Ref text = host::without_citations(module, sentence);
    const Ref re = module.global(names.re);
    if (genuine::is_re(module, re) && py::text::is_exact(text)) return scan::tidy(text, {});
    text = call_method(re, names.sub, names.space_before_mark, names.first_group, text);
    text = call_method(module.global(names.re), names.sub, names.space_run, names.space, text);
    return call_method(text, names.strip);
}

constexpr py::Parameter claim_text_parameters[] = {{"sentence", "str"}};

// --- cited_claims --------------------------------------------------------------------------------------------------

// The blocks of a page: straight from the scan while `_prose_blocks` is the module's own, else whatever it gives.
class Blocks {
  public:
    Blocks(Module& module, Borrowed markdown) {
        const Ref prose_blocks = module.global(module.names.prose_blocks);
        if (genuine::is_prose_blocks(module, prose_blocks)) {
            scan_.emplace(module, markdown);
        } else {
            given_.emplace(call(prose_blocks, markdown));
        }
    }

    Ref next() { return scan_ ? py::advance(*scan_) : given_->next(); }

  private:
    std::optional<ProseBlocks> scan_;
    std::optional<py::Iteration> given_;
};

// The sentences of a block: cut here while `_SENTENCE_END_RE` is the module's own, else whatever its `split` gives.
class Sentences {
  public:
    Sentences(Module& module, Borrowed block) {
        const Ref sentence_end = module.global(module.names.SENTENCE_END_RE);
        if (genuine::is_sentence_end(module, sentence_end) && py::text::is_exact(block)) {
            block_ = py::borrow(block);
        } else {
            given_.emplace(call_method(sentence_end, module.names.split, block));
        }
    }

    Ref next() { return given_ ? given_->next() : cut(); }

  private:
    Ref cut() {
        if (!block_) return {};
        const auto size = static_cast<std::size_t>(PyUnicode_GET_LENGTH(block_.get()));
        const scan::Span gap = scan::sentence_gap(block_, from_);
        Ref sentence = py::text::slice(block_, from_, gap.begin);
        from_ = gap.end;
        if (gap.begin == size) block_ = Ref();
        return sentence;
    }

    Ref block_;  // empty once the last sentence is cut
    std::size_t from_ = 0;
    std::optional<py::Iteration> given_;
};

// `length < limit`
bool is_below(Py_ssize_t length, Borrowed limit) {
    const auto plain = py::plain_integer(limit);
    return plain ? length < *plain : compare(py::integer(length), limit, Py_LT);
}

// `match.span()`
scan::Span span_of(const Module& module, Borrowed match) {
    const auto [begin, end] = py::unpack<2>(call(module.match_span, match));
    return {static_cast<std::size_t>(PyLong_AsSsize_t(begin.get())),
            static_cast<std::size_t>(PyLong_AsSsize_t(end.get()))};
}

// The extraction of one page: its claims so far, and room that is used again for each sentence.
class Extraction {
  public:
    explicit Extraction(Module& module) : module_(module), claims_(module) {}

    void add(Borrowed sentence) {
        const auto& names = module_.names;
        host::find_citations(module_, sentence, citations_);
        const Ref claim = citations_.matches.empty() ? py::borrow(names.empty) : claim_of(sentence);
        const Py_ssize_t length = py::length(claim);
        if (is_below(length, module_.global(names.CLAIM_MIN_CHARS))) return;
        for (const Ref& match : citations_.matches) {
            const auto [path, start, end] = host::citation_key(module_, match);
            const Ref cited_claim = module_.global(names.CitedClaim);
            claims_.add(cited_claim, claim, host::normal_path(module_, path), start, end);
        }
    }

    Ref release() { return claims_.release(); }

  private:
    // `_claim_text(sentence)`. With a standard pattern the citations found are those that `sub` would find again.
    Ref claim_of(Borrowed sentence) {
        const auto& names = module_.names;
        const Ref text = module_.global(names.claim_text);
        if (!genuine::is_claim_text(module_, text)) return call(text, sentence);
        const bool standard = citations_.standard && module_.global(names.CITATION_RE).is(citations_.pattern) &&
                              genuine::is_re(module_, module_.global(names.re));
        if (!standard) return claim_text(module_, sentence);
        spans_.clear();
        for (const Ref& match : citations_.matches) spans_.push_back(span_of(module_, match));
        return scan::tidy(sentence, spans_);
    }

    Module& module_;
    ClaimList claims_;
    host::Citations citations_;
    std::vector<scan::Span> spans_;
};

Ref cited_claims(Module& module, Borrowed markdown) {
    Extraction extraction(module);
    Blocks blocks(module, markdown);
    while (const Ref block = blocks.next()) {
        Sentences sentences(module, block);
        while (const Ref sentence = sentences.next()) extraction.add(sentence);
    }
    return extraction.release();
}

constexpr py::Parameter cited_claims_parameters[] = {{"markdown", "str"}};

}  // namespace

const py::FunctionRow claim_text_row = {
    "_claim_text", "_claim_text", claim_text_parameters, "str", nullptr, py::native<claim_text>,
};

const py::FunctionRow cited_claims_row = {
    "cited_claims",
    "cited_claims",
    cited_claims_parameters,
    "list[CitedClaim]",
    "Every sentence of a page's prose that carries a citation of lines, one record per\n"
    "    citation, in page order. Sentences without a citation, file-level citations (``L0``) and\n"
    "    citations in code, tables and headings are not claims to check.",
    py::native<cited_claims>,
};

Ref make_cited_claim_class(Module& module) {
    const auto& names = module.names;
    const Ref frozen = py::call_with(module.global(names.dataclass), module.keywords_frozen, Py_True);
    const py::ClassBody body(module, "CitedClaim",
                             "One sentence of a page and one citation it carries.\n"
                             "\n"
                             "    Attributes:\n"
                             "        claim: The sentence without its citations.\n"
                             "        path: The cited file, repository-relative.\n"
                             "        start: The first cited line (1-based).\n"
                             "        end: The last cited line.\n"
                             "    ",
                             py::ClassBody::Annotated::yes);
    body.annotate("claim", "str");
    body.annotate("path", "str");
    body.annotate("start", "int");
    body.annotate("end", "int");
    body.define(ref_row, PyProperty_Type);
    return call(frozen, body.make());
}

}  // namespace citation_check
