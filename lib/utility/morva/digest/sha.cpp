#include "digest/sha.hpp"

#include "morva/sha.h"

extern "C" {

void sha_init(Sha* sha) {
    *sha = {{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0}, {0, 0}, {}};
}

void sha_update(Sha* sha, const void* bytes, int n) {
    if (n > 0)
        morva::take(*sha, static_cast<const unsigned char*>(bytes), static_cast<std::size_t>(n),
                    morva::sha::g_add_blocks);
}

void sha_block(Sha* sha, const unsigned char* block) {
    sha_update(sha, block, morva::kBlock);
}

void sha_transform(Sha* sha, const uint32_t* words) {
    morva::sha::add_words(sha->state, words);
}

void sha_final(Sha* sha) {
    morva::pad<std::endian::big>(*sha, morva::sha::g_add_blocks);
}

void sha_digest(const Sha* sha, unsigned char* digest) {
    morva::store_words<std::endian::big>(sha->state, digest);
}

void sha_copy(Sha* to, const Sha* from) {
    *to = *from;
}
}
