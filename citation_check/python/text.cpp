#include "text.h"

#include <algorithm>
#include <vector>

namespace py::text {

namespace {

// The places of `str.splitlines()`, the pair CR LF aside.
template <class Character>
constexpr bool is_line_end(Character character) {
    const auto feeds = static_cast<Character>(character - 0x0a) <= 0x0d - 0x0a;
    const auto separators = static_cast<Character>(character - 0x1c) <= 0x1e - 0x1c;
    if constexpr (sizeof(Character) == 1) {
        return feeds | separators | (character == 0x85);
    } else {
        return feeds | separators | (character == 0x85) | ((character | 1) == 0x2029);
    }
}

// Whether a line ends with the character at `place`: the CR of a CR LF pair does not end it, its LF does.
template <class Character>
constexpr bool ends_line(const Character* place) {
    return is_line_end(place[0]) & !((place[0] == '\r') & (place[1] == '\n'));
}

constexpr std::size_t block_size = 64;

// Line feeds in a block of text, which are all the line ends that most blocks have.
struct LineFeeds {
    std::size_t count;
    bool only;  // no other character of the block can be a line end
};

// The counters are as wide as the characters, so that the lanes need no widening.
template <class Character>
LineFeeds count_line_feeds(const Character* place) {
    Character feeds = 0;
    Character others = 0;
    for (std::size_t index = 0; index < block_size; ++index) {
        const Character character = place[index];
        const bool feed = character == '\n';
        const bool control = (character < 0x20) & !feed & (character != '\t');
        const bool beyond =
            sizeof(Character) == 1 ? character == 0x85 : (character == 0x85) | ((character | 1) == 0x2029);
        feeds = static_cast<Character>(feeds + Character{feed});
        others = static_cast<Character>(others | Character{static_cast<bool>(control | beyond)});
    }
    return {feeds, others == 0};
}

// How many lines end in the block at `place`; the character behind it must be readable.
template <class Character>
std::size_t count_line_ends(const Character* place) {
    const LineFeeds feeds = count_line_feeds(place);
    if (feeds.only) return feeds.count;
    std::size_t count = 0;
    for (std::size_t index = 0; index < block_size; ++index) count += ends_line(place + index);
    return count;
}

// Where the line of that number begins; the end of the text when there are fewer.
template <class Character>
std::size_t find_line(std::span<const Character> text, std::size_t line) {
    std::size_t at = 0;
    while (at + block_size < text.size()) {
        const std::size_t ends = count_line_ends(text.data() + at);
        if (ends >= line) break;
        line -= ends;
        at += block_size;
    }
    for (; line != 0 && at + 1 < text.size(); ++at) line -= ends_line(text.data() + at);
    // The last character either ends its line, and no further line begins, or there is no other line.
    return line == 0 ? at : text.size();
}

template <class Character>
std::size_t find_line_end(std::span<const Character> text, std::size_t from) {
    const auto found = std::find_if(text.begin() + static_cast<std::ptrdiff_t>(from), text.end(),
                                    [](Character character) { return is_line_end(character); });
    return static_cast<std::size_t>(found - text.begin());
}

template <class Character>
std::size_t after_line_end(std::span<const Character> text, std::size_t at) {
    const bool pair = text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
    return at + (pair ? 2 : 1);
}

// The lines from `from` on, joined by line feeds: `count` lines at the most, and `limit` characters.
template <class Character>
std::vector<Character> join_lines(std::span<const Character> text, std::size_t from, std::size_t count,
                                  std::size_t limit) {
    std::vector<Character> joined;
    joined.reserve(std::min({limit, text.size() - from, std::size_t{4096}}));
    while (true) {
        const std::size_t end = find_line_end(text, from);
        const std::size_t room = limit - joined.size();
        const auto line = text.subspan(from, std::min(end - from, room));
        joined.insert(joined.end(), line.begin(), line.end());
        if (--count == 0 || joined.size() == limit || end == text.size()) return joined;
        from = after_line_end(text, end);
        if (from == text.size()) return joined;
        joined.push_back('\n');
    }
}

}  // namespace

Ref strip(Borrowed text) {
    return visit(text, [text](auto characters) {
        std::size_t from = 0;
        std::size_t to = characters.size();
        while (from < to && is_space(characters[from])) ++from;
        while (to > from && is_space(characters[to - 1])) --to;
        return slice(text, from, to);
    });
}

bool is_blank(Borrowed text) {
    return visit(text, [](auto characters) {
        return std::all_of(characters.begin(), characters.end(), [](auto character) { return is_space(character); });
    });
}

Ref cut_lines(Borrowed text, std::size_t first, std::size_t stop, std::size_t limit) {
    return visit(text, [&](auto characters) {
        const std::size_t from = find_line(characters, first);
        if (first >= stop || limit == 0 || from == characters.size()) return slice(text, 0, 0);
        const auto joined = join_lines(characters, from, stop - first, limit);
        return make(std::span(joined));
    });
}

}  // namespace py::text
