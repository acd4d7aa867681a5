/* UCSD compression: 32-bit samples in runs of 4, 8, 12, 16 or 24 bits a sample.
 *
 *     char* bytes = NULL;
 *     int nbytes, size = 0;
 *     if (cucsd_try(samples, nsamp, &bytes, &nbytes, &size) < 0) elog_complain(0, "too loud");
 *
 *     char* cursor = bytes;
 *     if (uucsd(decoded, &cursor, nbytes, nsamp) < 0) elog_complain(0, "damaged data");
 *     free(bytes);
 *
 * A quiet series takes half a byte for each sample. The layout stands in docs/formats/ucsd.md. The
 * number of samples is not part of it: whoever stores the bytes keeps the number beside them.
 *
 * The first sample may be any; a later one must differ from the one before it by a number of 16
 * bits, or itself be a number of 24 bits (-8388608 .. 8388607). Differences wrap at 32 bits.
 *
 * Threads: no shared state; calls with different buffers may run at the same time. */
#ifndef MORVA_UCSD_H
#define MORVA_UCSD_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* Compresses `nsamp` samples.
 *
 * Not for every series: whether a run of narrower values pays is decided from up to five
 * differences that follow, and when the series ends before that is decided, the process ends with
 * "shouldn't happen". All series of two samples end so, and those whose last differences need fewer
 * bits than the run before them. It is kept for programs that rely on its output byte for byte; use
 * cucsd_try.
 *
 * *buffer is reused when *buffer_size, in bytes, is at least 4*nsamp + 8. Otherwise it is freed
 * (unless *buffer_size is 0), a zeroed one of that size takes its place, and *buffer_size tells the
 * size; running out of memory ends the process. Start with a null pointer and a size of 0, pass
 * both to call after call, and free the pointer at the end. *nbytes becomes the number of bytes
 * written. One sample gives four bytes, none gives none.
 *
 * Returns 0; or -1 with the reason registered when a difference, or a sample in a run of samples,
 * needs more than 24 bits. The bytes then have the length of a good series, but other samples come
 * back from them, unless only a difference was too large. -1 with all arguments unchanged for a
 * negative count, or one whose buffer is larger than an int can tell. */
MORVA_API int cucsd(const int32_t* samples, int nsamp, char** buffer, int* nbytes,
                    int* buffer_size);

/* As cucsd, and with the same bytes for every series that cucsd compresses without loss, but never
 * ends the process. A series that ends before a decision is taken to go on with its last sample,
 * and whatever the format can hold is compressed: uucsd gives the same samples for each 0 returned.
 *
 * *buffer is reused when *buffer_size is at least 5*nsamp + 8, else replaced by one of that size.
 *
 * Returns 0; or -1 with the reason registered and *nbytes unchanged when the format cannot hold the
 * series (see above), for counts as above, and when memory runs out. */
MORVA_API int cucsd_try(const int32_t* samples, int nsamp, char** buffer, int* nbytes,
                        int* buffer_size);

/* Expands `nsamp` samples, which `samples` has room for, from the `nbytes` bytes at *cursor. Any
 * bytes are safe to give, and none behind them is read. *cursor moves behind the last byte used;
 * more bytes may follow. No samples use no bytes.
 *
 * Returns 0, or -1 with *cursor at the run that cannot be read: too few bytes, a class code that
 * does not exist, a run of no values, or a byte other than 0 where one is inserted before a run
 * (the reason is registered); or a run of more samples than are left to expand ("uucsd bad input
 * data: uncompresses to more than %d samples", shown by elog_complain). The samples of the runs
 * before it are then in place. */
MORVA_API int uucsd(int32_t* samples, char** cursor, int nbytes, int nsamp);

/* As uucsd, but returns the number of samples of the runs that are good, at most `nsamp`, with
 * *cursor behind them. Nothing is registered or shown. */
MORVA_API int uucsd_anyway(int32_t* samples, char** cursor, int nbytes, int nsamp);

MORVA_END
#endif
