#include "blocks.h"

#include <utility>

#include "originals.h"
#include "python/text.h"

namespace citation_check {

using py::Borrowed;
using py::Ref;

Blocks::Blocks(State& state, Borrowed markdown) : state_(state) {
    const Ref prose_blocks = state.global(state.names.prose_blocks);
    if (state.kept(Kept::prose_blocks).is_untraced(prose_blocks) && py::text::is_plain(markdown)) {
        scan_ = Scan{Lines(py::borrow(markdown), 0)};
    } else {
        generator_.emplace(py::call(prose_blocks, markdown));
    }
}

bool Blocks::next(Ref& block) {
    const py::Original& prose_blocks = state_.kept(Kept::prose_blocks);
    if (scan_ && !runs_no_python_code() && prose_blocks.is_unpatched()) {
        const Ref scan = to_list(state_, *std::exchange(scan_, {}));
        generator_.emplace(py::call(prose_blocks.object(), scan));
    }
    if (!scan_) return generator_->next(block);
    block = cut_block(state_, *scan_, py::new_list());
    return !block.is_none();
}

bool Blocks::runs_no_python_code() {
    const auto& names = state_.names;
    if (!state_.has_original(names.LIST_MARK_RE, Kept::list_mark) || py::interpreter::is_traced()) return false;
    Ref fence = state_.find_global(names.FENCE_RE);
    if (!fence || !is_standard_pattern(state_, fence)) return false;
    if (fence_ && fence_.is(fence)) return true;
    if (!PyUnicode_Check(py::attr(fence, names.pattern).get())) return false;
    fence_ = std::move(fence);
    return true;
}

}  // namespace citation_check
