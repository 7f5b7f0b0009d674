#pragma once

#include "python/call.h"
#include "state.h"

namespace citation_check {

// A finding's dictionary; `pages`, a list, is stored and not copied.
inline py::Ref make_finding(State& state, py::Borrowed severity, py::Borrowed kind, py::Borrowed pages,
                            py::Borrowed detail) {
    const auto& names = state.names;
    py::Ref finding = py::new_dict();
    py::set_item(finding, names.severity, severity);
    py::set_item(finding, names.kind, kind);
    py::set_item(finding, names.pages, pages);
    py::set_item(finding, names.detail, detail);
    return finding;
}

}  // namespace citation_check
