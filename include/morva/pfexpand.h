/* Values that refer to others, and functions: what a parameter says once everything that it takes
 * from elsewhere is put in.
 *
 *     root     /data                          pfget_string(pf, "archive{path}")
 *     archive  &Arr{                          gives /data/2024
 *         year 2024
 *         path &root/&year
 *     }
 *
 * References. In a value, &name (the longest run of letters, digits and underscores) and &{path} (a
 * path expression, morva/pfresolve.h, without another "&") stand for the value found in the array
 * that encloses the value, or else in the one around that, and so on outward to the root. The value
 * that is found is expanded where it stands; a function is evaluated. "&&" gives one "&". What is
 * not found stays as written, and so does a reference to a list or an array, and an "&" before
 * anything else.
 *
 * A value stays as written as a whole, and the reason is registered, when a reference in it leads
 * back to itself, when references lead on from one to the next more than 32 times, when a path is
 * malformed, or when more than 64 MB would be put in, counting 256 bytes for each reference.
 *
 * Enclosing arrays are found through the parent links of the nodes. The reader sets them; what
 * pfput and pfdup leave unset is set when a getter, pfresolve or a reference comes by from the
 * container. In a node that has none, as when pfexpand is called on one that came from elsewhere,
 * references stay as written.
 *
 * Functions. A parameter whose value is exactly a call is evaluated when it is fetched:
 *     &env(NAME)              the environment variable; nothing in a process with more rights than
 *                             its user
 *     &ref(path)              a copy of the value, list or array that &{path} would find, with all
 *                             references and functions in it replaced by what they stand for
 *     &file(name)             the contents of a file, as they are; a relative name counts from the
 *                             folder of the file in which the call stands, "~" is a home folder
 *     &filename(name)         the full name of that file, which need not exist
 *     &datafile(name)         as &file, for a file found by the data search, along DATAPATH or the
 *     &datafile(VAR, name)    path in the variable VAR (datafile in morva/paths.h)
 *     &datafilename(...)      the name found by the same search
 *     &glob(pattern)          the list of the files that match, sorted; "~" is a home folder,
 *                             relative names count from the current folder. May be empty
 *     &exec(command)          what the command, given to /bin/sh, writes to standard output,
 *                             without the newlines at its end. Its standard input is empty
 *     &ask(prompt)            the answer of Pfprompt
 *     &undef()                nothing: the parameter counts as missing
 * Blanks around an argument are dropped, and so are quotes, of either kind, around the whole of it.
 * References in the arguments are expanded first, except those of &exec, which belong to the shell.
 * What comes from outside is not searched for references.
 *
 * A function gives nothing, with the reason registered, when the call is malformed or unknown, when
 * &ref, &file, &datafile or &datafilename finds nothing, when what &ref finds is more than 32 lists
 * and arrays deep, when what a file or command gives is over 16 MB or holds a zero byte, when a
 * command ends with a status other than 0, when there is no Pfprompt, and when an evaluation leads
 * back to itself or goes deeper than references may. &exec is refused when it is switched off
 * (pfconfig("exec", NULL)), and in a process with more rights than its user; the status of its
 * command cannot be seen, and counts as 0, where the program has its children reaped elsewhere
 * (SIGCHLD ignored, or a handler in another thread). Without a reason, &env gives nothing for a
 * variable that is not set, &ask when there is no answer, and &undef always.
 *
 * Threads: expanding and evaluating change the node (and the functions that its references lead to)
 * and so need it to themselves. Different trees are independent of each other. */
#ifndef MORVA_PFEXPAND_H
#define MORVA_PFEXPAND_H

#include "morva/pf.h"

MORVA_BEGIN

/* The string of the node with its references expanded; of a function, that of its result. Kept in
 * the node's field `expanded`: it stays valid until the node is expanded again with another result,
 * modified or freed. NULL for lists, arrays, null strings and NULL. */
MORVA_API char* pfexpand(Pf* node);

/* Evaluates a function and returns the result, NULL when there is none. The result belongs to the
 * function's record, and is kept there until the text of the call changes; when there is none, the
 * next call tries again. Any other node is its own result. */
MORVA_API Pf* pfinterpret(Pf* node);

MORVA_END
#endif
