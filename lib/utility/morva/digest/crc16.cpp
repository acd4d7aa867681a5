#include "digest/crc.hpp"
#include "morva/checksums.h"

using morva::Crc16;

extern "C" {

uint16_t vk_crc16(uint16_t* crc, const void* bytes, int n) {
    if (n > 0)
        *crc = Crc16::add_plain(*crc, static_cast<const unsigned char*>(bytes),
                                static_cast<std::size_t>(n));
    return *crc;
}

uint16_t vk_crc16_combine(uint16_t first, uint16_t second, long n) {
    return n > 0 ? Crc16::combined(first, second, static_cast<std::uint64_t>(n)) : first;
}
}
