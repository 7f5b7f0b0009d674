#pragma once

#include <vector>

#include "python/class.h"
#include "python/generator.h"

// Claim extraction: the prose blocks of a page, and the cited claims in them.
namespace citation_check {

// `_SENTENCE_END_RE` and `_LIST_MARK_RE`
constexpr const char* sentence_end_pattern = R"((?<=[.!?\]])\s+(?=[A-Z`*_]))";
constexpr const char* list_mark_pattern = R"(^(?:[-*+]|\d+[.)])\s+)";

// Cuts a page's Markdown into its paragraphs and list items, a line of text each.
class ProseBlocks final : public py::Steps {
  public:
    ProseBlocks(py::Module& module, py::Borrowed markdown);

    py::Ref next() override;
    int visit(visitproc visit, void* argument) const override;

  private:
    py::Ref next_line();
    py::Ref cut_line();
    bool is_prose(py::Borrowed line, py::Borrowed stripped);
    bool begins_item(py::Borrowed stripped) const;
    void gather(py::Borrowed stripped);
    py::Ref complete_block();

    py::Module& module_;
    py::Ref markdown_;            // an exact str to its end; anything else until the first line is asked for
    Py_ssize_t line_ = 0;         // where the next line of an exact str begins; behind its end when there is none
    py::Ref lines_;               // the iterator over the lines of anything else
    std::vector<py::Ref> block_;  // the block's lines
    py::Ref left_over_;           // the line that completed the last block and belongs to the next
    bool in_fence_ = false;
};

// `CitedClaim`: one sentence of a page and one citation of lines that it carries.
py::Ref make_cited_claim_class(py::Module& module);

extern const py::FunctionRow prose_blocks_row;
extern const py::FunctionRow claim_text_row;
extern const py::FunctionRow cited_claims_row;

}  // namespace citation_check
