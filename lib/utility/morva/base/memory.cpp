#include "base/memory.hpp"

#include <atomic>
#include <cstdint>
#include <cstring>

#include "base/diagnostics.hpp"

namespace morva {
namespace {

// Allocations left until the one that fails; negative while nothing is to fail.
constinit std::atomic<long> g_countdown{-1};
constinit std::atomic<bool> g_from_then_on{false};
constinit std::atomic<long> g_seen{0};
constinit std::atomic<bool> g_ran_out{false};

// True when this allocation is to fail. The common case is one load of a value that nobody writes.
inline bool must_fail() {
    if (g_countdown.load(std::memory_order_relaxed) < 0) return false;
    g_seen.fetch_add(1, std::memory_order_relaxed);
    const long left = g_countdown.fetch_sub(1, std::memory_order_relaxed);
    if (left > 1) return false;
    if (g_from_then_on.load(std::memory_order_relaxed)) {
        g_countdown.store(1, std::memory_order_relaxed);
        return true;
    }
    if (left < 1) g_countdown.store(0, std::memory_order_relaxed);
    return left == 1;
}

}  // namespace

void fail_allocation(long nth, bool from_then_on) {
    g_seen = 0;
    g_from_then_on = from_then_on;
    g_countdown = nth > 0 ? nth : -1;
}

long allocations_seen() {
    return g_seen;
}

void* try_malloc(std::size_t bytes) {
    return must_fail() ? nullptr : std::malloc(bytes);
}

void* try_calloc(std::size_t count, std::size_t size) {
    return must_fail() ? nullptr : std::calloc(count, size);
}

void* try_realloc(void* block, std::size_t bytes) {
    return must_fail() ? nullptr : std::realloc(block, bytes);
}

void out_of_memory(std::size_t bytes, const char* what, Site site) {
    g_ran_out = true;
    elog_die(1, "Out of memory in %s at line %d of '%s'\n\tCan't malloc %lu bytes for %s\n",
             site.function, site.line, site.file, static_cast<unsigned long>(bytes), what);
}

bool memory_has_run_out() {
    return g_ran_out;
}

void* must_malloc(std::size_t bytes, const char* what, Site site) {
    void* block = try_malloc(bytes > 0 ? bytes : 1);
    if (block == nullptr) out_of_memory(bytes, what, site);
    return block;
}

void* must_calloc(std::size_t count, std::size_t size, const char* what, Site site) {
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) out_of_memory(SIZE_MAX, what, site);
    void* block = try_calloc(1, bytes > 0 ? bytes : 1);
    if (block == nullptr) out_of_memory(bytes, what, site);
    return block;
}

void* must_realloc(void* block, std::size_t bytes, const char* what, Site site) {
    void* larger = try_realloc(block, bytes > 0 ? bytes : 1);
    if (larger == nullptr) out_of_memory(bytes, what, site);
    return larger;
}

char* must_strdup(const char* text, const char* what, Site site) {
    const std::size_t bytes = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(must_malloc(bytes, what, site), text, bytes));
}

}  // namespace morva
