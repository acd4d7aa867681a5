// Which version of a hot loop runs. Each such loop exists once in plain C++, once for AVX2, and
// where it pays once for AVX-512; the choice falls when the library is loaded, by what the
// processor offers.
#pragma once

namespace morva {

// In this order each offers all that the one before it does.
enum class Simd {
    kPlain,
    kAvx2,   // AVX2, BMI1 and BMI2
    kAvx512  // AVX-512 F, BW, CD, VL, VBMI and VBMI2 too
};

extern Simd g_simd;

// Whether loops written for a version may run.
inline bool may_use(Simd version) {
    return g_simd >= version;
}

// The best version that this processor can run.
Simd best_simd();

// For tests: runs the given version until the next call. Not while other threads use the library.
void force_simd(Simd version);

}  // namespace morva

// Marks a function that is compiled for a version.
#ifdef __x86_64__
#define MORVA_AVX2 __attribute__((target("avx2,bmi,bmi2")))
#define MORVA_AVX512                                                          \
    __attribute__((                                                           \
        target("avx2,bmi,bmi2,avx512f,avx512bw,avx512cd,avx512vl,avx512vbmi," \
               "avx512vbmi2")))
#else
#define MORVA_AVX2
#define MORVA_AVX512
#endif
