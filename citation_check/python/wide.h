#pragma once

#include <Python.h>

#include <bit>
#include <cstdint>
#include <cstring>

// Sixteen characters of one byte each at a time. A comparison gives a lane of ones or zeros for each of them.
namespace py::wide {

using Bytes = std::uint8_t __attribute__((vector_size(16)));

constexpr std::size_t size = sizeof(Bytes);

inline Bytes load(const Py_UCS1* place) {
    Bytes bytes;
    std::memcpy(&bytes, place, sizeof(bytes));
    return bytes;
}

inline Bytes equal(Bytes bytes, std::uint8_t value) { return reinterpret_cast<Bytes>(bytes == value); }

inline Bytes between(Bytes bytes, std::uint8_t first, std::uint8_t last) {
    return reinterpret_cast<Bytes>((bytes - first) <= static_cast<std::uint8_t>(last - first));
}

inline Bytes least(Bytes left, Bytes right) { return left < right ? left : right; }

// `str.isspace()` of the first 256 characters.
inline Bytes spaces(Bytes bytes) {
    return between(bytes, 0x09, 0x0d) | between(bytes, 0x1c, 0x20) | equal(bytes, 0x85) | equal(bytes, 0xa0);
}

inline bool any(Bytes lanes) {
    std::uint64_t halves[2];
    std::memcpy(halves, &lanes, sizeof(lanes));
    return (halves[0] | halves[1]) != 0;
}

// The first lane of ones; `size` when there is none.
inline std::size_t first(Bytes lanes) {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t halves[2];
    std::memcpy(halves, &lanes, sizeof(lanes));
    if (halves[0] != 0) return static_cast<std::size_t>(std::countr_zero(halves[0])) / 8;
    return 8 + static_cast<std::size_t>(std::countr_zero(halves[1])) / 8;
}

// The sum of the lanes, each 16 at the most.
inline std::size_t sum(Bytes lanes) {
    constexpr std::uint64_t ones = 0x0101010101010101U;
    std::uint64_t halves[2];
    std::memcpy(halves, &lanes, sizeof(lanes));
    return static_cast<std::size_t>((halves[0] * ones) >> 56U) + static_cast<std::size_t>((halves[1] * ones) >> 56U);
}

}  // namespace py::wide
