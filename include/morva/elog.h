/* elog: the message register, the library's single channel for diagnostics.
 *
 *     int main(int argc, char** argv) {
 *         elog_init(argc, argv);
 *         if (load(path) < 0)                               // load used elog_log for its reasons
 *             elog_complain(0, "can't use %s\n", path);     // shows the reasons, then this
 *         int mark = elog_mark();
 *         if (try_shortcut() < 0) elog_flush(0, mark);      // a failure that was expected
 *         if (fd < 0) elog_die(1, "no data from %s", name); // adds errno's text; exits with 1
 *     }
 *
 * A message has a severity. Each severity has a delivery (where its messages go), a tag (what
 * stands before the text), a debugger command and a flag that asks for a stack trace. Messages of
 * severity ELOG_LOG stay in the register, unseen, until a message that is delivered shows the whole
 * story, or until they are discarded. The message is laid out as
 *
 *     TAG: TEXT
 *     <tab>SYSTEM ERROR                when asked for
 *     <tab>** repeated N times         when the same text was logged N times in a row
 *
 * A text that begins with a newline has it moved before the tag, an empty one has no tag, and one
 * that begins with "*stack*" also prints a stack trace to standard error. A text is cut, with a
 * remark at its end, to fit a buffer of 10240 bytes.
 *
 * Deliveries are words separated by blanks or tabs:
 *     log             keep the message in the register; so does an empty delivery
 *     stderr, stdout  the streams
 *     /path, ./path   append to this file, created with permissions 0664; one write for the whole
 *                     text, so that the lines of several processes do not mix. /dev/null discards
 *     orb:RING        the routine set with elog_set_orb_logger
 * A message that no word could show goes to standard error with the reason; nothing is lost.
 *
 * Tags may hold these tokens; anything else stands for itself:
 *     %P  Program_Name                    %h  the host's name
 *     %p  the process number              %t  local time in the t_format layout
 *     %r  the program's path as invoked   %u  universal time in the u_format layout
 *     %d  the program's folder            %s  seconds since the reference time (see code 14)
 *     %%  a percent sign
 * Debugger commands take the same tokens; a word that means something to the shell is quoted.
 * Deliveries, tags and commands keep their first 48 characters.
 *
 * Settings come from the defaults built in, the parameter file `elog`, and the environment, in this
 * order; a process with more rights than its user ignores the environment:
 *     ELOG_MAXMSG   most messages that the register holds before the program ends; 0: no limit
 *     ELOG_STACK    letters of severities that print a stack trace: l log, D debug, n notify,
 *                   c complain, d die, a or f fault
 *     ELOG_SIGNALS  fault signals to report, as in "ILL:TRAP:FPE:BUS:SEGV:SYS", the default; "SIG"
 *                   may stand before a name
 *     ELOG_DELIVER, ELOG_TAG, ELOG_DEBUG
 *                   groups VALUE@LETTERS, separated by blanks or by "@"; letters as above, but "a"
 *                   is alert. A backslash takes the next character as it is, an empty value means
 *                   the default, a last value without "@" is given to all severities:
 *                       ELOG_DELIVER='stderr /tmp/errors@cd'    ELOG_DEBUG='@d'
 *
 * Threads: all functions may be called from any thread; one lock guards the register and every
 * delivery. The callback, the write function of a custom stream, and signal handlers may call in
 * again. A signal handler that hits the register while it changes, is read or is printed to a
 * standard stream has its message written to standard error at once. A thread is not cancelled
 * while it is in here. After fork, the child goes on with a copy of the register. errno is 0 after
 * each message; the first call of any function initialises the register and keeps errno. No
 * function returns for want of memory unless it says so.
 */
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

/* Severities. The default delivery is stderr, for ELOG_LOG none; the default tag is "%P", followed
 * by " *debug*", " *alert*", " *fatal*" or " *fault*" for those severities. */
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

/* Codes of elog_query and elog_set. */
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

/* A message. The strings come from malloc and belong to the record, the record to its list. */
typedef struct Elog_msg {
    char* tag;        /* NULL when the message has none */
    char* msg;        /* the text; ends in a newline */
    char* sys;        /* system error text or NULL */
    int32_t severity; /* ELOG_LOG ... */
    int32_t count;    /* times logged in a row, 1 at first */
    pthread_t thread; /* that logged it */
} Elog_msg;

/* Called for each message before its delivery, with the text of the whole register and the message
 * (valid during the call) and the register. Returns 0 to have the message delivered as set, or
 * another value when it has taken care of everything: the register is then cleared. Called with the
 * register's lock held: messages that it raises itself are delivered without a further call. */
typedef int (*Elog_callback)(int severity, char* text, struct Tbl* messages);

/* Takes the text of a delivery to a packet ring. Called without the lock, so it may block and log.
 * Returns 0; with any other result the text goes to standard error. */
typedef int (*Elog_orb_logger)(const char* ring, const char* program, const char* text);

/* The last component of argv[0]; before elog_init "Unknown_Program". */
extern MORVA_API char* Program_Name;
/* The most messages that may stay in the register; below 1 any number. Default 50. A message beyond
 * shows the register as the die severity would and ends the program with status 1. */
extern MORVA_API int Max_msg;
/* A copy of the command line; Argv ends in a null pointer, and is NULL before elog_init. */
extern MORVA_API int Argc;
extern MORVA_API char** Argv;
/* Symbols of this header by name: the severities, ELOG_NSEVERITY, the codes. */
extern MORVA_API const Xlat Elog_xlat[ELOG_XLAT_COUNT];

/* Records the command line and loads the settings. May be called again: the command line is
 * replaced (what Program_Name and Argv pointed to is then gone, unless it is the same), and the
 * environment is read again. With argc 0 or argv NULL the command line stays. Returns 0. A fault
 * signal that the program already handles or ignores is left alone. Those taken over are reported
 * at fault severity, after which they take their default course. Threads that may overflow their
 * stack need a sigaltstack of their own; the initialising thread is given one. */
MORVA_API int elog_init(int argc, char** argv);

/* Raise a message. A flag other than 0 adds the text of errno, if that is not 0.
 * elog_die ends the process with status 1, after burying its state and flushing all streams (but
 * waits for no thread that is reading standard input); elog_fault aborts. When several threads die,
 * the first one ends the process and the others wait for that, ten seconds at most. */
MORVA_API void elog_log(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_debug(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_notify(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_alert(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_API void elog_complain(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_NORETURN MORVA_API void elog_die(int flag, const char* format, ...) MORVA_PRINTF(2, 3);
MORVA_NORETURN MORVA_API void elog_fault(int flag, const char* format, ...) MORVA_PRINTF(2, 3);

/* Does what all of the above do. ELOG_DIE and ELOG_FAULT do not return from here either; a number
 * that is no severity counts as ELOG_COMPLAIN. */
MORVA_API void elog(int severity, int flag, const char* format, va_list arguments)
    MORVA_PRINTF(3, 0);

/* The message as elog would lay it out, as a new string that the caller frees. Neither registers
 * nor delivers anything. */
MORVA_API char* elogs(int severity, int flag, const char* format, ...) MORVA_PRINTF(3, 4);

/* Number of messages in the register, to flush back to. */
MORVA_API int elog_mark(void);

/* Forgets the messages from index mark on. With print other than 0 they are shown first, with the
 * delivery of ELOG_COMPLAIN, unless the callback, called with severity ELOG_NOTIFY and their text,
 * has taken care of them. Returns 0. */
MORVA_API int elog_flush(int print, int mark);

/* As elog_flush(print, 0) followed by elog_clear. */
MORVA_API int elog_clear_register(int print);

/* Forgets all messages and sets errno to 0. Returns 0. */
MORVA_API int elog_clear(void);

/* Forgets the messages from index n on. Returns 0. */
MORVA_API int elog_truncate(int n);

/* Writes the messages from index start on and flushes the stream; they stay in the register.
 * Returns 0, or -1 when the stream failed. */
MORVA_API int elog_print(FILE* stream, int start);

/* The messages from index start on as a new string that the caller frees. */
MORVA_API char* elog_string(int start);

/* As elog_print, for one message record. */
MORVA_API int elog_msg_print(FILE* stream, Elog_msg* message);

/* Name of a severity: "log", "debug", "notify", "alert", "complain", "die", "fault"; "unknown" for
 * any other number. Static text. */
MORVA_API char* elog_severity(int severity);

/* Shows the register from index start on and then the message (may be NULL) as the words of the
 * delivery say, and forgets them; the message stays in the register when no word takes it. The
 * message and its strings come from malloc and belong to the register from now on. Returns 0. */
MORVA_API int elog_deliver(const char* delivery, int start, Elog_msg* message);

/* elog_query stores the answer through result, whose type depends on the code; elog_set takes
 * texts, lists and functions as they are, numbers as (void*)(intptr_t)n. Both return 0, or -1 for a
 * code that cannot do that, a null result or text, a severity that is none.
 *
 *   code           result     elog_query                          elog_set
 *   ELOG_TBL       Tbl**      the register; not the caller's      uses this list of Elog_msg*
 *                                                                 (NULL: a new one); the old list
 *                                                                 is the caller's now
 *   ELOG_TBLCP     Tbl**      a copy for the caller, who frees    -1
 *                             it with freetbl(copy,
 *                             elog_free_msg); -1 when memory
 *                             runs out
 *   ELOG_TBLCPCL   Tbl**      the same, and clears the register   -1
 *   ELOG_ARGV      char***    Argv                                sets Argv to this vector, which
 *                                                                 must live on
 *   ELOG_ARGC      int*       Argc                                sets it
 *   ELOG_COUNT     int*       number of messages                  truncates to this number
 *   ELOG_VERSION              -1                                  -1
 *   ELOG_MAXMSG    int*       Max_msg                             sets it
 *   ELOG_TAG       char**     the severity's tag                  sets it; when severity is none,
 *                                                                 sets all seven
 *   ELOG_DELIVER   char**     the severity's delivery             sets it
 *   ELOG_DEBUG     char**     the severity's debugger command     sets it
 *   ELOG_SIGNALS   char**     list of intercepted signals         intercepts just these, whoever
 *                                                                 handled them; -1 with a reason
 *                                                                 for a name that is none
 *   ELOG_CALLBACK  Elog_callback*  the callback or NULL           installs it (NULL: none)
 *   ELOG_STRING    char**     elog_string(severity)               -1
 *   14             double*    the reference time; -1, at first,   sets it from the double that
 *                             stands for the initialisation       value points to
 *   15             char**     Program_Name                        -1
 *
 * Texts that elog_query gives belong to the register and change with the setting. */
MORVA_API int elog_query(int code, int severity, void* result);
MORVA_API int elog_set(int code, int severity, void* value);

/* Reports the recorded command line with elog_notify, between "\n--> " and " <#>\n\n". */
MORVA_API void elog_commandline(void);

/* The recorded command line, its arguments separated by blanks, as a new string that the caller
 * frees; empty before elog_init. */
MORVA_API char* elog_commandline_str(void);

/* ---- Beside the register ---- */

/* Frees a message record and its strings; NULL is ignored. */
MORVA_API void elog_free_msg(void* message);

/* Sets the routine that "orb:" deliveries use; NULL for none, as at first. */
MORVA_API void elog_set_orb_logger(Elog_orb_logger logger);

/* For a callback: the message that it is called for, or NULL (elog_flush has none), and, when start
 * is not NULL, the index of the first message of the register that belongs to the text. */
MORVA_API const Elog_msg* elog_in_hand(int* start);

/* A callback, to be installed with elog_set(ELOG_CALLBACK, 0, elog_json), that writes each
 * delivered message, and what the register holds before it, as a line of JSON:
 *
 *     {"time":1700000000.123456,"severity":"complain","program":"prog","thread":140033,
 *      "tag":"prog","text":"can't open x","error":"No such file or directory","count":2}
 *
 * time is when the line is written. tag and error are left out when the message has none, count
 * when it is 1; text is without its last newline. Bytes that are no UTF-8 appear as \u0080 to
 * \u00ff. Messages that their delivery keeps in the register stay there; when the stream fails, the
 * usual delivery takes over. */
MORVA_API int elog_json(int severity, char* text, struct Tbl* messages);

/* Where elog_json writes; NULL, as at first, for standard error. */
MORVA_API void elog_json_stream(FILE* stream);

MORVA_END
#endif
