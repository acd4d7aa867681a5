/* libskerrows: the platform beneath libmorva. */
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

SKERROWS_API double std_now(void);
SKERROWS_API int std_poll(struct pollfd* fds, nfds_t count, int timeout_ms);
SKERROWS_API int std_sleep(double seconds);
SKERROWS_API int std_set_timer(void (*function)(void), double seconds);

SKERROWS_API int is_timezone(const char* name);
SKERROWS_API int is_nfs(const char* path);
SKERROWS_API int my_hostname(char* name, size_t size);
SKERROWS_API int my_username(char* name, size_t size);
SKERROWS_API int name2ip(const char* name, char* address, size_t size);
SKERROWS_API int show_stack_trace(FILE* stream);
SKERROWS_API int sig2str(int signo, char* name);
SKERROWS_API int str2sig(const char* name, int* signo);
SKERROWS_API const char* getexecname(void);

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

extern SKERROWS_API int* Halt_flag;
extern SKERROWS_API int Halt_In_Seconds;
extern SKERROWS_API Mortician Halt_Mortician;
extern SKERROWS_API struct Grave* grave;
extern SKERROWS_API pthread_mutex_t grave_mutex;
extern SKERROWS_API struct Arr* Pflist;
extern SKERROWS_API pthread_mutex_t Pflist_mutex;
extern SKERROWS_API int Pf_busy;

#ifdef __cplusplus
}
#endif
#endif
