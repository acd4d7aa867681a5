/* Signals: ending on request, and what signals are called.
 *
 *     static int halt;
 *     setup_signals(&halt, 0, 30);
 *     while (!halt) ...
 *
 * Threads: any, except that handlers are set up by one thread. */
#ifndef MORVA_SIGNALS_H
#define MORVA_SIGNALS_H

#include "morva/export.h"
#include "skerrows.h"

MORVA_BEGIN

/* From now on SIGHUP, SIGINT, SIGQUIT and SIGTERM set the flag to 1. With positive seconds the
 * program has that long to end by itself; then the mortician, unless it is null, is called with a
 * new tree, and the process ends by elog_die. The values are kept in Halt_flag, Halt_Mortician and
 * Halt_In_Seconds. Returns 0. */
MORVA_API int setup_signals(int* halt_flag, Mortician mortician, int seconds);

/* Makes a function the handler of the four signals, other handlers not blocked and calls
 * interrupted. Returns 0; a failure ends the process. */
MORVA_API int setup_signal_handlers(void (*handler)(int));

/* Ends the process by elog_die, "quitting from die_soon alarm", when the seconds are over. Returns
 * 0, unless no timer can be had: then it waits itself and ends the process. */
MORVA_API int die_soon(double seconds);

/* A signal: number, name without "SIG" (or the number as text), description. */
typedef struct Signal {
    int number;
    char* name;
    char* description;
} Signal;

/* The record of a signal, by number or by name ("INT" or "SIGINT"); an unknown name has the number
 * -1. It is valid until the same thread calls the function again. */
MORVA_API Signal* signal_bysig(int signo);
MORVA_API Signal* signal_byname(const char* name);

/* Writes the name of a signal (only when size is at least 64), directly followed by its
 * description, cut to fit. Returns buf. */
MORVA_API char* signal_desc(int signo, char* buf, int size);

MORVA_END
#endif
