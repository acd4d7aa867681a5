/* Connections: from the name of a server to a connected socket.
 *
 *     char host[256], description[256];
 *     int port, fd = vk_open_socket2("archive:waves", "6510", "", host, &port, description);
 *     if (fd < 0) elog_die(0, "can't connect to archive:waves\n");
 *
 * The name of a server is HOST, HOST:PORT or :PORT; the port is a number or a name, which the
 * parameter file orbserver_names resolves, and may be followed by a colon and a description. A host
 * that is left out is localhost. An IPv6 address with a port stands in brackets:
 * [2001:db8::7]:6510;
 * "::1" alone has an empty host and the port ":1". A name that is an existing file may stand for an
 * emulator: a program that serves the file over a socket pair.
 *
 * Each value of orbserver_names is a number (0x... is hexadecimal, 0... octal) and a description:
 *
 *     waves   6510 waveforms of the archive
 *
 * It is read once in a process, when it is first needed. Without it only numbers are understood.
 *
 * Buffers that callers pass hold 256 bytes for hosts, ports and descriptions; what is longer is
 * refused (hosts) or cut. A null description is allowed where nobody wants it. Descriptors that are
 * returned are closed when the process executes another program. Failures are -1 (0 for port
 * numbers) with the reason registered. All functions may be called from any thread. */
#ifndef MORVA_SOCKETS_H
#define MORVA_SOCKETS_H

#include <sys/socket.h>

#include "morva/export.h"
#include "morva/pf.h"
#include "morva/tbl.h"

MORVA_BEGIN

/* ---- Ports ---- */

/* Reads orbserver_names, unless that has happened. The functions below do it themselves. */
MORVA_API void read_portname_pf(void);

/* The number of a port, 0 when there is none: `portname` is a key of orbserver_names or a decimal
 * number, and may have a colon and a description behind it, which comes before that of the file.
 * Numbers above 65535 are refused. */
MORVA_API int vk_portnumber(const char* portname, char* description);

/* The number that a value of orbserver_names begins with, and the description: the suffix unless it
 * is null, else what follows the number. */
MORVA_API int vk_parse_portvalue(const char* value, const char* suffix, char* description);

/* All names in orbserver_names, and those of a number, in the order of keys, as new lists. The
 * names of vk_portnames belong to the library (freetbl(tbl, 0)), those of vk_portbynumber to the
 * list (freetbl(tbl, free)). */
MORVA_API Tbl* vk_portnames(void);
MORVA_API Tbl* vk_portbynumber(int port);

/* ---- Connecting ---- */

/* Takes the name of a server apart. 0: host and port are stored, the port 0 when it was not
 * understood. 1: the name is a file and orbserver_names has a program under `emulator_key`: it is
 * stored as host, and -2 as port. -1: the host has more than 255 characters; only the port is
 * stored. */
MORVA_API int vk_parse_servername(const char* name, const char* default_port,
                                  const char* emulator_key, char* host, int* port,
                                  char* description);

/* Connects to a server and stores what vk_parse_servername does. Every address of the host is
 * tried, in the order of the resolver, IPv6 and IPv4. The environment variable ORB_IP_ADDRESS names
 * the local address to connect from. */
MORVA_API int vk_open_socket2(const char* name, const char* default_port, const char* emulator_key,
                              char* host, int* port, char* description);

/* The same within `seconds` (0 or less: as long as the system waits): the addresses are raced, the
 * next one starting when one fails or after a quarter of a second, families taking turns (RFC
 * 8305). Looking up the name comes on top. */
MORVA_API int vk_open_socket_t(const char* name, const char* default_port, const char* emulator_key,
                               char* host, int* port, char* description, double seconds);

/* The older way: defaults come from a parameter file, which may be null or missing: `default_port`
 * (without it 8000), `names`, and `emulator`, the program that serves files. The port may also be a
 * name that the system knows. */
MORVA_API int vk_open_socket(const char* name, const char* pfname, char* description);

/* Its parts: the split of a name into host and text of a port, and what the parameter file says of
 * a port. When `names` is an array, the string under the port's name gives the description. The
 * text of the port is always the name itself. Both return 0. */
MORVA_API int vk_parsename(const char* name, Pf* pf, char* host, char* port, char* description);
MORVA_API int vk_lookup_port(Pf* pf, const char* portname, char* port, char* description);

/* Binds a socket to the IPv4 address that ORB_IP_ADDRESS gives, if it is set. 0 or -1. */
MORVA_API int bind2_ORB_IP_ADDRESS(int fd);

/* ---- Programs behind a socket ---- */

/* Starts a program with an argument, its standard input and output a socket whose other end is
 * returned. A program that is no absolute path is taken from the folder bin of the installation. An
 * argument "FILE@OPTION" becomes two: "-OPTION" and "FILE". */
MORVA_API int vk_exec_subprogram(const char* program, const char* argument);

/* The same for a vector of arguments that a null pointer ends; the program is searched along PATH.
 * The program says on standard error that it was spawned when the second argument is an option with
 * a V. It is a child of the process, with status 1 when it cannot be started: who starts many waits
 * for them or ignores SIGCHLD. */
MORVA_API int vk_spawn(char** argv);

/* ---- Addresses ---- */

/* AF_INET6 for a text with a colon, AF_INET for four numbers with points between, else -1. */
MORVA_API int vk_inet_family(const char* text);

/* The numeric text of an IPv4 or IPv6 address in `buffer`, which is returned. Null when it does not
 * fit `size` bytes, and for other families, with "Unknown AF" in the buffer. */
MORVA_API char* vk_inet_ntop(const struct sockaddr* address, char* buffer, int size);

/* Stores family and address of a numeric text; the storage must have room for the family. 1, or -1
 * for a text that is no address. */
MORVA_API int vk_inet_pton(const char* text, struct sockaddr* address);

/* The numeric address of the peer of a socket, in a buffer of 46 bytes. 0; -1 with "*unknown*". */
MORVA_API int vk_getpeername(int fd, char* buffer);

MORVA_END
#endif
