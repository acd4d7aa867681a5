/* libskerrows: the platform beneath libmorva: clock, waits, timers, names of zones, hosts, users
 * and signals, stack traces, byte order, and the globals that libmorva's families share.
 *
 *     double start = std_now();
 *     if (std_poll(&fd, 1, 5000) == 0) printf("nothing for %.1f seconds\n", std_now() - start);
 *
 * Conventions:
 *   1. Status results are 0 for success and -1 for failure with the reason in errno. This library
 *      lies below the message register: it registers and prints nothing.
 *   2. Interrupted system calls are retried.
 *   3. Every function may be called from any thread at any time; those that may be called from a
 *      signal handler say so. No function keeps a reference to its arguments.
 */
#ifndef SKERROWS_H
#define SKERROWS_H

#include <poll.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define SKERROWS_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

struct Arr;
struct Grave;
struct Pf;

typedef void (*Mortician)(struct Pf* pf);

/* ---- Clock and waits ---- */

/* The current time in epoch seconds, UTC, as fine as the system's clock and a double allow (some
 * 0.2 microseconds). Signal handlers may call it. */
SKERROWS_API double std_now(void);

/* As poll, but a wait that a signal interrupts goes on with the time that is left. A negative
 * timeout waits for ever. Returns the number of descriptors with events, 0 when the time is over,
 * or -1 with errno, never EINTR. */
SKERROWS_API int std_poll(struct pollfd* fds, nfds_t count, int timeout_ms);

/* Sleeps for the whole of `seconds`, fractions included, whatever signals arrive. Zero, negative
 * numbers and NaN do not sleep; 1e9 seconds (31 years) is the longest sleep. Returns 0. Signal
 * handlers may call it. */
SKERROWS_API int std_sleep(double seconds);

/* ---- Waiting for memory to change ---- */

/* Waits while the word holds `value`, until std_wake_word is called for it, here or in another
 * process that shares the memory, but no longer than `seconds`. Returns 0 when the word holds
 * something else or the wait ended early, which may have no reason; so look at the word again. -1
 * with errno otherwise: ETIMEDOUT after the time, EFAULT when the memory is not there. */
SKERROWS_API int std_wait_word(const int32_t* word, int32_t value, double seconds);

/* Wakes all that wait for the word; store the new value first. Signal handlers may call it. Returns
 * 0, or -1 with errno. */
SKERROWS_API int std_wake_word(const int32_t* word);

/* ---- Descriptors ---- */

/* A pipe, to read from at ends[0] and to write to at ends[1]. Neither end is handed on to programs
 * that the process starts. Returns 0, or -1 with errno. */
SKERROWS_API int std_pipe(int ends[2]);

/* ---- One-shot timers ----
 *
 * A timer's function runs in a thread of its own, not in a signal handler: it may allocate, take
 * locks, write messages, end the process. Signals are as they were in the thread that armed or
 * prepared the first timer. */

#define STD_MAX_TIMERS 64

/* Calls `function` once, `seconds` from now: never earlier, at once when `seconds` is zero or
 * negative. Setting the system's clock does not move it. At most STD_MAX_TIMERS timers wait at a
 * time; an armed timer cannot be cancelled. A forked child inherits none. A signal handler may call
 * it once std_prepare_timer, or std_set_timer outside of a handler, has succeeded in this process.
 * Before that, the call starts a thread, which may never return if the signal interrupted an
 * allocation. Returns 0, or -1 with errno: EINVAL (no function, or NaN), EAGAIN (too many timers,
 * or no thread to be had). */
SKERROWS_API int std_set_timer(void (*function)(void), double seconds);

/* Makes everything ready for timers that a signal handler will arm: call it where the handler is
 * installed, and in a forked child again. Returns 0, or -1 with errno when the thread cannot be
 * started. */
SKERROWS_API int std_prepare_timer(void);

/* ---- The environment ---- */

/* As getenv, but null in a process that runs with more rights than its user (set-user-ID and the
 * like), where the environment is not to be believed. Valid until the variable is changed. */
SKERROWS_API const char* std_getenv(const char* name);

/* 1 in such a process, else 0: the current folder is then not to be believed either. */
SKERROWS_API int std_is_secure(void);

/* 1 when `name` is a name of the system's zone database ("US/Mountain"), or "UTC" or "GMT", which
 * are known even where no database is installed; else 0. Zone texts with rules ("EST5EDT4,M3...")
 * are not names. Absolute names, names with dots or other foreign characters, empty ones and those
 * beyond 255 characters are unknown without a look at the disk. The database is looked for in the
 * folder that TZDIR names (as std_getenv sees it), else in the usual ones; a file counts when it
 * begins as zone files do ("TZif"). Takes some microseconds. Preserves errno. */
SKERROWS_API int is_timezone(const char* name);

/* Opens the file of a zone that is_timezone knows, for reading from its start, or the zone file at
 * an absolute path. Returns the descriptor, or -1 where there is none, or none that begins as zone
 * files do. Preserves errno. */
SKERROWS_API int open_timezone(const char* name);

/* 1 when the file lies on an NFS file system, where locks are not to be relied on; for a missing
 * file, its folder counts. 0 otherwise and when the system does not tell. Preserves errno. */
SKERROWS_API int is_nfs(const char* path);

/* The host's name, the name of the process's effective user, and the first address of a host in the
 * system's order of preference as numeric text ("192.0.2.7", "2001:db8::7"; an address is itself),
 * put into `size` bytes. name2ip may wait for name servers. Return 0, or -1 with errno and the
 * buffer untouched: ERANGE when it is too small, ENOENT when the user or the host has no entry,
 * EINVAL for an empty host name, EAGAIN when a name server did not answer. */
SKERROWS_API int my_hostname(char* name, size_t size);
SKERROWS_API int my_username(char* name, size_t size);
SKERROWS_API int name2ip(const char* name, char* address, size_t size);

/* The absolute path of the running executable, also when it has been moved or replaced since (then
 * the name it had). Where the system does not tell: the name it was started by, which may be
 * relative. Null when neither is known. The text lives as long as the process. */
SKERROWS_API const char* getexecname(void);

/* ---- Stack traces and signals ---- */

/* Prints the calling thread's calls to `stream`, innermost first, one line each: number, address,
 * function with its offset, module. The caller of this function is number 0. C++ names are
 * demangled; names of static functions are found too, unless the program was stripped. At most 128
 * calls are shown.
 * Fault-signal handlers may call it: it then shows the handler, what it interrupted, and so on.
 * Nothing is allocated except by the demangler, which is left out (names then appear as the linker
 * knows them) on an alternate signal stack and when the signal interrupted the allocator or the C
 * library. What remains: the stream is locked and flushed, so it must not be one that the
 * interrupted code was writing to, and a buffered stream allocates its buffer at its first use
 * (stderr has none); an alternate stack should have 16 kB to spare.
 * Returns 0, or -1 when nothing could be found or written. Preserves errno. */
SKERROWS_API int show_stack_trace(FILE* stream);

#define SIG2STR_MAX 32 /* bytes for the longest name of a signal */

/* The name of a signal without "SIG" ("INT"), put into `name` (SIG2STR_MAX bytes). 0 is "EXIT";
 * real-time signals are "RTMIN", "RTMIN+1", ... and in the upper half "RTMAX-1", ... "RTMAX".
 * Returns 0, or -1 (EINVAL) with `name` untouched. Signal handlers may call it. */
SKERROWS_API int sig2str(int signo, char* name);

/* The number of a signal named as above, in capitals and without "SIG". Other names in use ("IOT",
 * "CLD", "IO"), any real-time signal counted from either end, and decimal numbers of signals are
 * understood, too. Returns 0, or -1 (EINVAL) with `signo` untouched. */
SKERROWS_API int str2sig(const char* name, int* signo);

/* ---- Byte order ----
 *
 * Convert `count` items between the host's order and the machine-independent one, which is
 * big-endian: h for host, m for machine-independent, then the type: s 2-byte integer, i 4-byte
 * integer, l 8-byte integer, f float, d double (bit patterns are kept, those of NaNs too).
 *
 *     char* cursor = packet;
 *     mi2hi(&cursor, header, 4);       // four integers
 *     md2hd(&cursor, samples, n);      // then n doubles
 *
 * `*source` points to the items and is moved behind the last; `destination` receives as many.
 * Neither needs to be aligned. They may be the same memory, and may overlap in any other way: the
 * result is right, the source is then partly overwritten. A count of 0 or less does nothing. Signal
 * handlers may call them. */

SKERROWS_API void hs2ms(char** source, void* destination, long count);
SKERROWS_API void ms2hs(char** source, void* destination, long count);
SKERROWS_API void hi2mi(char** source, void* destination, long count);
SKERROWS_API void mi2hi(char** source, void* destination, long count);
SKERROWS_API void hl2ml(char** source, void* destination, long count);
SKERROWS_API void ml2hl(char** source, void* destination, long count);
SKERROWS_API void hf2mf(char** source, void* destination, long count);
SKERROWS_API void mf2hf(char** source, void* destination, long count);
SKERROWS_API void hd2md(char** source, void* destination, long count);
SKERROWS_API void md2hd(char** source, void* destination, long count);

/* ---- Globals that the families of libmorva share ----
 *
 * They live here so that programs and libraries of the family see one set. Each starts empty. */

/* Halting: the flag that the halt handler raises, the seconds until it ends the process (0: never),
 * and the function that is asked for last words then. */
extern SKERROWS_API int* Halt_flag;
extern SKERROWS_API int Halt_In_Seconds;
extern SKERROWS_API Mortician Halt_Mortician;

/* The state that is saved when the process ends, and its lock. */
extern SKERROWS_API struct Grave* grave;
extern SKERROWS_API pthread_mutex_t grave_mutex;

/* The parameter files that have been read, their lock, and the number of readers at work. */
extern SKERROWS_API struct Arr* Pflist;
extern SKERROWS_API pthread_mutex_t Pflist_mutex;
extern SKERROWS_API int Pf_busy;

#ifdef __cplusplus
}
#endif
#endif
