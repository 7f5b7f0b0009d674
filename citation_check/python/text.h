#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "object.h"

// The work on text that the interpreter's own methods do, for exact `str` objects. No Python code runs here.
namespace py::text {

inline bool is_exact(Borrowed object) { return PyUnicode_CheckExact(object.get()); }

// `str.isspace()` of the first 256 characters.
constexpr std::array<bool, 256> latin_spaces = [] {
    std::array<bool, 256> table{};
    for (const int space : {0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x1c, 0x1d, 0x1e, 0x1f, 0x20, 0x85, 0xa0}) {
        table[static_cast<std::size_t>(space)] = true;
    }
    return table;
}();

// `str.isspace()` of one character, which is also what `\s` matches.
inline bool is_space(Py_UCS4 character) {
    return character < latin_spaces.size() ? latin_spaces[character] : Py_UNICODE_ISSPACE(character) != 0;
}

// Calls `visitor` with the characters of `text` as a span of the width in which they are stored.
template <class Visitor>
decltype(auto) visit(Borrowed text, Visitor visitor) {
    check(PyUnicode_READY(text.get()));
    const auto length = static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.get()));
    const void* const data = PyUnicode_DATA(text.get());
    switch (PyUnicode_KIND(text.get())) {
        case PyUnicode_1BYTE_KIND: return visitor(std::span(static_cast<const Py_UCS1*>(data), length));
        case PyUnicode_2BYTE_KIND: return visitor(std::span(static_cast<const Py_UCS2*>(data), length));
        default: return visitor(std::span(static_cast<const Py_UCS4*>(data), length));
    }
}

// A new text of these characters, stored as narrow as they allow.
template <class Character>
Ref make(std::span<const Character> characters) {
    return steal(
        PyUnicode_FromKindAndData(sizeof(Character), characters.data(), static_cast<Py_ssize_t>(characters.size())));
}

// `text[from:to]` within its bounds; the very object when that is all of it.
inline Ref slice(Borrowed text, std::size_t from, std::size_t to) {
    return steal(PyUnicode_Substring(text.get(), static_cast<Py_ssize_t>(from), static_cast<Py_ssize_t>(to)));
}

// `text.strip()`
Ref strip(Borrowed text);

// Whether `text.strip()` is empty.
bool is_blank(Borrowed text);

// The beginning of a line of a text: a place to count further lines from.
struct LineStart {
    std::size_t line = 0;
    std::size_t offset = 0;
};

// `"\n".join(text.splitlines()[first:stop])[:limit]`, without cutting the rest of the text into lines. Counts from
// `known`, which is not behind line `first`, and leaves there where line `first` begins when there is one.
Ref cut_lines(Borrowed text, std::size_t first, std::size_t stop, std::size_t limit, LineStart& known);

}  // namespace py::text
