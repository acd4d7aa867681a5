/* CM6 compression and the GSE checksum: 32-bit samples as printable text, the encoding of GSE2 and
 * IMS1.0 waveform messages. Every character carries five or four bits of a second difference, lines
 * are broken at 80 characters, and a last line "CHK2 %d" holds the checksum of the samples. The
 * characters are laid out in docs/formats/cm6.md.
 *
 *     char* text = NULL;
 *     int32_t samples[] = {0, 1, 2, 3};
 *     int nbytes, size = 0;
 *     cm6(samples, 4, &text, &nbytes, &size);      // "+-++\nCHK2 6\n", nbytes is 12
 *     int32_t* decoded = NULL;
 *     int nsamp, room = 0;
 *     if (um6(text, nbytes, &decoded, &nsamp, &room) < 0) elog_complain(0, "damaged data");
 *     free(text), free(decoded);
 *
 * Buffers are the caller's: start with a null pointer and a size of 0, pass both to call after
 * call, and free the pointer at the end. They are allocated with malloc and replaced when too
 * small; what they held is then lost. Running out of memory ends the process.
 *
 * Threads: no shared state; calls with different buffers may run at the same time. */
#ifndef MORVA_CM6_H
#define MORVA_CM6_H

#include <stdint.h>

#include "morva/export.h"

MORVA_BEGIN

/* Encodes `nsamp` samples. Second differences wrap at 32 bits, so every series comes back as it
 * was. 0 samples give an empty line and the checksum line.
 *
 * *text is reused when *buffer_size, in bytes, is at least nsamp*7*1.0123456790123457 + 21 and at
 * least 7*nsamp + 7*nsamp/80 + 21, which long series of the longest values need. Otherwise it is
 * freed (unless *buffer_size is 0), a zeroed one of that size takes its place, and *buffer_size
 * tells the size. *nbytes becomes the length of the text; a zero byte follows it, not counted.
 *
 * Returns 0. A negative count, or a series whose text is longer than an int can tell, gives -1 with
 * the reason registered and all arguments unchanged. */
MORVA_API int cm6(const int32_t* samples, int nsamp, char** text, int* nbytes, int* buffer_size);

/* Decodes the text of a message: header lines (WID2, STA2, EID2, BEA2, DAT2) are skipped when the
 * text begins with them, and the data end at the first line that begins with "CHK2 ". The text need
 * not end with a zero byte, no byte behind text[nbytes-1] is read, and any bytes are safe to give.
 * Lines may be of any length and end with a newline or a carriage return and newline; a blank
 * between two values ends the data, as in a last line padded with blanks; a blank, tab or line end
 * inside a value is skipped.
 *
 * *samples is reused when *buffer_size, in samples, is at least `nbytes`, otherwise freed (unless
 * *buffer_size is 0) and replaced by a zeroed buffer of `nbytes` samples.
 *
 * Returns the number of samples, which *nsamp becomes too; or -1 with the reason registered and
 * *nsamp unchanged: no checksum line or no number in it, a character outside the alphabet, data
 * that end inside a value, a blank before the first value, or a number other than the checksum of
 * the samples. A number below 0 or beyond 32 bits is never the checksum. */
MORVA_API int um6(const char* text, int nbytes, int32_t** samples, int* nsamp, int* buffer_size);

/* What um6_anyway found. */
enum {
    UM6_GOOD = 0,             /* decoded to the end, and the checksum is right */
    UM6_MISMATCH = 1,         /* decoded to the end, but the samples have another checksum */
    UM6_NO_CHECKSUM_LINE = 2, /* decoded to the end of the text */
    UM6_NO_NUMBER = 3,        /* decoded to the end; the checksum line states no number */
    UM6_BAD_CHARACTER = 4,    /* decoded up to a character that no value can hold */
    UM6_CUT = 5               /* the data end inside a value; decoded up to that value */
};

typedef struct Um6_verdict {
    int32_t status;     /* the first of the problems above, UM6_GOOD without one */
    int32_t position;   /* offset in the text of the character where decoding stopped */
    int32_t has_stored; /* 1 when the checksum line states a number, else 0 */
    int32_t computed;   /* checksum of the samples that were decoded */
    int64_t stored;     /* the number stated, 0 without one; at the limits when beyond 64 bits */
} Um6_verdict;

/* As um6, but hands back every sample that decodes and the verdict apart from them: what is left of
 * a damaged message can be used, and a wrong checksum can be told from lost data.
 *
 * Returns the number of samples, perhaps 0, which *nsamp becomes too, with *verdict filled; nothing
 * is registered. -1 with the reason registered only for a negative `nbytes` or a null text. */
MORVA_API int um6_anyway(const char* text, int nbytes, int32_t** samples, int* nsamp,
                         int* buffer_size, Um6_verdict* verdict);

/* Writes a verdict in words, such as "CHK2 says 7, samples give 6", into a buffer of
 * UM6_REASON_SIZE bytes, and returns it. */
enum { UM6_REASON_SIZE = 80 };
MORVA_API char* um6_reason(const Um6_verdict* verdict, char* reason);

/* Writes the one to seven characters of a value at *cursor and moves the cursor behind them. No
 * zero byte is written. */
MORVA_API void stuff(int32_t value, char** cursor);

/* Reads one value at *cursor, where *remaining characters are left, and moves the cursor and lowers
 * *remaining by the characters read, also those that are skipped. Never reads behind them.
 *
 * Returns the number of errors, 0 for a good value: one for a blank (which is read; the value is 0)
 * or the end of the text in place of the first character; one for each character outside the
 * alphabet, which then counts as having all bits set, so that the value goes on; one for a value
 * without other errors that the end of the text cuts off. Bits beyond the 32nd of an endless value
 * are lost. Nothing is registered. */
MORVA_API int unstuff(int32_t* value, char** cursor, int* remaining);

/* The alphabet, a character for each six-bit code, and its inverse over ASCII: 255 for a character
 * that is none of it. */
extern MORVA_API const char Encode[65];
extern MORVA_API const unsigned char Decode[128];

/* Does nothing: the decoding table is made when the library is built, and needs no call before
 * threads decode. Kept for programs that call it. */
MORVA_API void initDecode(void);

/* The GSE2 "CHK2" checksum of `nsamp` samples, added to *checksum, which starts at 0 and is never
 * negative afterwards. Samples and running sum are reduced to less than 100000000 in size, keeping
 * their signs, and the absolute value of the last sum is the result; since that drops the sign, a
 * series added in several calls may give another checksum than in one. With no samples *checksum
 * becomes its absolute value. Always 0. */
MORVA_API int gse_checksum(const int32_t* samples, int nsamp, int32_t* checksum);

MORVA_END
#endif
