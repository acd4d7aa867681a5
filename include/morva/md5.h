/* MD5 digests (RFC 1321): to tell files and packets apart, not to protect them.
 *
 *     char hex[33];
 *     mdhex(hex, "abc", 3);                               // 900150983cd24fb0d6963f7d28e17f72
 *     mdhexlist(hex, "a", 1, "bc", 2, NULL);              // the same
 *
 *     Md5 md5;
 *     unsigned char digest[MD5_SIZE];
 *     vk_md5init(&md5);
 *     while ((n = (int)fread(buffer, 1, sizeof buffer, file)) > 0) vk_md5update(&md5, buffer, n);
 *     vk_md5final(digest, &md5);
 *
 * Lengths are bytes; one of 0 or below adds nothing.
 *
 * Threads: no shared state; different contexts may be used at the same time. Nothing is allocated
 * or registered. */
#ifndef MORVA_MD5_H
#define MORVA_MD5_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

enum { MD5_SIZE = 16 };

/* A digest in the making. A copy of it goes on by itself. */
typedef struct Md5 {
    uint32_t state[4];
    uint32_t count[2];        /* bits so far modulo 2^64, low word first */
    unsigned char buffer[64]; /* the bytes of a block that is not full yet */
} Md5;

MORVA_API void vk_md5init(Md5* md5);
MORVA_API void vk_md5update(Md5* md5, const void* bytes, int n);

/* Writes the 16 bytes of the digest and clears the context. */
MORVA_API void vk_md5final(unsigned char* digest, Md5* md5);

/* Mixes one block of 64 bytes into the four words of a state; nothing is counted. */
MORVA_API void vk_md5transform(uint32_t* state, const unsigned char* block);

/* The same digest for streamed input: begin, then update with any number of bytes or, for whole
 * blocks of 64 bytes, MDblock. vk_md5final ends it. */
MORVA_API void vk_mdbegin(Md5* md5);
MORVA_API void vk_mdupdate(Md5* md5, const void* bytes, int n);
MORVA_API void MDblock(Md5* md5, const unsigned char* block);

/* Writes the digest of `n` bytes as 32 lowercase hexadecimal digits and a terminator into the
 * caller's 33 bytes, and returns them. */
MORVA_API char* mdhex(char* hex, const void* bytes, int n);

/* As mdhex, but of several pieces in a row: pairs of a pointer and a length, which is an int, ended
 * by a null pointer without a length. Without a piece it is the digest of no bytes. */
MORVA_API char* mdhexlist(char* hex, const void* bytes, int n, ...);

MORVA_END
#endif
