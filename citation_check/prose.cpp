#include <optional>

#include "extract.h"
#include "host.h"
#include "originals.h"
#include "python/number.h"
#include "python/text.h"
#include "scan.h"

namespace citation_check {

using py::Borrowed;
using py::call_method;
using py::Ref;
using py::steal;

namespace {

// What a scan carries from one block to the next.
enum ScanItem : Py_ssize_t {
    source,         // the rest of the page: a plain text, or an iterator over lines; None at the end
    last_line,      // where it ends in a plain text, and the next begins; of another page the line itself
    block_lines,    // the list of the current block's lines
    stripped_line,  // the last line, stripped
    in_fence,       // None: no, and the last line completed a block and belongs to the next
    scan_mark,      // the module's own object, which tells a scan from any other list
    scan_items
};

// A scan is found in the variables of a generator, and by the collector, so anybody may have changed it.
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

// `for line in page.split("\n")`, as far as a scan has come. The lines of a plain text are cut one at a time.
class Lines {
  public:
    explicit Lines(Borrowed scan) : source_(item(scan, source)) {
        is_plain_ = py::text::is_plain(source_);
        if (is_plain_) {
            place_ = static_cast<std::size_t>(py::plain_integer(item(scan, last_line)).value_or(-1));
        } else {
            line_ = take_item(scan, last_line);
            if (PyIter_Check(source_.get()) == 0) source_ = Ref();
        }
    }

    bool next() {
        if (is_plain_) return next_of_text();
        Ref found = source_ ? py::next(source_) : Ref();
        if (!found) return false;
        line_ = std::move(found);
        return true;
    }

    Borrowed line() const { return line_; }
    bool is_plain() const { return is_plain_; }

    void save(Borrowed scan) {
        Ref last = is_plain_ ? py::integer(static_cast<Py_ssize_t>(place_)) : std::move(line_);
        set_item(scan, last_line, std::move(last));
    }

  private:
    bool next_of_text() {
        const std::size_t size = py::text::size(source_);
        if (place_ > size) return false;
        const auto begin = static_cast<Py_ssize_t>(std::exchange(place_, size + 1));
        const Py_ssize_t feed = PyUnicode_FindChar(source_.get(), '\n', begin, static_cast<Py_ssize_t>(size), 1);
        const std::size_t end = feed < 0 ? size : static_cast<std::size_t>(feed);
        if (feed >= 0) place_ = end + 1;
        line_ = py::text::slice(source_, static_cast<std::size_t>(begin), end);
        return true;
    }

    Ref source_;
    Ref line_;
    bool is_plain_ = false;
    std::size_t place_ = 0;
};

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
    if (find_list_mark(state, line)) return line.text_begin != 0;
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

// `stripped.startswith(("#", "|", ">"))`, for a text that is not empty
bool is_heading_table_or_quote(State& state, Borrowed stripped) {
    const auto& names = state.names;
    if (!py::text::is_plain(stripped)) {
        const Ref starts = py::tuple_of(names.hash_sign, names.bar, names.greater);
        return py::truth(call_method(stripped, names.startswith, starts));
    }
    const Py_UCS4 first = PyUnicode_READ_CHAR(stripped.get(), 0);
    return first == '#' || first == '|' || first == '>';
}

}  // namespace

Ref begin_scan(State& state, Borrowed markdown) {
    if (is_scan(state, markdown)) return py::borrow(markdown);
    Ref rest = py::borrow(markdown);
    if (!py::text::is_plain(markdown)) {
        const Ref lines = call_method(markdown, state.names.split, state.names.line_feed);
        rest = steal(py::api(PyObject_GetIter, lines.get()));
    }
    const Ref place = py::integer(0);
    return py::list_of(rest, place, py::new_list(), Py_None, Py_False, state.scan_mark);
}

Ref next_block(State& state, Borrowed scan) {
    require_scan(is_scan(state, scan));
    const Ref block = py::new_list();
    set_item(scan, block_lines, py::borrow(block));
    Lines lines(scan);
    // The stripped line of a plain text has no end that could be seen.
    Line line = {lines.is_plain() ? item(scan, stripped_line) : take_item(scan, stripped_line), {}};
    const Ref fenced = item(scan, in_fence);
    if (fenced.is_none()) py::append(block, without_list_mark(state, line));
    bool inside = py::truth(fenced);
    py::PeriodicYield periodic_yield;
    while (lines.next()) {
        periodic_yield.step();
        line = {py::text::strip(lines.line(), state.names.strip), {}};
        const bool fence = host::is_fence(state, lines.line());
        if (fence) inside = !inside;
        const bool prose =
            !fence && !inside && py::truth(line.stripped) && !is_heading_table_or_quote(state, line.stripped);
        if (PyList_GET_SIZE(block.get()) != 0 && (!prose || is_list_item(state, line))) {
            lines.save(scan);
            set_item(scan, stripped_line, std::move(line.stripped));
            set_item(scan, in_fence, py::borrow(prose ? Py_None : inside ? Py_True : Py_False));
            return steal(py::api(PyUnicode_Join, state.names.space.get(), block.get()));
        }
        if (prose) py::append(block, without_list_mark(state, line));
    }
    set_item(scan, source, py::none());
    lines.save(scan);
    set_item(scan, stripped_line, std::move(line.stripped));
    set_item(scan, in_fence, py::borrow(Py_False));
    if (PyList_GET_SIZE(block.get()) == 0) return py::none();
    return steal(py::api(PyUnicode_Join, state.names.space.get(), block.get()));
}

}  // namespace citation_check
