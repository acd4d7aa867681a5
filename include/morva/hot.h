/* MORVA_HOT marks exported functions that are about as short as the call itself: with compilers
 * that can, programs call them by their address and skip the jump of the procedure linkage table.
 */
#ifndef MORVA_HOT_H
#define MORVA_HOT_H

#include "morva/export.h"

#ifdef __has_attribute
#if __has_attribute(__noplt__)
#define MORVA_HOT __attribute__((__noplt__)) MORVA_API
#endif
#endif
#ifndef MORVA_HOT
#define MORVA_HOT MORVA_API
#endif

#endif
