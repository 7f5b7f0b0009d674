#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "call.h"

// Work on text. The shortcuts for plain `str` objects cannot be told from the interpreter's own methods.
namespace py::text {

// An exact `str` in its final form; the old C API can make some that are not.
inline bool is_plain(Borrowed object) { return PyUnicode_CheckExact(object.get()) && PyUnicode_IS_READY(object.get()); }

inline std::size_t size(Borrowed plain) { return static_cast<std::size_t>(PyUnicode_GET_LENGTH(plain.get())); }

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

// A stretch of a text, from its first character to after its last.
struct Span {
    std::size_t begin;
    std::size_t end;
};

// Calls `visitor` with the characters of a plain text as a span of the width in which they are stored.
template <class Visitor>
decltype(auto) visit(Borrowed plain, Visitor visitor) {
    const void* const data = PyUnicode_DATA(plain.get());
    switch (PyUnicode_KIND(plain.get())) {
        case PyUnicode_1BYTE_KIND: return visitor(std::span(static_cast<const Py_UCS1*>(data), size(plain)));
        case PyUnicode_2BYTE_KIND: return visitor(std::span(static_cast<const Py_UCS2*>(data), size(plain)));
        default: return visitor(std::span(static_cast<const Py_UCS4*>(data), size(plain)));
    }
}

// A new text of these characters, stored as narrow as they allow.
template <class Character>
Ref make(std::span<const Character> characters) {
    return steal(
        PyUnicode_FromKindAndData(sizeof(Character), characters.data(), static_cast<Py_ssize_t>(characters.size())));
}

// `plain[from:to]` within its bounds; the very object when that is all of it.
inline Ref slice(Borrowed plain, std::size_t from, std::size_t to) {
    return steal(PyUnicode_Substring(plain.get(), static_cast<Py_ssize_t>(from), static_cast<Py_ssize_t>(to)));
}

// `value.strip()`; `name` is "strip".
Ref strip(Borrowed value, Borrowed name);

// `not value.strip()`; `name` is "strip".
bool is_blank(Borrowed value, Borrowed name);

// `"\n".join(plain.splitlines()[first:stop])[:limit]`, without cutting the rest of the text into lines.
Ref cut_lines(Borrowed plain, std::size_t first, std::size_t stop, std::size_t limit);

}  // namespace py::text
