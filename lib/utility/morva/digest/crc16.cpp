#include "digest/crc_fold.hpp"
#include "morva/checksums.h"

using morva::Crc16;

extern "C" {

uint16_t vk_crc16(uint16_t* crc, const void* bytes, int n) {
    return *crc = morva::add_bytes<Crc16>(*crc, bytes, n);
}

uint16_t vk_crc16_combine(uint16_t first, uint16_t second, long n) {
    return n > 0 ? Crc16::combined(first, second, static_cast<std::uint64_t>(n)) : first;
}
}
