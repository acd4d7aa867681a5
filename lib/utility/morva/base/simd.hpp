// Which version of a hot loop runs. Each such loop exists once in plain C++ and once for AVX2; the
// choice falls when the library is loaded, by what the processor offers.
#pragma once

namespace morva {

enum class Simd { kPlain, kAvx2 };  // kAvx2 stands for AVX2, BMI1 and BMI2 together

extern Simd g_simd;

inline Simd simd() {
    return g_simd;
}

// The best version that this processor can run.
Simd best_simd();

// For tests: runs the given version until the next call. Not while other threads use the library.
void force_simd(Simd version);

}  // namespace morva

// Marks a function that is compiled for the kAvx2 version.
#ifdef __x86_64__
#define MORVA_AVX2 __attribute__((target("avx2,bmi,bmi2")))
#else
#define MORVA_AVX2
#endif
