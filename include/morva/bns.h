/* Bns: a buffered binary stream over a descriptor, usually a connected socket.
 *
 *     Bns* out = bnsnew(fd, 0);
 *     bnsput(out, "PKT ", BNS_BYTE, 4);
 *     bnsput(out, &nsamp, BNS_INT, 1);
 *     bnsput(out, samples, BNS_INT, nsamp);
 *     if (bnsflush(out) != 0) elog_complain(0, "the client is gone\n");
 *
 *     Bns* in = bnsnew(fd, 0);
 *     if (gbnsSync(in, "PKT ", 4, 0) == 0 && bnsget(in, &nsamp, BNS_INT, 1) == 0) ...
 *
 * Items travel in the machine-independent order of bytes (skerrows.h). Puts gather in the buffer
 * until bnsflush writes them in one call. Reads wait for their bytes, each wait up to the timeout
 * of the stream. One stream serves one direction: to talk both ways, make two on one descriptor.
 *
 * Failures: -1 unless a function says otherwise, and the record tells the cause. `eof` is 1 at the
 * end of the input; a failed system call raises `err` and leaves its errno in `syserrno`; neither
 * after a timeout. Bytes that arrived are kept for the next call, and bytes that could not be
 * written are kept, too. Interrupted system calls are repeated.
 *
 * What peers send is never believed: the buffer grows by what a call asks for. A program that asks
 * for as much as a peer says sets a ceiling with bnslimit, and bounds whole calls with bnsdeadline.
 * A peer that is gone raises no SIGPIPE when the descriptor is a socket and the write routine the
 * default one.
 *
 * Snooping: while the dynamic control "bnssnoop" of the program is set, by whatever process, every
 * transfer is also appended to a file (bnssnoop).
 *
 * Threads: one at a time uses a stream. Out of memory is fatal. */
#ifndef MORVA_BNS_H
#define MORVA_BNS_H

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include "morva/export.h"
#include "morva/hot.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* How a stream moves bytes: as read and write do, with the stream's `flags` as fourth argument. A
 * caller may put a routine of its own into the record before the first transfer. A write routine
 * leaves the buffer as it is. */
typedef ssize_t (*Bns_routine)(int fd, void* buffer, size_t length, int flags);

typedef struct Bns {
    char* data;   /* the buffer */
    int64_t fp;   /* reading: the first byte not yet consumed; writing: not yet flushed */
    int64_t lp;   /* end of the valid bytes */
    int64_t mark; /* start of what is kept to be sent again; -1: nothing */
    int64_t sz;   /* bytes of the buffer; 0 <= mark <= fp <= lp <= sz */
    int32_t fd;
    int32_t eof;      /* 1: the last read met the end */
    int32_t err;      /* failed system calls so far */
    int32_t revents;  /* what the last wait found, as poll says it */
    int32_t syserrno; /* errno of the last failure */
    int32_t flags;    /* handed to the routines */
    int32_t timeout;  /* of each wait, in milliseconds */
    int64_t nbytes;   /* bytes moved in all */
    int64_t nsys;     /* calls of the routines */
    int32_t keep;     /* flushed messages to keep */
    Tbl* marktbl;     /* where they begin, oldest first: the items are offsets, not pointers */
    Bns_routine read_routine;
    Bns_routine write_routine;
    int64_t nin;       /* bytes consumed since bnsin */
    int64_t nout;      /* bytes appended since bnsout */
    char* snoop;       /* name of the snoop file, null: none */
    int32_t snoopfd;   /* its descriptor; means nothing without a name */
    int32_t snoopflag; /* index of the byte control "bnssnoop" */
    char* id;          /* label, or null */
    int32_t pid;       /* process that opened the snoop file */
    /* The stream's own. */
    int32_t is_socket; /* 1 yes, 0 no, -1 not known yet */
    int64_t limit;     /* largest buffer for input; 0: none */
    double deadline;   /* seconds for a whole reading call; 0: none */
    double until;      /* when the call under way must end */
    Tbl* snooped;      /* names of snoop files that were closed */
} Bns;

/* Types of items, with their sizes: 1, 2, 4, 8, 4 and 8 bytes. */
enum { BNS_BYTE, BNS_SHORT, BNS_INT, BNS_LONG, BNS_FLOAT, BNS_DOUBLE };

/* The default timeout of new streams in milliseconds, at first 60000. The environment variable
 * BNS_TIMEOUT, when it is set, changes it at each bnsnew. */
extern MORVA_API int BNS_TIMEOUT;

/* Other than 0: streams tell of timeouts and failures by elog_debug. */
extern MORVA_API int OrbVerbose;

/* A new stream on a descriptor, with a buffer of `size` bytes (0 or less: 32767). The caller ends
 * it with bnsclose or bnsfree. With the environment variable BNS_SNOOP it starts with that file as
 * its snoop file. */
MORVA_API Bns* bnsnew(int fd, int size);

/* Flushes, closes the descriptor and frees the stream. -1 when flushing or closing failed (the
 * stream is gone all the same). The snoop file's descriptor stays open. Null: 0. */
MORVA_API int bnsclose(Bns* bns);

/* Frees the stream; nothing is written and no descriptor closed. */
MORVA_API void bnsfree(Bns* bns);

/* ---- Reading ---- */

/* Reads `count` items of a type into `buffer`. -1 when the bytes do not arrive: nothing is consumed
 * then. -1 with a registered reason for another type or a negative count. */
MORVA_HOT int bnsget(Bns* bns, void* buffer, int type, int count);

/* Reads up to and including the byte `delimiter`. The bytes before it are stored, as many as fit
 * `size` with a terminator; the others are dropped. Returns the number stored, or -1 when the input
 * ended, failed or timed out first: what had arrived is then stored in the same way and consumed.
 */
MORVA_API long bnsgetc(Bns* bns, char* buffer, int size, int delimiter);

/* Whether the bytes of `text` come next. 0: yes, and they are consumed. 1: no, other bytes do.
 * -1: too few arrived. Without 0 nothing is consumed and the reason is registered. */
MORVA_API int bnspeek(Bns* bns, const char* text);

/* Skips input until the n bytes of `sync` were read. Returns 0, -1 when the input ended, failed or
 * timed out first, -2 when 32 bytes had to be skipped, or one with `nojunk` other than 0. What was
 * skipped is complained of and dumped to standard error. A byte that breaks a match is skipped with
 * it, not tried as the start of another. n below 1: 0. */
MORVA_API int gbnsSync(Bns* bns, const char* sync, int n, int nojunk);

/* Waits until there is something to read (the end of the input counts): 1, or 0 after the timeout,
 * or -1. */
MORVA_API int bnswait(Bns* bns);

/* Copies unread bytes, at most `max`, and empties the stream: bytes beyond are lost. Returns the
 * number copied. */
MORVA_API long bns2buf(Bns* bns, void* buffer, int max);

/* ---- Writing ---- */

/* Appends items to the buffer; returns 0, or -1 as bnsget for a bad type or count. */
MORVA_HOT int bnsput(Bns* bns, const void* buffer, int type, int count);

/* Appends n bytes; returns 0. Nothing for n below 1. */
MORVA_API int buf2bns(Bns* bns, const void* buffer, int n);

/* Writes what was put, in one call. After a failure, also after a write of a part, all of it stays
 * in the buffer. Returns 0 or -1. */
MORVA_API int bnsflush(Bns* bns);

/* Keeps the last n flushed messages, and writes them again in one call. bnsresend returns 0, also
 * when nothing is kept, or -1. bnskeep returns 0. */
MORVA_API int bnskeep(Bns* bns, int n);
MORVA_API int bnsresend(Bns* bns);

/* ---- Settings and counts ---- */

/* Sets the timeout of each wait, in milliseconds (negative: no limit); returns the one before. */
MORVA_API int bnstimeout(Bns* bns, int milliseconds);

/* Sets the seconds that a whole reading call may take, however often bytes trickle in; 0, negative
 * or NaN: no limit. Returns the one before. A call that runs into it ends like one that timed
 * out. */
MORVA_API double bnsdeadline(Bns* bns, double seconds);

/* Sets how many unread bytes reading may gather; 0 or less: no limit. Returns the number before. A
 * call that would need more fails with `syserrno` EMSGSIZE and a registered reason. The buffer
 * grows to at most twice as much. */
MORVA_API long bnslimit(Bns* bns, long bytes);

/* The label; with a text its copy becomes the label, and the old string is the caller's to free. */
MORVA_API char* bnsid(Bns* bns, const char* text);

/* Bytes consumed by reading, or appended by putting, since the last call. */
MORVA_API long bnsin(Bns* bns);
MORVA_API long bnsout(Bns* bns);

/* Forgets all that is buffered or kept, the counts of bnsin and bnsout, `eof` and `syserrno`, but
 * not `err`. Returns 0. */
MORVA_API int bnsclr(Bns* bns);

/* Enlarges the buffer by `extra` bytes, and at least to twice its size. Returns 0. */
MORVA_API int bnsresize(Bns* bns, long extra);

/* ---- Looking in ---- */

/* Copies traffic to a file from now on: it is opened for appending, made when missing (mode 0664;
 * for the owner alone in a process with more rights than its user), and the control "bnssnoop" is
 * set, which makes all streams of the program snoop. A file before it is closed. For each transfer
 * there is a line "\n\n#msg PID DIRECTION FD ID COUNT SECONDS\n" (direction "<" or ">", "anon"
 * without an id) and the bytes. Returns 0; -1 with the reason registered when the file cannot be
 * opened, or when closing the one before failed. */
MORVA_API int bnssnoop(Bns* bns, const char* filename);

/* Prints the state of a stream. Returns 0. */
MORVA_API int bnsdump(FILE* stream, Bns* bns);

MORVA_END
#endif
