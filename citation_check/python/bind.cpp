#include "bind.h"

#include <algorithm>

// The wording and the order of the checks are the interpreter's.
namespace py {

namespace {

Borrowed name_of(const Signature& signature, std::size_t index) {
    return PyTuple_GET_ITEM(signature.parameters.get(), static_cast<Py_ssize_t>(index));
}

std::size_t defaults_count(const Signature& signature) {
    return signature.defaults == nullptr ? 0 : static_cast<std::size_t>(PyTuple_GET_SIZE(signature.defaults));
}

const char* plural(std::size_t count) { return count == 1 ? "" : "s"; }

// The parameter that `keyword` names; `count` when there is none.
std::size_t find_parameter(const Signature& signature, Borrowed keyword, std::size_t count) {
    for (std::size_t index = 0; index < count; ++index) {
        if (name_of(signature, index).is(keyword)) return index;
    }
    for (std::size_t index = 0; index < count; ++index) {
        if (check(PyObject_RichCompareBool(name_of(signature, index).get(), keyword.get(), Py_EQ)) != 0) return index;
    }
    return count;
}

[[noreturn]] void raise_too_many(const Signature& signature, std::size_t given, std::size_t keyword_only_given) {
    const std::size_t most = signature.positional;
    const std::size_t defaults = defaults_count(signature);
    const Ref takes =
        steal(defaults != 0 ? PyUnicode_FromFormat("from %zd to %zu", static_cast<Py_ssize_t>(most - defaults), most)
                            : PyUnicode_FromFormat("%zu", most));
    // Every function has a positional parameter, so more than one is given.
    const Ref keyword_part =
        steal(keyword_only_given != 0 ? PyUnicode_FromFormat(" positional arguments (and %zu keyword-only argument%s)",
                                                             keyword_only_given, plural(keyword_only_given))
                                      : PyUnicode_FromString(""));
    raise(PyExc_TypeError, "%U() takes %U positional argument%s but %zu%U were given", signature.qualname.get(),
          takes.get(), defaults != 0 ? "s" : plural(most), given, keyword_part.get());
}

// 'a', then 'a' and 'b', then 'a', 'b', and 'c'.
Ref enumerate(const Ref* names, std::size_t count) {
    if (count == 1) return borrow(names[0]);
    if (count == 2) return steal(PyUnicode_FromFormat("%U and %U", names[0].get(), names[1].get()));
    Ref text = borrow(names[0]);
    for (std::size_t index = 1; index + 1 < count; ++index) {
        text = steal(PyUnicode_FromFormat("%U, %U", text.get(), names[index].get()));
    }
    return steal(PyUnicode_FromFormat("%U, and %U", text.get(), names[count - 1].get()));
}

[[noreturn]] void raise_missing(const Signature& signature, const char* kind, PyObject* const* values,
                                std::size_t first, std::size_t last) {
    std::array<Ref, most_parameters> names;
    std::size_t count = 0;
    for (std::size_t index = first; index < last; ++index) {
        if (values[index] == nullptr) names[count++] = steal(PyObject_Repr(name_of(signature, index).get()));
    }
    const Ref listed = enumerate(names.data(), count);
    raise(PyExc_TypeError, "%U() missing %zu required %s argument%s: %U", signature.qualname.get(), count, kind,
          plural(count), listed.get());
}

}  // namespace

BoundArguments::BoundArguments(const Signature& signature, PyObject* const* arguments, std::size_t count,
                               PyObject* keywords) {
    std::copy_n(arguments, std::min(count, signature.positional), values_.begin());
    if (keywords != nullptr) take_keywords(signature, arguments + count, keywords);
    if (count > signature.positional) {
        const auto first = values_.begin() + static_cast<std::ptrdiff_t>(signature.positional);
        const auto missing = std::count(first, first + static_cast<std::ptrdiff_t>(signature.keyword_only), nullptr);
        raise_too_many(signature, count, signature.keyword_only - static_cast<std::size_t>(missing));
    }
    fill_in_defaults(signature, count);
    fill_in_keyword_defaults(signature);
}

void BoundArguments::take_keywords(const Signature& signature, PyObject* const* arguments, PyObject* keywords) {
    const std::size_t parameters = signature.positional + signature.keyword_only;
    for (Py_ssize_t place = 0; place < PyTuple_GET_SIZE(keywords); ++place) {
        const Borrowed keyword = PyTuple_GET_ITEM(keywords, place);
        if (!PyUnicode_Check(keyword.get())) {
            raise(PyExc_TypeError, "%U() keywords must be strings", signature.qualname.get());
        }
        const std::size_t index = find_parameter(signature, keyword, parameters);
        if (index == parameters) {
            raise(PyExc_TypeError, "%U() got an unexpected keyword argument '%S'", signature.qualname.get(),
                  keyword.get());
        }
        if (values_[index] != nullptr) {
            raise(PyExc_TypeError, "%U() got multiple values for argument '%S'", signature.qualname.get(),
                  keyword.get());
        }
        values_[index] = arguments[place];
    }
}

void BoundArguments::fill_in_defaults(const Signature& signature, std::size_t given) {
    if (given >= signature.positional) return;
    const std::size_t defaults = std::min(defaults_count(signature), signature.positional);
    const std::size_t required = signature.positional - defaults;
    const auto first = values_.begin();
    if (std::count(first, first + static_cast<std::ptrdiff_t>(required), nullptr) != 0) {
        raise_missing(signature, "positional", values_.data(), 0, required);
    }
    for (std::size_t index = required; index < signature.positional; ++index) {
        if (values_[index] != nullptr) continue;
        set_default(index, PyTuple_GET_ITEM(signature.defaults, static_cast<Py_ssize_t>(index - required)));
    }
}

void BoundArguments::fill_in_keyword_defaults(const Signature& signature) {
    const std::size_t last = signature.positional + signature.keyword_only;
    bool missing = false;
    for (std::size_t index = signature.positional; index < last; ++index) {
        if (values_[index] != nullptr) continue;
        PyObject* value = nullptr;
        if (signature.keyword_defaults != nullptr) {
            value = PyDict_GetItemWithError(signature.keyword_defaults, name_of(signature, index).get());
            if (value == nullptr && PyErr_Occurred()) throw Error{};
        }
        if (value != nullptr) {
            set_default(index, value);
        } else {
            missing = true;
        }
    }
    if (missing) raise_missing(signature, "keyword-only", values_.data(), signature.positional, last);
}

void BoundArguments::set_default(std::size_t index, Borrowed value) {
    defaults_[index] = borrow(value);
    values_[index] = value.get();
}

}  // namespace py
