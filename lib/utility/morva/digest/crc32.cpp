#include "digest/crc_fold.hpp"
#include "morva/checksums.h"

using morva::Crc32;

extern "C" {

uint32_t vk_crc32(uint32_t* crc, const void* bytes, int n) {
    if (n <= 0) return *crc;
    return morva::g_crcs.crc32(*crc, static_cast<const unsigned char*>(bytes),
                               static_cast<std::size_t>(n), crc);
}

uint32_t vk_crc32_combine(uint32_t first, uint32_t second, long n) {
    return n > 0 ? Crc32::combined(first, second, static_cast<std::uint64_t>(n)) : first;
}
}
