#pragma once

#include "state.h"

// Claim extraction: the prose blocks of a page, and the cited claims in them. Declares the C++ bodies
// of the functions of these names.
namespace citation_check {

// `CitedClaim.ref`
py::Ref ref(State& state, py::Borrowed self);

// `_prose_blocks` in two steps: a scan over a page, and the next block of a scan, None at the end. A scan is a list,
// all of whose objects the collector sees; `begin_scan` returns a scan unchanged, so `_prose_blocks(scan)` continues
// it.
py::Ref begin_scan(State& state, py::Borrowed markdown);
py::Ref next_block(State& state, py::Borrowed scan);

// `_claim_text`
py::Ref claim_text(State& state, py::Borrowed sentence);

py::Ref cited_claims(State& state, py::Borrowed markdown);

}  // namespace citation_check
