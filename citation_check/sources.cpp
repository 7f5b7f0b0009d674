#include "sources.h"

#include <optional>

#include "python/number.h"
#include "python/text.h"
#include "reading.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::call_method;
using py::Ref;
using py::steal;

namespace {

// The value of an exact integer that counts something.
std::optional<std::size_t> plain_count(Borrowed object) {
    const auto value = py::plain_integer(object);
    if (!value || *value < 0) return {};
    return static_cast<std::size_t>(*value);
}

// `cited_lines(text, start, end)` for plain values, without cutting the rest of the text into lines; empty for others.
Ref cut_plain_lines(State& state, Borrowed text, Borrowed start, Borrowed end) {
    const auto first = plain_count(start);
    const auto stop = plain_count(end);
    if (!py::text::is_plain(text) || !first || *first == 0 || !stop) return {};
    const Ref limit_now = state.find_global(state.names.PASSAGE_CHARS);
    const auto limit = limit_now ? plain_count(limit_now) : std::nullopt;
    return limit ? py::text::cut_lines(text, *first - 1, *stop, *limit) : Ref();
}

}  // namespace

Ref cited_lines(State& state, Borrowed text, Borrowed start, Borrowed end) {
    const auto& names = state.names;
    if (Ref lines = cut_plain_lines(state, text, start, end)) return lines;
    const Ref lines = call_method(text, names.splitlines);
    const Ref from = steal(py::api(PyNumber_Subtract, start.get(), py::integer(1).get()));
    const Ref range = steal(py::api(PySlice_New, from.get(), end.get(), nullptr));
    const Ref taken = py::item(lines, range);
    const Ref joined = steal(py::api(PyUnicode_Join, names.line_feed.get(), taken.get()));
    return py::prefix(joined, state.global(names.PASSAGE_CHARS));
}

Ref init_sources(State& state, Borrowed self, Borrowed repo_root) {
    py::set_attr(self, state.names.root, call_method(repo_root, state.names.resolve));
    py::set_attr(self, state.names.texts, py::new_dict());
    return py::none();
}

Ref passage(State& state, Borrowed self, Borrowed claim) {
    const auto& names = state.names;
    const Ref wanted = attr(claim, names.path);
    const Ref known = attr(self, names.texts);
    if (!py::contains(known, wanted)) {
        const Ref read = attr(self, names.read);
        const Ref text = call(read, attr(claim, names.path));
        const Ref texts = attr(self, names.texts);
        const Ref path = attr(claim, names.path);
        py::check(py::api(PyObject_SetItem, texts.get(), path.get(), text.get()));
    }
    const Ref function = state.global(names.cited_lines);
    const Ref texts = attr(self, names.texts);
    const Ref path = attr(claim, names.path);
    const Ref text = py::item(texts, path);
    const Ref start = attr(claim, names.start);
    const Ref end = attr(claim, names.end);
    if (state.kept(Kept::cited_lines).is_untraced(function)) {
        if (Ref lines = cut_plain_lines(state, text, start, end)) return lines;
    }
    return call(function, text, start, end);
}

Ref read(State& state, Borrowed self, Borrowed path) {
    const auto& names = state.names;
    const Ref root = attr(self, names.root);
    Ref known_root;
    if (const auto file = locate_in_one_step(state, root, path)) {
        known_root = attr(self, names.root);
        // Reading the root once more may have run Python code.
        Ref text = known_root.is(root) ? read_file(state, *file, root) : Ref();
        if (text) return text;
    }
    const Ref joined = steal(py::api(PyNumber_TrueDivide, root.get(), path.get()));
    const Ref target = call_method(joined, names.resolve);
    const Ref is_relative_to = attr(target, names.is_relative_to);
    if (!known_root) known_root = attr(self, names.root);
    if (!py::truth(call(is_relative_to, known_root))) return py::borrow(names.empty);
    return read_target(state, target, known_root);
}

}  // namespace citation_check
