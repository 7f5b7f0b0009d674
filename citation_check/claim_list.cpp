#include "claim_list.h"

#include <utility>

#include "python/number.h"
#include "python/text.h"

namespace citation_check {

using py::Borrowed;
using py::Ref;
using py::steal;

namespace {

// Both halves of the product count, so that no bits of a line number can be chosen to have no effect.
constexpr std::uint64_t mix(std::uint64_t state, std::uint64_t value) {
    const auto product = static_cast<unsigned __int128>(state ^ value) * 0x9e3779b97f4a7c15U;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
}

// A number that equal ints share. The interpreter's hash would not do: a page can cite any number of lines that have
// the same one, so what does not fit goes by its digits, whose hash is keyed.
std::optional<std::uint64_t> fingerprint_of_line(Borrowed line) {
    if (!PyLong_CheckExact(line.get())) return {};
    if (const auto value = py::plain_integer(line)) return static_cast<std::uint64_t>(*value);
    const Ref digits = steal(PyNumber_ToBase(line.get(), 16));
    return static_cast<std::uint64_t>(PyObject_Hash(digits.get()));
}

// A number that equal records share; none for a record whose values may compare in ways of their own.
std::optional<std::uint64_t> fingerprint_of(Borrowed claim, Borrowed path, Borrowed start, Borrowed end) {
    if (!py::text::is_plain(claim) || !py::text::is_plain(path)) return {};
    const auto first = fingerprint_of_line(start);
    const auto last = fingerprint_of_line(end);
    if (!first || !last) return {};
    // The hash of a plain text cannot fail.
    std::uint64_t state = static_cast<std::uint64_t>(PyObject_Hash(claim.get()));
    state = mix(state, static_cast<std::uint64_t>(PyObject_Hash(path.get())));
    state = mix(state, *first);
    return mix(state, *last);
}

// Whether an exact int is at least 1.
bool is_positive(Borrowed number) {
    const auto value = py::plain_integer(number);
    return value ? *value >= 1 : py::compare(number, py::integer(1), Py_GE);
}

}  // namespace

std::optional<std::size_t> PlaceIndex::find_or_add(std::uint64_t fingerprint, std::size_t place) {
    if (2 * used_ >= slots_.size()) grow();
    Slot& slot = slot_of(fingerprint);
    if (slot.place_plus_one != 0) return slot.place_plus_one - 1;
    slot = {fingerprint, place + 1};
    ++used_;
    return {};
}

PlaceIndex::Slot& PlaceIndex::slot_of(std::uint64_t fingerprint) {
    const std::size_t last = slots_.size() - 1;
    std::size_t at = fingerprint & last;
    while (slots_[at].place_plus_one != 0 && slots_[at].fingerprint != fingerprint) at = (at + 1) & last;
    return slots_[at];
}

void PlaceIndex::grow() {
    const std::vector<Slot> old = std::exchange(slots_, std::vector<Slot>(2 * slots_.size()));
    for (const Slot& slot : old) {
        if (slot.place_plus_one != 0) slot_of(slot.fingerprint) = slot;
    }
}

void ClaimList::add(Ref type, Borrowed claim, Ref path, Borrowed start, Borrowed end) {
    if (all_plain_ && add_plain(type, claim, path, start, end)) return;
    Ref record = py::call(type, claim, path, start, end);
    // What only the call needed goes with it.
    path = Ref();
    type = Ref();
    record_ = std::move(record);
    if (!py::compare(start, py::integer(1), Py_GE) || py::contains(records_, record_)) return;
    all_plain_ = false;
    py::append(records_, record_);
}

// False, and nothing is done, unless the record and its values are plain.
bool ClaimList::add_plain(Borrowed type, Borrowed claim, Borrowed path, Borrowed start, Borrowed end) {
    const auto fingerprint = fingerprint_of(claim, path, start, end);
    if (!fingerprint || !state_.kept(Kept::cited_claim).is_untraced(type)) return false;
    const auto& names = state_.names;
    // What the `__init__` of a frozen dataclass does, without running it.
    const Ref no_arguments = steal(PyTuple_New(0));
    Ref record = steal(
        py::api(PyBaseObject_Type.tp_new, reinterpret_cast<PyTypeObject*>(type.get()), no_arguments.get(), nullptr));
    const std::pair<Borrowed, Borrowed> fields[] = {
        {names.claim, claim}, {names.path, path}, {names.start, start}, {names.end, end}};
    for (const auto& [name, value] : fields) {
        py::check(py::api(PyObject_GenericSetAttr, record.get(), name.get(), value.get()));
    }
    record_ = std::move(record);
    if (!is_positive(start)) return true;
    const auto count = static_cast<std::size_t>(PyList_GET_SIZE(records_.get()));
    const auto known = places_.find_or_add(*fingerprint, count);
    if (known && (holds(*known, record_) || py::contains(records_, record_))) return true;
    py::append(records_, record_);
    return true;
}

// Whether the record at that place, if there still is one, is equal to `record`.
bool ClaimList::holds(std::size_t place, Borrowed record) const {
    if (place >= static_cast<std::size_t>(PyList_GET_SIZE(records_.get()))) return false;
    const Ref known = py::borrow(PyList_GET_ITEM(records_.get(), static_cast<Py_ssize_t>(place)));
    return py::check(py::api(PyObject_RichCompareBool, known.get(), record.get(), Py_EQ)) != 0;
}

}  // namespace citation_check
