#pragma once

#include "state.h"

// Extraction of the cited claims of a page. Declares the C++ bodies of the functions of these names.
namespace citation_check {

// `CitedClaim.ref`
py::Ref ref(State& state, py::Borrowed self);

// `_claim_text`
py::Ref claim_text(State& state, py::Borrowed sentence);

py::Ref cited_claims(State& state, py::Borrowed markdown);

}  // namespace citation_check
