/* Times in parameter files.
 *
 *     double start = pfget_time(pf, "start");          // start  2014-06-24 12:30
 *     if (pfrequire("site", "2014-01-01") != 0) elog_die(0, "site.pf is too old\n");
 *
 * Threads: as the getters and setters of morva/pf.h.
 */
#ifndef MORVA_PFTIME_H
#define MORVA_PFTIME_H

#include "morva/export.h"
#include "morva/pf.h"

MORVA_BEGIN

/* The epoch time that the string at the path says (morva/str2epoch.h). A text with errors is a
 * complaint, "Bad time value '%s' for %s", and gives what str2epoch makes of it; a missing value
 * goes to pfdie, as with pfget_double. */
MORVA_API double pfget_time(Pf* pf, const char* path);

/* Stores a time as epoch time, date, clock time, zone and day of the week: "1403568000.000 (175)
 * 2014-06-24  00:00:00.000 UTC Tuesday". The zone is the process's own. It reads back as the same
 * time, to the millisecond, where that zone is UTC; any other zone in the text shifts it, as it
 * does every time that is given directly. Returns 0. */
MORVA_API int pfput_time(Pf* pf, char* key, double epoch);

/* Is the file recent enough? Reads the last of the parameter files `name` on the search path alone,
 * and compares its pf_revision_time with a date. Returns 0 when it is not earlier; else, with the
 * reason registered, -1 without a pf_revision_time, -2 when it is earlier, -3 when the file has
 * errors, -4 when there is none. */
MORVA_API int pfrequire(const char* name, const char* date);

MORVA_END
#endif
