/* Periodic tasks: a function that a thread of its own calls again and again.
 *
 *     int task = periodically("sweep", sweep, cache, &quit, 60.0);
 *     ...
 *     pkill(task);
 *
 * Threads: all functions may be called from any thread. */
#ifndef MORVA_PERIODIC_H
#define MORVA_PERIODIC_H

#include "morva/export.h"

MORVA_BEGIN

/* Starts a thread that calls function(private_data), sleeps `interval` seconds, and so on, until
 * the variable `quit` (null: none) is not 0, the task is stopped, or the function returns something
 * other than 0. While bit 0 of the dynamic control `name` is set, each call is told. Returns the
 * index of the task, or -1 with the reason registered. The variable must live as long as the
 * thread. */
MORVA_API int periodically(const char* name, int (*function)(void* private_data),
                           void* private_data, int* quit, double interval);

/* Asks a task to stop: it does when the call under way is over. Returns 0, or -1 when there is no
 * such task; tells both. */
MORVA_API int pkill(int index);

MORVA_END
#endif
