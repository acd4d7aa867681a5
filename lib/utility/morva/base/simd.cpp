#include "base/simd.hpp"

namespace morva {

// Plain until the constructor below has run, so that code which runs before it is safe.
constinit Simd g_simd = Simd::kPlain;

Simd best_simd() {
#ifdef __x86_64__
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi") ||
        !__builtin_cpu_supports("bmi2"))
        return Simd::kPlain;
    if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
        !__builtin_cpu_supports("avx512cd") || !__builtin_cpu_supports("avx512vl") ||
        !__builtin_cpu_supports("avx512vbmi") || !__builtin_cpu_supports("avx512vbmi2"))
        return Simd::kAvx2;
    return Simd::kAvx512;
#else
    return Simd::kPlain;
#endif
}

void force_simd(Simd version) {
    g_simd = version;
}

namespace {

[[gnu::constructor]] void choose() {
    g_simd = best_simd();
}

}  // namespace
}  // namespace morva
