/* The library's own compression of 32-bit samples without loss: blocks of samples or of their first
 * or second differences, whatever is narrowest, each block as wide as its largest value needs. The
 * number of samples and the block size are in the header. docs/formats/gencompress.md shows every
 * byte.
 *
 *     unsigned char* packed = NULL;
 *     int nbytes, packed_size = 0;
 *     gencompress(&packed, &nbytes, &packed_size, samples, nsamp, 0);
 *     int32_t* back = NULL;
 *     int count, back_size = 0;
 *     if (genuncompress(&back, &count, &back_size, packed, nbytes) < 0)
 *         elog_complain(0, "damaged data");
 *     free(packed), free(back);
 *
 * Buffers are the caller's: start with a null pointer and a size of 0, pass both to call after
 * call, and free the pointer at the end. They come from malloc and grow with realloc; a pointer
 * given with a size of 0 counts as none, and is replaced without being freed. Sizes are in bytes.
 *
 * A failure gives -1 with the reason registered, running out of memory included, and leaves all
 * arguments as they were.
 *
 * Threads: no shared state; calls with different buffers may run at the same time. */
#ifndef MORVA_GENCOMPRESS_H
#define MORVA_GENCOMPRESS_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* Compresses `nsamp` samples, any number of them, in blocks of `block` samples: 25 when it is below
 * 1, at most 256. Short blocks follow the signal more closely, and cost a byte each.
 *
 * The buffer is made large enough for the worst case: 17 bytes, a byte for each block and 4 bytes
 * for each sample. *nbytes becomes the length of what is written; the bytes
 * behind it are undefined. Returns 0; a negative count is refused. */
MORVA_API int gencompress(unsigned char** buffer, int* nbytes, int* buffer_size,
                          const int32_t* samples, int nsamp, int block);

/* Decompresses what gencompress wrote, and nothing else: any other bytes are safe to give, none
 * behind compressed[nbytes-1] is read, and they are refused when they are cut, go on behind their
 * end or hold what gencompress never writes in a key.
 *
 * The buffer is made at least 4 bytes a sample; without one, 5*nbytes bytes at least are allocated.
 * The memory asked for is never more than 1,024 times `nbytes`. *nsamp becomes the number of
 * samples. Returns 0. */
MORVA_API int genuncompress(int32_t** samples, int* nsamp, int* buffer_size,
                            const unsigned char* compressed, int nbytes);

/* What genuncompress_anyway found: the first of the problems below. */
enum {
    GENUNCOMPRESS_GOOD = 0,       /* whole */
    GENUNCOMPRESS_NO_HEADER = 1,  /* not even a number of samples */
    GENUNCOMPRESS_BAD_COUNT = 2,  /* more samples than an int can count */
    GENUNCOMPRESS_CUT_HEADER = 3, /* the first sample or the block size is missing */
    GENUNCOMPRESS_CUT_KEYS = 4,   /* a key is missing, and with it the place of all values */
    GENUNCOMPRESS_BAD_KEY = 5,    /* decoded up to the block of a byte that is no key */
    GENUNCOMPRESS_CUT_DATA = 6,   /* decoded up to the last whole value */
    GENUNCOMPRESS_SPARE_BYTES = 7 /* decoded, and bytes are left */
};

/* As genuncompress, but hands back every sample that decodes and tells in *fault what is wrong:
 * what is left of damaged data can be used.
 *
 * Returns the number of samples, perhaps 0, which *nsamp becomes too; nothing is registered. No
 * samples leave the buffer as it was. -1 with the reason registered only for a negative `nbytes`,
 * null bytes, and when memory runs out. */
MORVA_API int genuncompress_anyway(int32_t** samples, int* nsamp, int* buffer_size,
                                   const unsigned char* compressed, int nbytes, int* fault);

/* A fault in words, such as "cut in the data". Constant. */
MORVA_API const char* genuncompress_reason(int fault);

MORVA_END
#endif
