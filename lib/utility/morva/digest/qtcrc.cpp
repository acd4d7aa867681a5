#include <numeric>

#include "digest/crc_fold.hpp"
#include "morva/checksums.h"

using morva::QtCrc;

extern "C" {

uint32_t qtcrc(uint32_t* crc, const void* bytes, int n) {
    if (n <= 0) return *crc = 0;
    return morva::g_crcs.qtcrc(0, static_cast<const unsigned char*>(bytes),
                               static_cast<std::size_t>(n), crc);
}

uint32_t qtcrc_combine(uint32_t first, uint32_t second, long n) {
    return n > 0 ? QtCrc::combined(first, second, static_cast<std::uint64_t>(n)) : first;
}

int qtchecksum(uint16_t* sum, const void* bytes, int n) {
    const auto* first = static_cast<const unsigned char*>(bytes);
    *sum = static_cast<uint16_t>(std::accumulate(first, first + (n > 0 ? n : 0), 0u));
    return *sum;
}
}
