/* SHA-1 digests (FIPS 180-4): to tell files and packets apart, not to protect them.
 *
 *     Sha sha;
 *     unsigned char digest[SHA_SIZE];
 *     sha_init(&sha);
 *     sha_update(&sha, "abc", 3);
 *     sha_final(&sha);
 *     sha_digest(&sha, digest);       // a9993e364706816aba3e25717850c26c9cd0d89d
 *
 * Threads: no shared state; different contexts may be used at the same time. Nothing is allocated
 * or registered. */
#ifndef MORVA_SHA_H
#define MORVA_SHA_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

enum { SHA_SIZE = 20 };

/* A digest in the making. */
typedef struct Sha {
    uint32_t state[5];
    uint32_t count[2];        /* bits so far modulo 2^64, low word first */
    unsigned char buffer[64]; /* the bytes of a block that is not full yet */
} Sha;

MORVA_API void sha_init(Sha* sha);

/* Adds `n` bytes; none when `n` is 0 or below. */
MORVA_API void sha_update(Sha* sha, const void* bytes, int n);

/* Adds 64 bytes. */
MORVA_API void sha_block(Sha* sha, const unsigned char* block);

/* Mixes one block, as 16 words, into the state; nothing is counted. */
MORVA_API void sha_transform(Sha* sha, const uint32_t* words);

/* Ends the bytes; afterwards sha_digest may be called, any number of times, and sha_init. */
MORVA_API void sha_final(Sha* sha);

/* Writes the state as 20 bytes, each word big-endian: the digest, once sha_final was called. */
MORVA_API void sha_digest(const Sha* sha, unsigned char* digest);

/* Makes `to` what `from` is, so that a common beginning is digested once. */
MORVA_API void sha_copy(Sha* to, const Sha* from);

MORVA_END
#endif
