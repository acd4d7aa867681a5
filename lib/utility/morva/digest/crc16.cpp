#include "digest/crc_fold.hpp"
#include "morva/checksums.h"

using morva::Crc16;

extern "C" {

uint16_t vk_crc16(uint16_t* crc, const void* bytes, int n) {
    if (n <= 0) return *crc;
    return morva::g_crcs.crc16(*crc, static_cast<const unsigned char*>(bytes),
                               static_cast<std::size_t>(n), crc);
}

uint16_t vk_crc16_combine(uint16_t first, uint16_t second, long n) {
    return n > 0 ? Crc16::combined(first, second, static_cast<std::uint64_t>(n)) : first;
}
}
