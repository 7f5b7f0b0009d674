#include "claim_list.h"

#include <algorithm>
#include <optional>

#include "genuine.h"
#include "python/number.h"
#include "python/record.h"
#include "python/text.h"

namespace citation_check {

using py::Borrowed;
using py::Module;
using py::Ref;
using py::steal;

namespace {

constexpr std::uint64_t mix(std::uint64_t state, std::uint64_t value) {
    state = (state ^ value) * 0x9e3779b97f4a7c15U;
    return state ^ (state >> 32U);
}

// A number that equal records share; none for a record whose values may compare in ways of their own.
std::optional<std::uint64_t> fingerprint_of(Borrowed claim, Borrowed path, Borrowed start, Borrowed end) {
    if (!py::text::is_exact(claim) || !py::text::is_exact(path)) return {};
    const auto first = py::plain_integer(start);
    const auto last = py::plain_integer(end);
    if (!first || !last) return {};
    // The hash of a genuine text cannot fail.
    std::uint64_t state = static_cast<std::uint64_t>(PyObject_Hash(claim.get()));
    state = mix(state, static_cast<std::uint64_t>(PyObject_Hash(path.get())));
    state = mix(state, static_cast<std::uint64_t>(*first));
    return mix(state, static_cast<std::uint64_t>(*last));
}

// The first place at or behind `from` that holds `wanted`, in steps wide enough to test many places at once.
std::size_t find_fingerprint(const std::vector<std::uint64_t>& all, std::uint64_t wanted, std::size_t from) {
    constexpr std::size_t step = 32;
    for (; from + step <= all.size(); from += step) {
        bool found = false;
        for (std::size_t index = from; index < from + step; ++index) found |= all[index] == wanted;
        if (found) break;
    }
    const auto place = std::find(all.begin() + static_cast<std::ptrdiff_t>(from), all.end(), wanted);
    return static_cast<std::size_t>(place - all.begin());
}

}  // namespace

void ClaimList::add(Borrowed cited_claim, Borrowed claim, Borrowed path, Borrowed start, Borrowed end) {
    if (all_plain_ && genuine::is_cited_claim(module_, cited_claim)) {
        const auto fingerprint = fingerprint_of(claim, path, start, end);
        if (fingerprint) {
            if (py::plain_integer(start) < 1) return;
            const auto& names = module_.names;
            const Ref record =
                py::make_record(module_, cited_claim,
                                {{names.claim, claim}, {names.path, path}, {names.start, start}, {names.end, end}});
            if (holds(record, *fingerprint)) return;
            fingerprints_.push_back(*fingerprint);
            py::append(records_, record);
            return;
        }
    }
    const Ref record = py::call(cited_claim, claim, path, start, end);
    if (!py::compare(start, module_.one, Py_GE) || py::contains(records_, record)) return;
    all_plain_ = false;
    py::append(records_, record);
}

bool ClaimList::holds(Borrowed record, std::uint64_t fingerprint) const {
    std::size_t place = find_fingerprint(fingerprints_, fingerprint, 0);
    for (; place < fingerprints_.size(); place = find_fingerprint(fingerprints_, fingerprint, place + 1)) {
        const Ref known = py::borrow(PyList_GET_ITEM(records_.get(), static_cast<Py_ssize_t>(place)));
        if (py::check(PyObject_RichCompareBool(known.get(), record.get(), Py_EQ)) != 0) return true;
    }
    return false;
}

}  // namespace citation_check
