/* Canadian compression: 32-bit samples without loss in blocks of 20, as digitizers and other
 * systems of the field exchange them. A block holds second differences in five groups of four, each
 * as wide as its largest value needs. docs/formats/canadian.md shows every byte.
 *
 *     int32_t samples[21] = {3, 1, 4, 1, 5};         // 20 samples and the one behind them
 *     unsigned char* packed = NULL;
 *     int nbytes, packed_size = 0;
 *     ccanada(samples, 21, &packed, &nbytes, &packed_size);
 *     int32_t* back = NULL;
 *     int nsamp = 20, back_size = 0;
 *     if (ucanada(packed, nbytes, &back, &nsamp, &back_size) < 0) elog_complain(0, "damaged data");
 *     free(packed), free(back);                      // back[20] was the sample behind them
 *
 * Buffers are the caller's: start with a null pointer and a size of 0, pass both to call after
 * call, and free the pointer at the end. They come from malloc and grow with realloc; a pointer
 * given with a size of 0 counts as none, and is replaced without being freed. Sizes are in bytes.
 *
 * A failure gives -1 with the reason registered, running out of memory included, and leaves all
 * arguments as they were.
 *
 * Threads: no shared state; calls with different buffers may run at the same time. */
#ifndef MORVA_CCANADA_H
#define MORVA_CCANADA_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* Compresses `nsamp` samples: a multiple of 20, or one more. That one more is the sample behind the
 * series, such as the first of the next packet: the last difference leads to it. Without one it
 * counts as -2147483648, which makes the last group of the series 32 bits wide.
 *
 * The buffer is made at least nsamp/10 + 4*nsamp + 4 bytes, for the worst case; *nbytes becomes the
 * length of what is written, and the bytes behind it up to that size are zeros. 0 samples give
 * four zero bytes, one sample gives four bytes; neither is enough for ucanada. Returns 0. */
MORVA_API int ccanada(const int32_t* samples, int nsamp, unsigned char** buffer, int* nbytes,
                      int* buffer_size);

/* Decompresses. *nsamp is the number of samples that were compressed, a multiple of 20 without the
 * one behind them; 0 or less when unknown. It is then estimated from the keys, too coarsely for
 * most data, which are refused; give the number where it is known. An estimate of 0 gives 0 samples
 * and leaves the buffer as it was. *nsamp becomes the number of samples.
 *
 * The buffer is made at least 4*nsamp + 4 bytes: the samples, and behind them the next one.
 *
 * Any bytes are safe to give, and none behind compressed[nbytes-1] is read. Refused are fewer than
 * 6 bytes, fewer than the keys ask for, and more than four bytes behind the data. Returns 0. */
MORVA_API int ucanada(const unsigned char* compressed, int nbytes, int32_t** buffer, int* nsamp,
                      int* buffer_size);

/* What ucanada_anyway found: the first of the problems below. */
enum {
    UCANADA_GOOD = 0,       /* whole */
    UCANADA_BAD_COUNT = 1,  /* the number given is no multiple of 20, or none fits the bytes */
    UCANADA_CUT = 2,        /* too few bytes for the keys; decoded up to the last whole value */
    UCANADA_SPARE_BYTES = 3 /* decoded, and more than four bytes are left */
};

/* As ucanada, but hands back every sample that decodes and tells in *fault what is wrong: what is
 * left of damaged data can be used. An unknown number of samples is found out from the keys, which
 * whole data always allow; where no number fits, nothing is decoded. A number that is no multiple
 * of 20 stands for the next lower one.
 *
 * Returns the number of samples, perhaps 0, which *nsamp becomes too; nothing is registered. The
 * buffer is made at least 4*nsamp + 4 bytes, for the sample behind them, which is there when the
 * data are not cut. No samples may leave it as it was. -1 with the reason registered and all
 * arguments as they were only for a negative `nbytes`, null bytes, and when memory runs out. */
MORVA_API int ucanada_anyway(const unsigned char* compressed, int nbytes, int32_t** buffer,
                             int* nsamp, int* buffer_size, int* fault);

/* A fault in words, such as "too few bytes for the keys". Constant. */
MORVA_API const char* ucanada_reason(int fault);

/* Writes the low `nbits` bits of `value`, 0 to 32, most significant first, starting at bit
 * *bit_position (7 is the top bit) of buffer[*byte_index], and moves both behind what was written.
 * Other bits stay as they are. The caller sees to it that the buffer is long enough. */
MORVA_API void cc_bitpack(unsigned char* buffer, int* byte_index, int* bit_position, int nbits,
                          int value);

MORVA_END
#endif
