/* Who may connect: addresses against the lists of a parameter file.
 *
 *     valid_ip_addresses &Tbl{
 *         10.0.0.0     255.0.0.0                 the institute
 *         2001:db8::   ffff:ffff::               partners
 *     }
 *     reject_ip_addresses &Tbl{
 *         10.0.13.0    255.255.255.0             the guests' network
 *     }
 *
 * Each entry is an address, a mask of the same form, and a comment. It matches an address that
 * equals its own in all bits of the mask. The first entry of the first list that matches lets an
 * address in, unless an entry of the second list matches, too. A client that comes over IPv4 to an
 * IPv6 socket has an address of IPv6 (::ffff:a.b.c.d) and matches entries in this form only.
 *
 * The comment of the entry that decided is stored as a new string, or null when it has none; the
 * caller frees it. Nothing is stored when no entry matched. A null variable is allowed.
 *
 * Threads: any; the two globals belong to the last check of the process. */
#ifndef MORVA_LEGIT_IP_H
#define MORVA_LEGIT_IP_H

#include <stdint.h>
#include <sys/socket.h>

#include "morva/export.h"
#include "morva/pf.h"

MORVA_BEGIN

/* The entry of each list that decided the last check, counted from 0; -1: none. */
extern MORVA_API int Legit_accept;
extern MORVA_API int Legit_reject;

/* 1 when the peer of a connected socket is let in, else 0. Of bad entries the program complains;
 * they match nothing. The name is not used. A socket without a peer is turned away with a notice, a
 * missing first list turns everybody away with a complaint. */
MORVA_API int legit_fd(const char* name, Pf* pf, int fd, char** comment);

/* The same for an address. When an entry of the second list matches, its comment replaces that of
 * the first. */
MORVA_API int legit_ipv6(const char* name, Pf* pf, const struct sockaddr* address, char** comment);

/* The same for an IPv4 address in the order of the network, as inet_addr returns it. Other than for
 * sockets: bad entries are passed over in silence, a text that is no address is taken as all ones
 * (like inet_addr does), a missing list is registered and not complained of, the second list is
 * looked through whether or not the first lets the address in, and the comment stays that of the
 * first.
 *
 * The lists may change in any way between two checks. A thread that looked through a list before
 * knows its entries, and compares them with the list instead of reading them again: it keeps copies
 * of the last eight lists, at most 4 MiB of lines each, until it ends. */
MORVA_API int legit_ip_pf(Pf* pf, uint32_t ip, char** comment);

/* The same with a parameter file that is read for this check; -1 when it cannot be read, with the
 * reason registered. */
MORVA_API int legit_ip(const char* pfname, uint32_t ip, char** comment);

/* 1 when an address matches an entry, else 0. Nothing is said of an address of another family, or
 * of an entry that is no address; a missing mask and what cannot be read are complained of. */
MORVA_API int ipmatches(const struct sockaddr* address, const char* entry_address,
                        const char* entry_mask);

/* ---- Long lists ---- */

/* Both lists of a parameter file, compiled: a check takes a search for each mask in use, however
 * many entries there are. Later changes of the tree do not matter. */
typedef struct Access_list Access_list;

/* Compiles the lists; what is wrong with entries, or that the first list is missing, is complained
 * of here, once. Never null; the caller frees it with freeaccess. */
MORVA_API Access_list* newaccess(Pf* pf);

/* Answers as legit_ipv6 does, with the same comment and the same globals, and never complains. Any
 * number of threads may ask one list. */
MORVA_API int legit_access(const Access_list* list, const struct sockaddr* address, char** comment);

/* Null is allowed. */
MORVA_API void freeaccess(Access_list* list);

MORVA_END
#endif
