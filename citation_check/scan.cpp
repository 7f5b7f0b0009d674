#include "scan.h"

#include <algorithm>
#include <array>
#include <memory>

#include "python/wide.h"

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

// The characters of a set, for those that are stored in one byte; no other character belongs to it.
class ByteSet {
  public:
    explicit constexpr ByteSet(const char* members) {
        for (; *members != 0; ++members) table_[static_cast<unsigned char>(*members)] = true;
    }
    constexpr bool has(Py_UCS4 character) const { return character < table_.size() && table_[character]; }

  private:
    std::array<bool, 256> table_{};
};

constexpr ByteSet sentence_ends(".!?]");
constexpr ByteSet takes_no_space_before(".,;:!?");

bool may_begin_sentence(Py_UCS4 character) {
    return (character >= 'A' && character <= 'Z') || character == '`' || character == '*' || character == '_';
}

// Room for the characters of one text, on the stack while it is a sentence's.
template <class Character>
class Buffer {
  public:
    explicit Buffer(std::size_t size) {
        if (size > near_.size()) far_ = std::make_unique_for_overwrite<Character[]>(size);
    }
    Character* begin() { return far_ ? far_.get() : near_.data(); }

  private:
    std::array<Character, 1024> near_;
    std::unique_ptr<Character[]> far_;
};

// Copies the characters outside of the spans; the end of the copy.
template <class Character>
Character* copy_outside(std::span<const Character> characters, std::span<const Span> spans, Character* out) {
    std::size_t from = 0;
    for (const Span& span : spans) {
        const auto kept = characters.subspan(from, span.begin - from);
        out = std::copy(kept.begin(), kept.end(), out);
        from = span.end;
    }
    const auto rest = characters.subspan(from);
    return std::copy(rest.begin(), rest.end(), out);
}

// Where the first whitespace that has to be tidied may begin.
Py_UCS1* find_untidy(Py_UCS1* const begin, Py_UCS1* const end) {
    namespace wide = py::wide;
    if (begin == end || is_space(*begin)) return begin;
    Py_UCS1* at = begin;
    // Whitespace is untidy because of what stands after it, so a run that begins before `at` has been noticed.
    for (; static_cast<std::size_t>(end - at) > wide::size; at += wide::size) {
        const wide::Bytes after = wide::load(at + 1);
        const wide::Bytes marks = wide::equal(after, '.') | wide::equal(after, ',') | wide::equal(after, ';') |
                                  wide::equal(after, ':') | wide::equal(after, '!') | wide::equal(after, '?');
        const wide::Bytes untidy = wide::spaces(wide::load(at)) & (wide::spaces(after) | marks);
        if (wide::any(untidy)) return at + wide::first(untidy);
    }
    return at;
}

// Wider text may hold whitespace of more kinds than a wide step can tell.
template <class Character>
Character* find_untidy(Character* const begin, Character* const /*end*/) {
    return begin;
}

// Tidies in place; what is kept never overtakes what is read.
template <class Character>
Character* tidy_in_place(Character* const begin, Character* const end) {
    Character* out = find_untidy(begin, end);
    for (Character* at = out; at != end;) {
        if (!is_space(*at)) {
            *out++ = *at++;
            continue;
        }
        Character* const run = at;
        while (at != end && is_space(*at)) ++at;
        const bool inside = at != end && out != begin;
        if (inside && !takes_no_space_before.has(*at)) *out++ = at - run == 1 ? *run : Character{' '};
    }
    return out;
}

// The first character at or after `from` that may end a sentence; the size of the text when there is none.
template <class Character>
std::size_t find_sentence_end(std::span<const Character> characters, std::size_t from) {
    while (from < characters.size() && !sentence_ends.has(characters[from])) ++from;
    return from;
}

std::size_t find_sentence_end(std::span<const Py_UCS1> characters, std::size_t from) {
    namespace wide = py::wide;
    for (; from + wide::size <= characters.size(); from += wide::size) {
        const wide::Bytes bytes = wide::load(characters.data() + from);
        const wide::Bytes ends =
            wide::equal(bytes, '.') | wide::equal(bytes, '!') | wide::equal(bytes, '?') | wide::equal(bytes, ']');
        if (wide::any(ends)) return from + wide::first(ends);
    }
    return find_sentence_end<Py_UCS1>(characters, from);
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

Span sentence_gap(Borrowed block, std::size_t from) {
    return py::text::visit(block, [from](auto characters) -> Span {
        const std::size_t size = characters.size();
        for (std::size_t at = find_sentence_end(characters, from); at < size;
             at = find_sentence_end(characters, at + 1)) {
            const std::size_t end = skip_space(characters, at + 1);
            if (end > at + 1 && end < size && may_begin_sentence(characters[end])) return {at + 1, end};
        }
        return {size, size};
    });
}

Ref tidy(Borrowed text, std::span<const Span> left_out) {
    return py::text::visit(text, [&](auto characters) {
        using Character = typename decltype(characters)::value_type;
        Buffer<Character> buffer(characters.size());
        Character* const copied = copy_outside(characters, left_out, buffer.begin());
        Character* const end = tidy_in_place(buffer.begin(), copied);
        // Tidying makes a text shorter, or gives the same one back.
        if (end == buffer.begin() + characters.size()) return py::borrow(text);
        return py::text::make(std::span<const Character>(buffer.begin(), end));
    });
}

}  // namespace citation_check::scan
