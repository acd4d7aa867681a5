/* libmorva: general-purpose routines for real-time data acquisition programs.
 *
 * Conventions of every family:
 *   1. Results. Status results are 0 for success and -1 (or another documented code) for failure;
 *      routines that return a pointer return NULL on failure.
 *   2. Reasons. Before it returns a failure, a routine registers the reason with elog_log; it
 * prints nothing. The caller shows the reasons (elog_complain), discards them (elog_mark,
 * elog_flush) or ends the program (elog_die).
 *   3. Memory. Running out of it ends the process through elog_die; no routine returns for want of
 *      memory unless its description says so. What the caller must free comes from malloc.
 *   4. Ownership. What a new... or open... call made, the matching free... or close... call frees.
 *      Strings from formatting routines are new and the caller's; strings from getters belong to
 * the structure they came from.
 *   5. Threads. Objects have no locks of their own: users of one object take turns. Different
 * objects may be used by different threads at once. Families with process-wide state say how they
 * guard it.
 *   6. Units. Times are seconds since 1970-01-01 00:00:00 UTC as double unless a name says
 * otherwise, waits are milliseconds, sizes are bytes.
 *   7. Callbacks must return normally: they may not throw, and may not longjmp out of the library.
 */
#ifndef MORVA_H
#define MORVA_H

#include "morva/arr.h"
#include "morva/banner.h"
#include "morva/bns.h"
#include "morva/cabinets.h"
#include "morva/ccanada.h"
#include "morva/checksums.h"
#include "morva/cm6.h"
#include "morva/dynamic_controls.h"
#include "morva/elog.h"
#include "morva/epoch.h"
#include "morva/export.h"
#include "morva/files.h"
#include "morva/fortran.h"
#include "morva/gencompress.h"
#include "morva/gravesite.h"
#include "morva/iso.h"
#include "morva/legit_ip.h"
#include "morva/md5.h"
#include "morva/morph.h"
#include "morva/paths.h"
#include "morva/periodic.h"
#include "morva/pf.h"
#include "morva/pfcheck.h"
#include "morva/pfexpand.h"
#include "morva/pflex.h"
#include "morva/pfread.h"
#include "morva/pfresolve.h"
#include "morva/pftime.h"
#include "morva/pfwrite.h"
#include "morva/redblack.h"
#include "morva/ring.h"
#include "morva/ringlet.h"
#include "morva/sha.h"
#include "morva/signals.h"
#include "morva/sockets.h"
#include "morva/stbl.h"
#include "morva/str2epoch.h"
#include "morva/strings.h"
#include "morva/strmatches.h"
#include "morva/tbl.h"
#include "morva/ucsd.h"
#include "morva/units.h"
#include "morva/vkcompress.h"
#include "morva/xheap.h"
#include "morva/xlat.h"

#endif
