// Allocation that ends the process with the library's words when memory runs out.
//
// Everything the library allocates comes through here, so that one countdown can fail any
// allocation of a run: see fail_allocation.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace morva {

// The place named in an out-of-memory message.
struct Site {
    const char* function;
    int line;
    const char* file;
};
#define MORVA_HERE (::morva::Site{__func__, __LINE__, __FILE_NAME__})

// malloc, calloc and realloc that the countdown can fail. They return null when memory runs out.
void* try_malloc(std::size_t bytes);
void* try_calloc(std::size_t count, std::size_t size);
void* try_realloc(void* block, std::size_t bytes);

// Ends the process: "Out of memory in FUNCTION at line N of 'FILE'\n\tCan't malloc N bytes for
// WHAT\n".
[[noreturn]] void out_of_memory(std::size_t bytes, const char* what, Site site);

// Whether that has happened: what is not needed for the message had better not be tried.
bool memory_has_run_out();

// The same as above, but never null. A size of 0 gives a block that can be freed.
void* must_malloc(std::size_t bytes, const char* what, Site site);
void* must_calloc(std::size_t count, std::size_t size, const char* what, Site site);
void* must_realloc(void* block, std::size_t bytes, const char* what, Site site);
char* must_strdup(const char* text, const char* what, Site site);

// `count` zeroed objects of a plain type.
template <class T>
T* must_alloc(std::size_t count, const char* what, Site site) {
    static_assert(std::is_trivially_copyable_v<T>);
    return static_cast<T*>(must_calloc(count, sizeof(T), what, site));
}

// For tests: the nth allocation from now on fails (1 is the next), and with `from_then_on` every
// later one too. 0 turns the countdown off. allocations_seen counts since the last call.
void fail_allocation(long nth, bool from_then_on);
long allocations_seen();

// Holds a block from malloc until release().
struct Free {
    void operator()(void* block) const { std::free(block); }
};
template <class T>
using malloced = std::unique_ptr<T, Free>;

// Standard containers for scratch data: out of memory ends the process instead of throwing.
template <class T>
struct DyingAllocator {
    using value_type = T;
    DyingAllocator() = default;
    template <class U>
    DyingAllocator(const DyingAllocator<U>&) {}
    T* allocate(std::size_t n) {
        if (n > PTRDIFF_MAX / sizeof(T)) out_of_memory(PTRDIFF_MAX, "scratch", MORVA_HERE);
        return static_cast<T*>(must_malloc(n * sizeof(T), "scratch", MORVA_HERE));
    }
    void deallocate(T* block, std::size_t) { std::free(block); }
    bool operator==(const DyingAllocator&) const { return true; }
};
template <class T>
using Vector = std::vector<T, DyingAllocator<T>>;
using String = std::basic_string<char, std::char_traits<char>, DyingAllocator<char>>;

}  // namespace morva
