#include "extract.h"
#include "extract_scan.h"
#include "genuine.h"
#include "host.h"

namespace citation_check {

using py::Borrowed;
using py::call_method;
using py::Module;
using py::Ref;
using py::steal;
using py::truth;
namespace text = py::text;

ProseBlocks::ProseBlocks(Module& module, Borrowed markdown) : module_(module), markdown_(py::borrow(markdown)) {}

Ref ProseBlocks::next() {
    if (left_over_) gather(std::exchange(left_over_, Ref()));
    while (Ref line = next_line()) {
        Ref stripped = text::is_exact(line) ? text::strip(line) : call_method(line, module_.names.strip);
        const bool prose = is_prose(line, stripped);
        Ref complete;
        if (!block_.empty() && (!prose || begins_item(stripped))) complete = complete_block();
        if (complete) {
            if (prose) left_over_ = std::move(stripped);
            return complete;
        }
        if (prose) gather(stripped);
    }
    return block_.empty() ? Ref() : complete_block();
}

// The next of what `split("\n")` gives; the list that it would make of an exact str is seen by nobody.
Ref ProseBlocks::cut_line() {
    const Py_ssize_t size = PyUnicode_GET_LENGTH(markdown_.get());
    if (line_ > size) return {};
    const Py_ssize_t feed = PyUnicode_FindChar(markdown_.get(), '\n', line_, size, 1);
    const Py_ssize_t end = feed < 0 ? size : feed;
    Ref line = steal(PyUnicode_Substring(markdown_.get(), line_, end));
    line_ = end + 1;
    return line;
}

Ref ProseBlocks::next_line() {
    if (markdown_ && text::is_exact(markdown_)) return cut_line();
    if (!lines_) {
        const Ref lines = call_method(markdown_, module_.names.split, module_.names.line_feed);
        lines_ = steal(PyObject_GetIter(lines.get()));
        markdown_ = Ref();
    }
    Ref line = py::take(PyIter_Next(lines_.get()));
    if (!line && PyErr_Occurred()) throw py::Error{};
    return line;
}

bool ProseBlocks::is_prose(Borrowed line, Borrowed stripped) {
    const bool fence = host::is_fence(module_, line);
    if (fence) in_fence_ = !in_fence_;
    if (fence || in_fence_ || !truth(stripped)) return false;
    if (text::is_exact(stripped)) return !scan::is_left_out(stripped);
    return !truth(call_method(stripped, module_.names.startswith, module_.left_out_starts));
}

bool ProseBlocks::begins_item(Borrowed stripped) const {
    const Ref list_mark = module_.global(module_.names.LIST_MARK_RE);
    if (genuine::is_list_mark(module_, list_mark) && text::is_exact(stripped)) {
        return scan::list_mark_end(stripped) != 0;
    }
    return truth(call_method(list_mark, module_.names.match, stripped));
}

void ProseBlocks::gather(Borrowed stripped) {
    const auto& names = module_.names;
    const Ref list_mark = module_.global(names.LIST_MARK_RE);
    if (genuine::is_list_mark(module_, list_mark) && text::is_exact(stripped)) {
        const auto size = static_cast<std::size_t>(PyUnicode_GET_LENGTH(stripped.get()));
        block_.push_back(text::slice(stripped, scan::list_mark_end(stripped), size));
    } else {
        block_.push_back(call_method(list_mark, names.sub, names.empty, stripped));
    }
}

Ref ProseBlocks::complete_block() {
    const bool one_line = block_.size() == 1 && text::is_exact(block_[0]);
    Ref block =
        one_line ? std::move(block_[0]) : steal(PyUnicode_Join(module_.names.space, py::list_of_each(block_).get()));
    block_.clear();
    return block;
}

int ProseBlocks::visit(visitproc visit, void* arg) const {
    Py_VISIT(markdown_.get());
    Py_VISIT(lines_.get());
    for (const Ref& line : block_) Py_VISIT(line.get());
    Py_VISIT(left_over_.get());
    return 0;
}

namespace {

Ref prose_blocks(Module& module, Borrowed markdown) {
    return py::make_generator(module, prose_blocks_row, std::make_unique<ProseBlocks>(module, markdown));
}

constexpr py::Parameter prose_blocks_parameters[] = {{"markdown", "str"}};

}  // namespace

const py::FunctionRow prose_blocks_row = {
    "_prose_blocks",
    "_prose_blocks",
    prose_blocks_parameters,
    "Iterator[str]",
    "The paragraphs and list items of a page, each on one line: fenced code, headings, tables\n"
    "    and quotes are left out, and a wrapped line joins the block it continues.",
    py::native<prose_blocks>,
    CO_GENERATOR,
};

}  // namespace citation_check
