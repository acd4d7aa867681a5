// Conversion between the host's byte order and the machine-independent one, which is big-endian.
//
// One clear loop serves every size. It is compiled for the plain processor and, on x86-64, once
// more for AVX2, where the compiler turns it into one shuffle for 32 bytes; which one runs is
// decided when the library is loaded.
#include <bit>
#include <cstdint>
#include <cstring>

#include "skerrows.h"

namespace {

inline std::uint16_t reversed(std::uint16_t value) {
    return __builtin_bswap16(value);
}
inline std::uint32_t reversed(std::uint32_t value) {
    return __builtin_bswap32(value);
}
inline std::uint64_t reversed(std::uint64_t value) {
    return __builtin_bswap64(value);
}

// Unaligned on both sides; apart.
template <class Word>
[[gnu::always_inline]] inline void swap_apart(const char* __restrict source,
                                              char* __restrict destination, std::size_t count) {
#pragma GCC unroll 4
    for (std::size_t i = 0; i < count; ++i) {
        Word word;
        std::memcpy(&word, source + i * sizeof word, sizeof word);
        word = reversed(word);
        std::memcpy(destination + i * sizeof word, &word, sizeof word);
    }
}

// The same over one buffer: a second pointer to it would keep the compiler from using vectors.
template <class Word>
[[gnu::always_inline]] inline void swap_in_place(char* bytes, std::size_t count) {
#pragma GCC unroll 4
    for (std::size_t i = 0; i < count; ++i) {
        Word word;
        std::memcpy(&word, bytes + i * sizeof word, sizeof word);
        word = reversed(word);
        std::memcpy(bytes + i * sizeof word, &word, sizeof word);
    }
}

template <class Word>
[[gnu::always_inline]] inline void swap(const char* source, char* destination, std::size_t count) {
    if (source == destination)
        swap_in_place<Word>(destination, count);
    else
        swap_apart<Word>(source, destination, count);
}

template <class Word>
void swap_plain(const char* source, char* destination, std::size_t count) {
    swap<Word>(source, destination, count);
}

#if defined(__x86_64__)

template <class Word>
[[gnu::target("avx2")]] void swap_wide(const char* source, char* destination, std::size_t count) {
    swap<Word>(source, destination, count);
}

bool has_avx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}
// False until the library's initialisers ran: a call before that is served by the plain loop.
const bool g_wide = has_avx2();

template <class Word>
void swap_best(const char* source, char* destination, std::size_t count) {
    if (g_wide) return swap_wide<Word>(source, destination, count);
    swap_plain<Word>(source, destination, count);
}

#else

template <class Word>
void swap_best(const char* source, char* destination, std::size_t count) {
    swap_plain<Word>(source, destination, count);
}

#endif

template <class Word>
[[gnu::noinline]] void convert_many(const char* from, char* to, std::size_t words) {
    const std::size_t bytes = words * sizeof(Word);
    const bool overlap = from != to && from < to + bytes && to < from + bytes;
    if (std::endian::native == std::endian::big || overlap) {
        std::memmove(to, from, bytes);
        from = to;
    }
    if (std::endian::native == std::endian::little) swap_best<Word>(from, to, words);
}

template <class Word>
void convert(char** source, void* destination, long count) {
    if (count <= 0) return;
    const char* from = *source;
    const auto words = static_cast<std::size_t>(count);
    *source += words * sizeof(Word);
    if (count > 1) return convert_many<Word>(from, static_cast<char*>(destination), words);
    Word word;
    std::memcpy(&word, from, sizeof word);
    if (std::endian::native == std::endian::little) word = reversed(word);
    std::memcpy(destination, &word, sizeof word);
}

}  // namespace

extern "C" {

void hs2ms(char** source, void* destination, long count) {
    convert<std::uint16_t>(source, destination, count);
}
void ms2hs(char** source, void* destination, long count) {
    convert<std::uint16_t>(source, destination, count);
}
void hi2mi(char** source, void* destination, long count) {
    convert<std::uint32_t>(source, destination, count);
}
void mi2hi(char** source, void* destination, long count) {
    convert<std::uint32_t>(source, destination, count);
}
void hl2ml(char** source, void* destination, long count) {
    convert<std::uint64_t>(source, destination, count);
}
void ml2hl(char** source, void* destination, long count) {
    convert<std::uint64_t>(source, destination, count);
}
void hf2mf(char** source, void* destination, long count) {
    convert<std::uint32_t>(source, destination, count);
}
void mf2hf(char** source, void* destination, long count) {
    convert<std::uint32_t>(source, destination, count);
}
void hd2md(char** source, void* destination, long count) {
    convert<std::uint64_t>(source, destination, count);
}
void md2hd(char** source, void* destination, long count) {
    convert<std::uint64_t>(source, destination, count);
}

}  // extern "C"
