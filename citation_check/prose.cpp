#include "prose.h"

#include <optional>

#include "host.h"
#include "python/number.h"
#include "python/text.h"
#include "scan.h"

namespace citation_check {

using py::Borrowed;
using py::call_method;
using py::Ref;
using py::steal;

namespace {

// The items of a scan that is a list.
enum ScanItem : Py_ssize_t {
    source,         // the page: a plain text, or an iterator over lines; None at the end
    last_line,      // of a plain text the place of the next line; of another page the line itself
    block_lines,    // the list of the current block's lines
    stripped_line,  // the last line, stripped
    in_fence,       // None: no, and the last line completed a block and belongs to the next
    scan_mark,      // the module's own object, which tells a scan from any other list
    scan_items
};

// The list is found in the variables of a generator, and by the collector, so anybody may have changed it.
void require_scan(bool is_scan) {
    if (!is_scan) py::raise(PyExc_TypeError, "not the scan of a page");
}

Ref item(Borrowed scan, ScanItem place) {
    require_scan(PyList_CheckExact(scan.get()) && place < PyList_GET_SIZE(scan.get()));
    return py::borrow(PyList_GET_ITEM(scan.get(), place));
}

void set_item(Borrowed scan, ScanItem place, Ref value) {
    require_scan(PyList_CheckExact(scan.get()) && place < PyList_GET_SIZE(scan.get()));
    py::check(py::api(PyList_SetItem, scan.get(), place, value.relinquish()));
}

Ref take_item(Borrowed scan, ScanItem place) {
    Ref value = item(scan, place);
    set_item(scan, place, py::none());
    return value;
}

// Whether an object is a scan of this module's.
bool is_scan(State& state, Borrowed object) {
    return PyList_CheckExact(object.get()) && PyList_GET_SIZE(object.get()) == scan_items &&
           state.scan_mark.is(PyList_GET_ITEM(object.get(), scan_mark));
}

// Takes the scan out of its list, so that an error on the way releases its lines.
Scan load(Borrowed list) {
    Ref page = take_item(list, source);
    Ref line = take_item(list, last_line);
    Ref stripped = take_item(list, stripped_line);
    const Ref fenced = item(list, in_fence);
    const bool is_pending = fenced.is_none();
    const bool is_fenced = py::truth(fenced);
    if (py::text::is_plain(page)) {
        const auto place = static_cast<std::size_t>(py::plain_integer(line).value_or(-1));
        return {Lines(std::move(page), place), std::move(stripped), is_pending, is_fenced};
    }
    if (PyIter_Check(page.get()) == 0) page = Ref();
    return {Lines(std::move(page), std::move(line)), std::move(stripped), is_pending, is_fenced};
}

// Puts the scan into its list, where the collector sees what it holds.
void store(Borrowed list, Scan scan) {
    set_item(list, last_line, scan.lines.take_last());
    set_item(list, source, scan.lines.take_source());
    set_item(list, stripped_line, scan.stripped ? std::move(scan.stripped) : py::none());
    set_item(list, in_fence, py::borrow(scan.is_pending ? Py_None : scan.in_fence ? Py_True : Py_False));
}

// A stripped line, and where its text begins after its list mark: set once C++ has done the work of `_LIST_MARK_RE`,
// and valid until Python code runs.
struct Line {
    Ref stripped;
    std::optional<std::size_t> text_begin;
};

// Whether C++ can do the work of `_LIST_MARK_RE` on this line; if so, finds the list mark.
bool find_list_mark(State& state, Line& line) {
    const bool original = state.has_original(state.names.LIST_MARK_RE, Kept::list_mark);
    if (!original || !py::text::is_plain(line.stripped)) return false;
    line.text_begin = scan::list_mark_end(line.stripped);
    return true;
}

// `_LIST_MARK_RE.match(stripped)`, its truth
bool is_list_item(State& state, Line& line) {
    const auto& names = state.names;
    if (find_list_mark(state, line)) return *line.text_begin != 0;
    return py::truth(call_method(state.global(names.LIST_MARK_RE), names.match, line.stripped));
}

// `_LIST_MARK_RE.sub("", stripped)`
Ref without_list_mark(State& state, Line& line) {
    const auto& names = state.names;
    if (line.text_begin || find_list_mark(state, line)) {
        return py::text::slice(line.stripped, *line.text_begin, py::text::size(line.stripped));
    }
    return call_method(state.global(names.LIST_MARK_RE), names.sub, names.empty, line.stripped);
}

// `stripped and not stripped.startswith(("#", "|", ">"))`
bool may_be_prose(State& state, Borrowed stripped) {
    const auto& names = state.names;
    if (!py::text::is_plain(stripped)) {
        if (!py::truth(stripped)) return false;
        const Ref starts = py::tuple_of(names.hash_sign, names.bar, names.greater);
        return !py::truth(call_method(stripped, names.startswith, starts));
    }
    if (py::text::size(stripped) == 0) return false;
    const Py_UCS4 first = PyUnicode_READ_CHAR(stripped.get(), 0);
    return first != '#' && first != '|' && first != '>';
}

// `" ".join(block)`
Ref join_lines(State& state, Borrowed block) {
    return steal(py::api(PyUnicode_Join, state.names.space.get(), block.get()));
}

}  // namespace

bool Lines::next() {
    if (!source_) return false;
    if (is_text_) return next_of_text();
    Ref found = py::next(source_);
    if (!found) return false;
    line_ = std::move(found);
    return true;
}

bool Lines::next_of_text() {
    const std::size_t size = py::text::size(source_);
    if (place_ > size) return false;
    const auto begin = static_cast<Py_ssize_t>(std::exchange(place_, size + 1));
    const Py_ssize_t feed = PyUnicode_FindChar(source_.get(), '\n', begin, static_cast<Py_ssize_t>(size), 1);
    const std::size_t end = feed < 0 ? size : static_cast<std::size_t>(feed);
    if (feed >= 0) place_ = end + 1;
    line_ = py::text::slice(source_, static_cast<std::size_t>(begin), end);
    return true;
}

Ref cut_block(State& state, Scan& scan, Borrowed block) {
    Line line = {std::move(scan.stripped), {}};
    if (scan.is_pending) py::append(block, without_list_mark(state, line));
    scan.is_pending = false;
    py::PeriodicYield periodic_yield;
    while (scan.lines.next()) {
        periodic_yield.step();
        line = {py::text::strip(scan.lines.line(), state.names.strip), {}};
        const bool fence = host::is_fence(state, scan.lines.line());
        if (fence) scan.in_fence = !scan.in_fence;
        const bool prose = !fence && !scan.in_fence && may_be_prose(state, line.stripped);
        if (PyList_GET_SIZE(block.get()) != 0 && (!prose || is_list_item(state, line))) {
            scan.is_pending = prose;
            scan.stripped = std::move(line.stripped);
            return join_lines(state, block);
        }
        if (prose) py::append(block, without_list_mark(state, line));
    }
    scan.lines.finish();
    scan.stripped = std::move(line.stripped);
    return PyList_GET_SIZE(block.get()) == 0 ? py::none() : join_lines(state, block);
}

Ref to_list(State& state, Scan scan) {
    Ref list = py::list_of(Py_None, Py_None, py::new_list(), Py_None, Py_False, state.scan_mark);
    store(list, std::move(scan));
    return list;
}

Ref begin_scan(State& state, Borrowed markdown) {
    if (is_scan(state, markdown)) return py::borrow(markdown);
    if (py::text::is_plain(markdown)) return to_list(state, Scan{Lines(py::borrow(markdown), 0)});
    const Ref lines = call_method(markdown, state.names.split, state.names.line_feed);
    return to_list(state, Scan{Lines(steal(py::api(PyObject_GetIter, lines.get())), py::none())});
}

Ref next_block(State& state, Borrowed list) {
    require_scan(is_scan(state, list));
    const Ref block = py::new_list();
    set_item(list, block_lines, py::borrow(block));
    Scan scan = load(list);
    Ref text = cut_block(state, scan, block);
    store(list, std::move(scan));
    return text;
}

}  // namespace citation_check
