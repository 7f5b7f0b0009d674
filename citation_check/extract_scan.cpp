#include "extract_scan.h"

#include <vector>

namespace citation_check::scan {

using py::Borrowed;
using py::Ref;
using py::text::is_space;

namespace {

template <class Characters>
std::size_t skip_space(Characters characters, std::size_t at) {
    while (at < characters.size() && is_space(characters[at])) ++at;
    return at;
}

// The end of a bullet or a number with its mark, without the whitespace that makes it a list mark; 0 for neither.
template <class Characters>
std::size_t marker_end(Characters characters) {
    if (characters.empty()) return 0;
    if (characters[0] == '-' || characters[0] == '*' || characters[0] == '+') return 1;
    std::size_t at = 0;
    while (at < characters.size() && Py_UNICODE_ISDECIMAL(characters[at])) ++at;
    if (at == 0 || at == characters.size()) return 0;
    return characters[at] == '.' || characters[at] == ')' ? at + 1 : 0;
}

bool may_end_sentence(Py_UCS4 character) {
    return character == '.' || character == '!' || character == '?' || character == ']';
}

bool may_begin_sentence(Py_UCS4 character) {
    return (character >= 'A' && character <= 'Z') || character == '`' || character == '*' || character == '_';
}

bool takes_no_space_before(Py_UCS4 character) {
    switch (character) {
        case '.':
        case ',':
        case ';':
        case ':':
        case '!':
        case '?': return true;
        default: return false;
    }
}

}  // namespace

std::size_t list_mark_end(Borrowed text) {
    return py::text::visit(text, [](auto characters) -> std::size_t {
        const std::size_t marker = marker_end(characters);
        if (marker == 0) return 0;
        const std::size_t end = skip_space(characters, marker);
        return end == marker ? 0 : end;
    });
}

bool is_left_out(Borrowed stripped) {
    const Py_UCS4 first = PyUnicode_READ_CHAR(stripped.get(), 0);
    return first == '#' || first == '|' || first == '>';
}

Gap sentence_gap(Borrowed block, std::size_t from) {
    return py::text::visit(block, [from](auto characters) -> Gap {
        const std::size_t size = characters.size();
        for (std::size_t at = from; at < size; ++at) {
            if (!may_end_sentence(characters[at])) continue;
            const std::size_t end = skip_space(characters, at + 1);
            if (end > at + 1 && end < size && may_begin_sentence(characters[end])) return {at + 1, end};
        }
        return {size, size};
    });
}

Ref tidy(Borrowed text) {
    return py::text::visit(text, [](auto characters) {
        using Character = typename decltype(characters)::value_type;
        std::vector<Character> tidied;
        tidied.reserve(characters.size());
        std::size_t at = 0;
        while (at < characters.size()) {
            const std::size_t end = skip_space(characters, at);
            if (end == at) {
                tidied.push_back(characters[at++]);
                continue;
            }
            const bool inside = end < characters.size() && !tidied.empty();
            if (inside && !takes_no_space_before(characters[end])) {
                tidied.push_back(end - at == 1 ? characters[at] : Character{' '});
            }
            at = end;
        }
        return py::text::make(std::span<const Character>(tidied));
    });
}

}  // namespace citation_check::scan
