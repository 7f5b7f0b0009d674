#pragma once

#include <cstdint>
#include <vector>

#include "python/call.h"
#include "python/module.h"

namespace citation_check {

// The records that a page's extraction has found so far, in page order and without equal ones.
class ClaimList {
  public:
    explicit ClaimList(py::Module& module) : module_(module), records_(py::new_list()) {}

    // Makes the record `cited_claim(claim, path, start, end)`, and adds it when `start >= 1` and no record of the list
    // is equal to it.
    void add(py::Borrowed cited_claim, py::Borrowed claim, py::Borrowed path, py::Borrowed start, py::Borrowed end);

    // The list of records; nothing more can be added.
    py::Ref release() { return std::move(records_); }

  private:
    bool holds(py::Borrowed record, std::uint64_t fingerprint) const;

    py::Module& module_;
    py::Ref records_;
    // One for each record while all of them are plain ones: equal records have equal fingerprints.
    std::vector<std::uint64_t> fingerprints_;
    bool all_plain_ = true;
};

}  // namespace citation_check
