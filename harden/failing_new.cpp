// Preloaded: makes C++ allocations fail when asked to.

#include <cstdlib>
#include <new>

static long before_failure = -1;  // allocations that still succeed; below 0: all of them
static bool for_ever = false;

// After `count` allocations the next one fails, or all later ones; a negative count ends it.
extern "C" void fail_new(long count, int all_later) {
    before_failure = count;
    for_ever = all_later != 0;
}

void* operator new(std::size_t size) {
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
