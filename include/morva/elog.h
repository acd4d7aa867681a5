/* elog: the message register, the library's single channel for diagnostics. */
#ifndef MORVA_ELOG_H
#define MORVA_ELOG_H

#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include "morva/export.h"
#include "morva/xlat.h"

MORVA_BEGIN

struct Tbl;

enum {
    ELOG_LOG = 0,
    ELOG_DEBUGGING = 1,
    ELOG_NOTIFY = 2,
    ELOG_ALERT = 3,
    ELOG_COMPLAIN = 4,
    ELOG_DIE = 5,
    ELOG_FAULT = 6,
    ELOG_NSEVERITY = 7
};

enum {
    ELOG_TBL = 0,
    ELOG_TBLCP = 1,
    ELOG_TBLCPCL = 2,
    ELOG_ARGV = 3,
    ELOG_ARGC = 4,
    ELOG_COUNT = 5,
    ELOG_VERSION = 6,
    ELOG_MAXMSG = 7,
    ELOG_TAG = 8,
    ELOG_DELIVER = 9,
    ELOG_DEBUG = 10,
    ELOG_SIGNALS = 11,
    ELOG_CALLBACK = 12,
    ELOG_STRING = 13
};

enum { ELOG_XLAT_COUNT = 22 };

typedef struct Elog_msg {
    char* tag;
    char* msg;
    char* sys;
    int32_t severity;
    int32_t count;
    pthread_t thread;
} Elog_msg;

typedef int (*Elog_callback)(int severity, char* text, struct Tbl* messages);

extern MORVA_API char* Program_Name;
extern MORVA_API int Max_msg;
extern MORVA_API int Argc;
extern MORVA_API char** Argv;
extern MORVA_API const Xlat Elog_xlat[ELOG_XLAT_COUNT];

MORVA_API int elog_init(int argc, char** argv);
MORVA_API void elog_log(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_debug(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_notify(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_alert(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_complain(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_NORETURN MORVA_API void elog_die(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_NORETURN MORVA_API void elog_fault(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog(int severity, int flag, const char* format, va_list arguments)
    MORVA_PRINTF(3, 0);
MORVA_API char* elogs(int severity, int flag, const char* format, ...) MORVA_PRINTF(3, 4);

MORVA_API int elog_mark(void);
MORVA_API int elog_flush(int print, int mark);
MORVA_API int elog_clear_register(int print);
MORVA_API int elog_clear(void);
MORVA_API int elog_truncate(int n);
MORVA_API int elog_print(FILE* stream, int start);
MORVA_API char* elog_string(int start);
MORVA_API int elog_msg_print(FILE* stream, Elog_msg* message);
MORVA_API char* elog_severity(int severity);
MORVA_API int elog_deliver(const char* delivery, int start, Elog_msg* message);
MORVA_API int elog_query(int code, int severity, void* result);
MORVA_API int elog_set(int code, int severity, void* value);
MORVA_API void elog_commandline(void);
MORVA_API char* elog_commandline_str(void);

MORVA_END
#endif
