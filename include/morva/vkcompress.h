/* Compression of packets with zlib, in a frame that tells the length of what is inside. The frame
 * is described in docs/formats/vkcompress.md.
 *
 *     Vk_packet in = {bytes, nbytes, nbytes}, out = {NULL, 0, 0};
 *     if (vkcompress(&in, &out) == 0) send_packet(out.data, out.used);
 *     else send_packet(in.data, in.used);
 *     free(out.data);
 *
 * Output buffers are the caller's: begin with a null pointer and sizes of 0, and free `data` at the
 * end. A buffer that is too small is freed (unless its size is 0) and replaced by a zeroed one from
 * malloc; what it held is then lost. `in` and `out` must be different buffers.
 *
 * Running out of memory ends the process.
 *
 * Threads: calls with different buffers may run at the same time. Each thread keeps the state that
 * zlib works in, about 260 kB after its first vkcompress and 40 kB after its first vkexpand, until
 * it ends, so that calls allocate nothing once `out` is large enough. */
#ifndef MORVA_VKCOMPRESS_H
#define MORVA_VKCOMPRESS_H

#include <stddef.h>

#include "morva/export.h"

MORVA_BEGIN

typedef struct Vk_packet {
    char* data;
    size_t used; /* bytes in use */
    size_t size; /* bytes allocated */
} Vk_packet;

/* Compresses `in` into a frame in `out`.
 *
 * Returns 0; 1 for less than 101 bytes, which are not compressed: out->used becomes 0; -2 when the
 * frame is longer than the input, but written all the same; -1 when zlib reports an error or the
 * length does not fit in 32 bits, with the reason registered and out->used unchanged. */
MORVA_API int vkcompress(const Vk_packet* in, Vk_packet* out);

/* Expands a frame into `out`, whose buffer is made at least 10 bytes larger than the length that
 * the frame states; but no larger than that stream can fill, which is 1032 bytes for each of its
 * own. Any bytes are safe to give.
 *
 * Returns 0, and 1 when `in` does not begin with "zlib": `out` is left alone. With the reason
 * registered and out->used unchanged: -1 when zlib reports an error (a damaged or cut stream, or
 * one that needs more room than out->data has), -2 when the stream gives another length than the
 * frame states. */
MORVA_API int vkexpand(const Vk_packet* in, Vk_packet* out);

/* As vkexpand, but a frame that states more than `most` bytes is refused with -3, the reason
 * registered and `out` left alone. */
MORVA_API int vkexpand_max(const Vk_packet* in, Vk_packet* out, size_t most);

MORVA_END
#endif
