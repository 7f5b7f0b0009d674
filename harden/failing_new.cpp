// Preloaded: makes C++ allocations fail when asked to.

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <utility>

namespace {

long before_failure = -1;  // allocations that still succeed; below 0: all of them
bool for_ever = false;
int unforeseen = 0;

void throw_unforeseen(int what) {
    if (what == 1) throw std::length_error("too long");
    if (what == 2) throw std::runtime_error("nobody foresaw it");
    if (what == 3) throw what;
}

}  // namespace

// After `count` allocations the next one fails, or all later ones; a negative count ends it.
extern "C" void fail_new(long count, int all_later) {
    before_failure = count;
    for_ever = all_later != 0;
}

// The next allocation throws what allocations do not: 1 and 2 are exceptions of the standard library, 3 is none.
extern "C" void throw_from_new(int what) { unforeseen = what; }

void* operator new(std::size_t size) {
    throw_unforeseen(std::exchange(unforeseen, 0));
    if (before_failure == 0) {
        if (!for_ever) before_failure = -1;
        throw std::bad_alloc();
    }
    if (before_failure > 0) --before_failure;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
