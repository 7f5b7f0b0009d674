#include "sources.h"

#include <optional>

#include "genuine.h"
#include "python/number.h"
#include "python/text.h"
#include "sources_read.h"

namespace citation_check {

using py::attr;
using py::Borrowed;
using py::call;
using py::call_method;
using py::Module;
using py::Ref;
using py::steal;

namespace {

// --- cited_lines ---------------------------------------------------------------------------------------------------

// The value of an exact integer that counts something.
std::optional<std::size_t> plain_count(Borrowed object) {
    const auto value = py::plain_integer(object);
    if (!value || *value < 0) return {};
    return static_cast<std::size_t>(*value);
}

// The lines without cutting the rest of the text: for plain values, of which nobody can tell; empty for others.
Ref cut_plainly(Module& module, Borrowed text, Borrowed start, Borrowed end, PassageCursor& cursor) {
    if (!py::text::is_exact(text)) return {};
    const auto first = plain_count(start);
    const auto stop = plain_count(end);
    if (!first || *first == 0 || !stop) return {};
    const auto limit = plain_count(module.global(module.names.PASSAGE_CHARS));
    if (!limit) return {};
    if (!cursor.text || !cursor.text.is(text) || cursor.start.line > *first - 1) cursor = {py::borrow(text), {}};
    return py::text::cut_lines(text, *first - 1, *stop, *limit, cursor.start);
}

Ref cut_lines(Module& module, Borrowed text, Borrowed start, Borrowed end, PassageCursor& cursor) {
    const auto& names = module.names;
    if (Ref cut = cut_plainly(module, text, start, end, cursor)) return cut;
    const Ref lines = call_method(text, names.splitlines);
    const Ref first = steal(PyNumber_Subtract(start.get(), module.one));
    const Ref range = steal(PySlice_New(first.get(), end.get(), nullptr));
    const Ref taken = steal(PyObject_GetItem(lines.get(), range.get()));
    const Ref joined = steal(PyUnicode_Join(names.line_feed, taken.get()));
    return py::prefix(joined, module.global(names.PASSAGE_CHARS));
}

Ref cited_lines(Module& module, Borrowed text, Borrowed start, Borrowed end) {
    PassageCursor cursor;
    return cut_lines(module, text, start, end, cursor);
}

constexpr py::Parameter cited_lines_parameters[] = {{"text", "str"}, {"start", "int"}, {"end", "int"}};

// --- CitedSources --------------------------------------------------------------------------------------------------

Ref init(Module& module, Borrowed self, Borrowed repo_root) {
    py::set_attr(self, module.names.root, call_method(repo_root, module.names.resolve));
    py::set_attr(self, module.names.texts, py::new_dict());
    return py::none();
}

constexpr py::Parameter init_parameters[] = {{"self"}, {"repo_root", "Path"}};
constexpr py::FunctionRow init_row = {
    "__init__", "CitedSources.__init__", init_parameters, "None", nullptr, py::native<init>,
};

Ref passage_from(Module& module, Borrowed self, Borrowed claim, PassageCursor& cursor) {
    const auto& names = module.names;
    const Ref path = attr(claim, names.path);
    const Ref known = attr(self, names.texts);
    if (!py::contains(known, path)) {
        const Ref read = attr(self, names.read);
        const Ref text = call(read, attr(claim, names.path));
        const Ref texts = attr(self, names.texts);
        py::check(PyObject_SetItem(texts.get(), attr(claim, names.path).get(), text.get()));
    }
    const Ref cut = module.global(names.cited_lines);
    const Ref texts = attr(self, names.texts);
    const Ref text = steal(PyObject_GetItem(texts.get(), attr(claim, names.path).get()));
    const Ref start = attr(claim, names.start);
    const Ref end = attr(claim, names.end);
    if (genuine::is_cited_lines(module, cut)) return cut_lines(module, text, start, end, cursor);
    return call(cut, text, start, end);
}

Ref passage(Module& module, Borrowed self, Borrowed claim) {
    PassageCursor cursor;
    return passage_from(module, self, claim, cursor);
}

constexpr py::Parameter passage_parameters[] = {{"self"}, {"claim", "CitedClaim"}};
constexpr py::FunctionRow passage_row = {
    "passage", "CitedSources.passage", passage_parameters, "str", nullptr, py::native<passage>,
};

Ref read(Module& module, Borrowed self, Borrowed path) {
    const auto& names = module.names;
    const Ref root = attr(self, names.root);
    if (Ref text = read_natively(module, root, path)) return text;
    const Ref joined = steal(PyNumber_TrueDivide(root.get(), path.get()));
    const Ref target = call_method(joined, names.resolve);
    const Ref is_relative_to = attr(target, names.is_relative_to);
    const Ref known_root = attr(self, names.root);
    if (!py::truth(call(is_relative_to, known_root))) return py::borrow(names.empty);
    return read_target(module, target, known_root);
}

constexpr py::Parameter read_parameters[] = {{"self"}, {"path", "str"}};
constexpr py::FunctionRow read_row = {
    "_read", "CitedSources._read", read_parameters, "str", nullptr, py::native<read>,
};

}  // namespace

const py::FunctionRow cited_lines_row = {
    "cited_lines",
    "cited_lines",
    cited_lines_parameters,
    "str",
    "Lines ``start``-``end`` (1-based) of a file's text, cut at the passage limit.",
    py::native<cited_lines>,
};

Ref passage_of(Module& module, Borrowed sources, Borrowed claim, PassageCursor& cursor) {
    const Ref method = attr(sources, module.names.passage);
    if (PyMethod_Check(method.get()) && genuine::is_passage(module, PyMethod_GET_FUNCTION(method.get()))) {
        return passage_from(module, PyMethod_GET_SELF(method.get()), claim, cursor);
    }
    return call(method, claim);
}

Ref make_cited_sources_class(Module& module) {
    const py::ClassBody body(
        module, "CitedSources",
        "The stored files a page cites, read once each; none outside the repository (the cited\n"
        "    lines the citation check shows the model, and the evaluation kit's dataset freezes).");
    body.define(init_row);
    body.define(passage_row);
    body.define(read_row);
    return body.make();
}

}  // namespace citation_check
