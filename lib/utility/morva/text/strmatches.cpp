// Matching with a pattern that is kept in the caller's hook.
#include "morva/strmatches.h"

#include <atomic>
#include <new>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/pattern.hpp"

namespace {

using morva::Pattern;

constexpr int kDidNotCompile = -2;
constexpr int kUnusable = -1;

// What a hook keeps: the pattern as it was first given, compiled or not.
struct Kept {
    Pattern pattern;
    morva::malloced<char> text;
    bool usable;
};

void free_kept(void* pvt) {
    Kept* kept = static_cast<Kept*>(pvt);
    kept->~Kept();
    std::free(kept);
}

const char* given(const char* pattern) {
    return pattern != nullptr ? pattern : "";
}

// Compiles, or registers the reason.
bool compile(Pattern& pattern, const char* text) {
    Pattern::Reason reason;
    if (pattern.compile(text, reason)) return true;
    elog_log(0, "'%s' did not compile: %s", text, reason);
    return false;
}

// The hook of a call site, made at its first use. Of several threads that come first together, one
// installs its hook and the others drop theirs.
Hook* hook_of(Hook** variable) {
    std::atomic_ref<Hook*> slot(*variable);
    Hook* hook = slot.load(std::memory_order_acquire);
    if (hook != nullptr) [[likely]]
        return hook;
    Hook* made = new_hook(free_kept);
    if (slot.compare_exchange_strong(hook, made, std::memory_order_acq_rel)) return made;
    free_hook(&made);
    return hook;
}

// Compiles for a hook that keeps nothing yet; gives what the hook keeps from then on. `refusal` is
// what the caller returns when that did not compile.
const Kept* keep(std::atomic_ref<void*> slot, const char* text, int& refusal) {
    Kept* made = new (morva::must_malloc(sizeof(Kept), "pvt", MORVA_HERE)) Kept;
    made->text.reset(morva::must_strdup(text, "pvt", MORVA_HERE));
    made->usable = compile(made->pattern, text);
    refusal = kDidNotCompile;
    void* first = nullptr;
    if (slot.compare_exchange_strong(first, made, std::memory_order_acq_rel)) return made;
    free_kept(made);
    refusal = kUnusable;
    return static_cast<Kept*>(first);
}

// The pattern to match with, or null when `refusal` is to be returned.
const Pattern* kept_pattern(Hook** variable, const char* text, int& refusal) {
    std::atomic_ref<void*> slot(hook_of(variable)->pvt);
    const Kept* kept = static_cast<Kept*>(slot.load(std::memory_order_acquire));
    refusal = kUnusable;
    if (kept == nullptr) kept = keep(slot, given(text), refusal);
    return kept->usable ? &kept->pattern : nullptr;
}

// Matches with the hook's pattern, or without a hook with one made for this call.
template <class Match>
int with_pattern(const char* text, Hook** hook, Match match) {
    if (hook != nullptr) {
        int refusal;
        const Pattern* pattern = kept_pattern(hook, text, refusal);
        return pattern != nullptr ? match(*pattern) : refusal;
    }
    Pattern pattern;
    return compile(pattern, given(text)) ? match(pattern) : kDidNotCompile;
}

}  // namespace

extern "C" {

int strmatches(const char* string, const char* pattern, Hook** hook) {
    return with_pattern(pattern, hook,
                        [=](const Pattern& p) -> int { return p.matches_whole(string); });
}

int strcontains(const char* string, const char* pattern, Hook** hook, int* start, int* length) {
    int ignored;
    if (start == nullptr) start = &ignored;
    if (length == nullptr) length = &ignored;
    *start = *length = 0;
    return with_pattern(pattern, hook,
                        [=](const Pattern& p) -> int { return p.search(string, start, length); });
}

}  // extern "C"
