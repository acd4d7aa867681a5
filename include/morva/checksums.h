/* Checksums of packets and files: CRCs of 16, 32 and 64 bits, the CRC and byte sum of data logger
 * packets, and Adler-32. The digests are in morva/md5.h and morva/sha.h.
 *
 *     uint32_t crc = 0xffffffff;                     // the start value is the caller's choice
 *     vk_crc32(&crc, packet, 512);
 *     vk_crc32(&crc, packet + 512, nbytes - 512);    // goes on: the CRC of both pieces
 *
 * No routine inverts its start value or its result; conventions that want it do so themselves:
 *
 *     check value of "123456789"                     start        result
 *     vk_crc16  CRC-16/ARC                           0            bb3d
 *     vk_crc32  CRC-32/MPEG-2                        0xffffffff   0376e6e7
 *     vk_crc32  CRC-32/BZIP2: invert the result      0xffffffff   fc891918
 *     vk_crc64  CRC-64/ISO 3309, as in SWISS-PROT    0            46a5a9388a5beffe
 *     qtcrc     packets of data loggers              always 0     37c7ca30
 *
 * The CRC-32 of zlib and of Ethernet takes the bits in the other order: none of these gives it.
 *
 * Lengths are bytes; one of 0 or below adds nothing. Longer data go in in pieces, or piece by piece
 * in several threads and together with the ..._combine routines, which take any length.
 *
 * Threads: no shared state, no tables to be built, nothing is allocated or registered. */
#ifndef MORVA_CHECKSUMS_H
#define MORVA_CHECKSUMS_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* The CRC of `n` bytes from *crc on, which *crc becomes and which is returned.
 *   vk_crc16: polynomial 0x8005, least significant bit first (0xA001 reflected)
 *   vk_crc32: polynomial 0x04C11DB7, most significant bit first
 *   vk_crc64: polynomial x^64 + x^4 + x^3 + x + 1, least significant bit first
 *             (0xD800000000000000 reflected) */
MORVA_API uint16_t vk_crc16(uint16_t* crc, const void* bytes, int n);
MORVA_API uint32_t vk_crc32(uint32_t* crc, const void* bytes, int n);
MORVA_API uint64_t vk_crc64(uint64_t* crc, const void* bytes, int n);

/* The CRC of `n` bytes with polynomial 0x56070368, most significant bit first, which *crc becomes
 * and which is returned. It always begins with 0: what *crc held does not count. */
MORVA_API uint32_t qtcrc(uint32_t* crc, const void* bytes, int n);

/* The CRC of two pieces in a row: `first` is that of the first piece, with any start value,
 * `second` that of the second piece with start value 0, and `n` the length of the second piece in
 * bytes. */
MORVA_API uint16_t vk_crc16_combine(uint16_t first, uint16_t second, long n);
MORVA_API uint32_t vk_crc32_combine(uint32_t first, uint32_t second, long n);
MORVA_API uint64_t vk_crc64_combine(uint64_t first, uint64_t second, long n);
MORVA_API uint32_t qtcrc_combine(uint32_t first, uint32_t second, long n);

/* The sum of `n` bytes modulo 65536, from 0 on, which *sum becomes and which is returned. */
MORVA_API int qtchecksum(uint16_t* sum, const void* bytes, int n);

/* The Adler-32 (RFC 1950) of `n` bytes from `adler` on. A null pointer gives 1, the value to begin
 * with. */
MORVA_API uint32_t vk_adler32(uint32_t adler, const void* bytes, int n);

/* The Adler-32 of two pieces in a row; `second` is that of the second piece, begun with 1, and `n`
 * its length in bytes. */
MORVA_API uint32_t vk_adler32_combine(uint32_t first, uint32_t second, long n);

MORVA_END
#endif
