#include "text.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "wide.h"

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

// Line feeds in a stretch of text, which are all the line ends that most stretches have.
struct LineFeeds {
    std::size_t count = 0;
    bool only = true;  // no other character of the stretch is a line end
};

template <class Character>
LineFeeds count_line_feeds(std::span<const Character> stretch) {
    LineFeeds feeds;
    while (!stretch.empty()) {
        const auto part = stretch.first(std::min(stretch.size(), std::size_t{128}));
        // As wide as the characters, and without branches, so that the loop becomes wide steps.
        Character ends = 0;
        Character others = 0;
        for (const Character character : part) {
            const bool end = character == '\n';
            ends = static_cast<Character>(ends + Character{end});
            others = static_cast<Character>(others | Character{static_cast<bool>(is_line_end(character) & !end)});
        }
        feeds.count += ends;
        feeds.only &= others == 0;
        stretch = stretch.subspan(part.size());
    }
    return feeds;
}

LineFeeds count_line_feeds(std::span<const Py_UCS1> stretch) {
    constexpr Py_UCS1 first_other = '\v';
    constexpr Py_UCS1 last_other = 0x1f;
    LineFeeds feeds;
    while (stretch.size() >= wide::size) {
        wide::Bytes ends{};
        wide::Bytes lowest = ~wide::Bytes{};
        wide::Bytes next_lines{};
        // No lane of the counter overflows in so many steps.
        const std::size_t steps = std::min(stretch.size() / wide::size, std::size_t{16});
        for (std::size_t step = 0; step < steps; ++step) {
            const wide::Bytes bytes = wide::load(stretch.data() + step * wide::size);
            ends -= wide::equal(bytes, '\n');
            lowest = wide::least(lowest, bytes - first_other);
            next_lines |= wide::equal(bytes, 0x85);
        }
        feeds.count += wide::sum(ends);
        // A few controls that are no line ends are among these; `only` may be false without need.
        feeds.only &= !wide::any(next_lines | wide::between(lowest, 0, last_other - first_other));
        stretch = stretch.subspan(steps * wide::size);
    }
    const LineFeeds rest = count_line_feeds<Py_UCS1>(stretch);
    return {feeds.count + rest.count, feeds.only && rest.only};
}

// How many lines end in a stretch; the character after it must be readable.
template <class Character>
std::size_t count_line_ends(std::span<const Character> stretch) {
    const LineFeeds feeds = count_line_feeds(stretch);
    if (feeds.only) return feeds.count;
    std::size_t count = 0;
    for (const Character& character : stretch) count += ends_line(&character);
    return count;
}

// Where the line of that number begins; the end of the text when there are fewer.
template <class Character>
std::size_t find_line(std::span<const Character> text, std::size_t line) {
    std::size_t at = 0;
    for (const std::size_t step : {std::size_t{256}, std::size_t{16}}) {
        while (at + step < text.size()) {
            const std::size_t ends = count_line_ends(text.subspan(at, step));
            if (ends >= line) break;
            line -= ends;
            at += step;
        }
    }
    for (; line != 0 && at + 1 < text.size(); ++at) line -= ends_line(text.data() + at);
    // The last character either ends its line, and no further line begins, or there is no other line.
    return line == 0 ? at : text.size();
}

// Where `join_lines` from `from` on would end if it left the text as it is: when the lines end in line feeds alone.
template <class Character>
std::optional<std::size_t> find_end(std::span<const Character> text, std::size_t from, std::size_t count,
                                    std::size_t limit) {
    const auto rest = text.subspan(from);
    const auto region = limit < rest.size() ? rest.first(limit + 1) : rest;
    if (!count_line_feeds(region).only) return {};
    const std::size_t after = find_line(region, count);
    if (after < region.size()) return from + after - 1;
    if (region.size() > limit) return from + limit;
    return region.back() == '\n' ? text.size() - 1 : text.size();
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

Ref strip(Borrowed value, Borrowed name) {
    if (!is_plain(value)) return call_method(value, name);
    return visit(value, [value](auto characters) {
        std::size_t from = 0;
        std::size_t to = characters.size();
        while (from < to && is_space(characters[from])) ++from;
        while (to > from && is_space(characters[to - 1])) --to;
        return slice(value, from, to);
    });
}

bool is_blank(Borrowed value, Borrowed name) {
    if (!is_plain(value)) return !truth(call_method(value, name));
    return visit(value, [](auto characters) {
        return std::all_of(characters.begin(), characters.end(), [](auto character) { return is_space(character); });
    });
}

Ref cut_lines(Borrowed plain, std::size_t first, std::size_t stop, std::size_t limit) {
    return visit(plain, [=](auto characters) {
        const std::size_t from = find_line(characters, first);
        if (from == characters.size() || first >= stop || limit == 0) return slice(plain, 0, 0);
        if (const auto end = find_end(characters, from, stop - first, limit)) return slice(plain, from, *end);
        const auto joined = join_lines(characters, from, stop - first, limit);
        return make(std::span(joined));
    });
}

}  // namespace py::text
