#include "digest/crc_fold.hpp"
#include "morva/checksums.h"

using morva::Crc64;

extern "C" {

uint64_t vk_crc64(uint64_t* crc, const void* bytes, int n) {
    if (n <= 0) return *crc;
    return morva::g_crcs.crc64(*crc, static_cast<const unsigned char*>(bytes),
                               static_cast<std::size_t>(n), crc);
}

uint64_t vk_crc64_combine(uint64_t first, uint64_t second, long n) {
    return n > 0 ? Crc64::combined(first, second, static_cast<std::uint64_t>(n)) : first;
}
}
