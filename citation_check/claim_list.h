#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "python/call.h"
#include "state.h"

namespace citation_check {

// A hash table, with open addressing, from fingerprints to places in a list.
class PlaceIndex {
  public:
    // The place stored for this fingerprint; stores `place` if there was none.
    std::optional<std::size_t> find_or_add(std::uint64_t fingerprint, std::size_t place);

  private:
    struct Slot {
        std::uint64_t fingerprint;
        std::size_t place_plus_one;  // 0: the slot is free
    };

    Slot& slot_of(std::uint64_t fingerprint);
    void grow();

    std::vector<Slot> slots_ = std::vector<Slot>(64);  // a power of two
    std::size_t used_ = 0;
};

// The records that a page's extraction has found so far, in page order and without equal ones.
class ClaimList {
  public:
    explicit ClaimList(State& state) : state_(state), records_(py::new_list()) {}

    // `record = type(claim, path, start, end)`, and `if start >= 1 and record not in records: records.append(record)`
    void add(py::Ref type, py::Borrowed claim, py::Ref path, py::Borrowed start, py::Borrowed end);

    // The list of records; nothing more can be added.
    py::Ref release() { return std::move(records_); }

  private:
    bool add_plain(py::Borrowed type, py::Borrowed claim, py::Borrowed path, py::Borrowed start, py::Borrowed end);
    bool holds(std::size_t place, py::Borrowed record) const;

    State& state_;
    py::Ref records_;
    py::Ref record_;     // the last one, left out or not: it lives until the next is made
    PlaceIndex places_;  // of the first record with each fingerprint, while all records are plain
    bool all_plain_ = true;
};

}  // namespace citation_check
