/* Twins for Fortran callers: the name in lower case with an underscore behind it.
 *
 *     program example
 *         use morva                          ! interfaces for all of this, from morva.f90
 *         integer(handle) :: list
 *         integer(c_long) :: i
 *         list = newtbl(10_c_long)
 *         i = settbl(list, -1_c_long, 2.5d0)
 *         print *, maxtbl(list)
 *     end program
 *
 * A twin takes the arguments of its C function in the same order and does the same; what is said
 * here holds for all, and only what differs is said below.
 *   1. Every argument is passed by reference. int is integer(c_int), the default integer; long is
 *      integer(c_long), eight bytes. Indices count from 0, as in C.
 *   2. Handles (lists, arrays, sets, cabinets, parameter trees, heaps, C streams) are
 * integer(handle), eight bytes. They are what the making function returned, and 0 is the null
 * handle.
 *   3. Strings are character variables of any length. On the way in, trailing blanks are left out,
 *      and a char(0) ends the string early: ', '//char(0) keeps its blank. A string of blanks is
 *      the empty string; where C takes a null string, it stands for that. Lengths travel as
 * gfortran 8 and later pass them: by value, size_t, behind all other arguments.
 *   4. A C function that returns a string has one argument more, the last, that receives the text,
 *      cut or padded with blanks. The result is the length of the whole text, or -1 for a null
 *      string, which gives blanks.
 *   5. Items and values are variables of eight bytes: integer(handle), integer(c_int64_t), real(8),
 *      type(c_ptr). Arrays, sets and lists of pointers keep the eight bytes themselves; a list of
 *      items by value copies as many bytes as its items have. Results of type void* are addresses
 *      of such variables: type(c_ptr) for c_f_pointer.
 *   6. Procedures are passed as they are and get what the C function gives them: addresses, which
 *      are arguments by reference, or, where the stored eight bytes themselves are handed over
 *      (arrays, sets, lists of pointers), arguments with the VALUE attribute. Keys come as
 *      terminated strings, character(c_char) :: key(*). An optional procedure that is left out is
 *      C's null function. Pass module procedures or external ones rather than internal ones.
 */
#ifndef MORVA_FORTRAN_H
#define MORVA_FORTRAN_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "morva/arr.h"
#include "morva/cabinets.h"
#include "morva/epoch.h"
#include "morva/export.h"
#include "morva/pf.h"
#include "morva/redblack.h"
#include "morva/ring.h"
#include "morva/ringlet.h"
#include "morva/stbl.h"
#include "morva/strmatches.h"
#include "morva/tbl.h"
#include "morva/xheap.h"

MORVA_BEGIN

typedef void (*Fortran_free)(void* item);
typedef void* (*Fortran_dup)(void* item);
typedef int (*Fortran_print)(void* item);
typedef int (*Fortran_apply)(void* item, void* private_data);
typedef int (*Fortran_apply_arr)(char* key, void* value, void* private_data);

/* Message register. The text is registered with a newline behind it. Each name exists with one and
 * with two underscores. */
MORVA_API void register_error_(const int* flag, const char* text, size_t text_length);
MORVA_API void complain_(const int* flag, const char* text, size_t text_length);
MORVA_NORETURN MORVA_API void die_(const int* flag, const char* text, size_t text_length);
MORVA_API int clear_register_(const int* print);

/* The command line in one string, as the intrinsic get_command gives it: its words become the
 * recorded arguments, the first one names the program. Without a word the path of the running
 * executable is taken. */
MORVA_API int elog_init_(const char* command, size_t command_length);
MORVA_API int eloginit_(const char* command, size_t command_length);

MORVA_API void register_error__(const int* flag, const char* text, size_t text_length);
MORVA_API void complain__(const int* flag, const char* text, size_t text_length);
MORVA_NORETURN MORVA_API void die__(const int* flag, const char* text, size_t text_length);
MORVA_API int clear_register__(const int* print);
MORVA_API int elog_init__(const char* command, size_t command_length);
MORVA_API int eloginit__(const char* command, size_t command_length);

MORVA_API int elog_mark_(void);
MORVA_API int elog_flush_(const int* print, const int* mark);
MORVA_API long elog_string_(const int* start, char* text, size_t text_length);

/* Lists. newtbl makes a list of 8-byte items by value rather than of pointers, so that numbers and
 * handles are copied in and out; its size may be a default integer too. strsettbl keeps a copy of
 * the string that the list points to, and strtbl makes a list of copies of an array of `count`
 * strings; strfreetbl frees such copies with the list (a replaced or removed one is not freed). */
MORVA_API Tbl* newtbl_(const long* size);
MORVA_API Tbl* inittbl_(const long* left_increment, const long* right_increment, const int* direct,
                        const void* null_value, const int* itemsize);
MORVA_API Tbl* strtbl_(const char* strings, const long* count, size_t strings_length);
MORVA_API void freetbl_(Tbl* const* tbl, Fortran_free free_function);
MORVA_API void strfreetbl_(Tbl* const* tbl);
MORVA_API Tbl* duptbl_(Tbl* const* tbl, Fortran_dup dup_function);
MORVA_API long maxtbl_(Tbl* const* tbl);
MORVA_API void* gettbl_(Tbl* const* tbl, const long* i);
MORVA_API void* addrtbl_(Tbl* const* tbl, const long* i);

/* Copies item i into a variable: 0, or -1 outside the list, when the variable gets the null value
 * (zero bytes where there is none). */
MORVA_API int itemgettbl_(Tbl* const* tbl, const long* i, void* item);

/* The string that item i points to, as of rule 4; -1 too for a list by value whose items are not
 * eight bytes. strsettbl returns the index as settbl does; -1, registered, for such a list. */
MORVA_API long strgettbl_(Tbl* const* tbl, const long* i, char* text, size_t text_length);
MORVA_API long strsettbl_(Tbl* const* tbl, const long* i, const char* text, size_t text_length);

MORVA_API long settbl_(Tbl* const* tbl, const long* i, const void* item);
MORVA_API long pushtbl_(Tbl* const* tbl, const void* item);
MORVA_API void* poptbl_(Tbl* const* tbl);
MORVA_API void* shifttbl_(Tbl* const* tbl);
MORVA_API long unshifttbl_(Tbl* const* tbl, const void* item);
MORVA_API long instbl_(Tbl* const* tbl, const long* i, const void* item);
MORVA_API void* deltbl_(Tbl* const* tbl, const long* i);
MORVA_API void trunctbl_(Tbl* const* tbl, const long* n, Fortran_free free_function);
MORVA_API void clrtbl_(Tbl* const* tbl, Fortran_free free_function);
MORVA_API void right_growtbl_(Tbl* const* tbl, const long* need);
MORVA_API int applytbl_(Tbl* const* tbl, Fortran_apply function, void* private_data);
MORVA_API int cattbl_(Tbl* const* to, Tbl* const* from);
MORVA_API int cmptbl_(Tbl* const* a, Tbl* const* b);
MORVA_API void sorttbl_(Tbl* const* tbl, Tbl_compare compare, void* private_data);
MORVA_API long searchtbl_(void* key, Tbl* const* tbl, Tbl_compare compare, void* private_data,
                          long* first_index, long* last_index);

/* These take the items as strings: lists of 8-byte items by value hold pointers to them, as
 * strsettbl stores them. The result lists of difftbl may be of either kind. */
MORVA_API long jointbl_(Tbl* const* tbl, const char* separator, char* text, size_t separator_length,
                        size_t text_length);
MORVA_API Tbl* greptbl_(const char* pattern, Tbl* const* tbl, size_t pattern_length);
MORVA_API Tbl* tblgrep_(Tbl* const* tbl, const char* string, size_t string_length);
MORVA_API int dumptbl_(const char* title, Tbl* const* tbl, Fortran_print print_function,
                       size_t title_length);
MORVA_API Arr* arrtbl_(Tbl* const* tbl);
MORVA_API Tbl* commtbl_(Tbl* const* a, Tbl* const* b, const int* type);
MORVA_API void difftbl_(Tbl* const* a, Tbl* const* b, Tbl_compare compare, void* private_data,
                        Tbl* const* only_a, Tbl* const* only_b, Tbl* const* both);

/* readtbl gives the label back in its argument, blanks when the file has none. */
MORVA_API int writetbl_(Tbl* const* tbl, FILE* const* stream, const char* label,
                        size_t label_length);
MORVA_API int savetbl_(Tbl* const* tbl, const char* path, const char* label, size_t path_length,
                       size_t label_length);
MORVA_API Tbl* readtbl_(const char* path, char* label, const int* writable, size_t path_length,
                        size_t label_length);
MORVA_API int filetbl_(const char* path, const char* label, const long* size,
                       const void* null_value, const int* itemsize, Tbl** tbl, size_t path_length,
                       size_t label_length);
MORVA_API int verifytbl_(Tbl* const* tbl);

/* Arrays of 8-byte values. Without value_compare, diffarr compares the eight bytes; without
 * dup_function, duparr copies them. */
MORVA_API Arr* newarr_(Arr_compare compare);
MORVA_API intptr_t setarr_(Arr* const* arr, const char* key, const intptr_t* value,
                           size_t key_length);
MORVA_API intptr_t getarr_(Arr* const* arr, const char* key, size_t key_length);
MORVA_API intptr_t delarr_(Arr* const* arr, const char* key, size_t key_length);
MORVA_API long cntarr_(Arr* const* arr);
MORVA_API Tbl* keysarr_(Arr* const* arr);
MORVA_API Tbl* valsarr_(Arr* const* arr);
MORVA_API int applyarr_(Arr* const* arr, Fortran_apply_arr function, void* private_data);
MORVA_API Arr* duparr_(Arr* const* arr, Fortran_dup dup_function);
MORVA_API int freearr_(Arr* const* arr, Fortran_free free_function);
MORVA_API Tbl* greparr_(const char* pattern, Arr* const* arr, size_t pattern_length);
MORVA_API Tbl* arrgrep_(Arr* const* arr, const char* string, size_t string_length);
MORVA_API void diffarr_(Arr* const* a, Arr* const* b, Tbl_compare key_compare,
                        Tbl_compare value_compare, void* private_data, Tbl* const* only_a,
                        Tbl* const* only_b, Tbl* const* changed);

/* Cabinets. push_tblcabinet takes the item by value when the cabinet's size is 1 or more, else its
 * eight bytes; strpush_tblcabinet is for cabinets of strings, those of a negative size, and refuses
 * others with -1, registered. */
MORVA_API Arrcabinet* new_arrcabinet_(const int* size, Fortran_free free_function);
MORVA_API int set_arrcabinet_(Arrcabinet* const* cabinet, const char* key1, const char* key2,
                              const intptr_t* value, size_t key1_length, size_t key2_length);
MORVA_API Arr* get_arrcabinet_(Arrcabinet* const* cabinet, const char* key1, size_t key1_length);
MORVA_API Tbl* keys_arrcabinet_(Arrcabinet* const* cabinet);
MORVA_API void free_arrcabinet_(Arrcabinet* const* cabinet);
MORVA_API Tblcabinet* new_tblcabinet_(const int* size, Fortran_free free_function);
MORVA_API int push_tblcabinet_(Tblcabinet* const* cabinet, const char* key, const void* item,
                               size_t key_length);
MORVA_API int strpush_tblcabinet_(Tblcabinet* const* cabinet, const char* key, const char* text,
                                  size_t key_length, size_t text_length);
MORVA_API Tbl* get_tblcabinet_(Tblcabinet* const* cabinet, const char* key, size_t key_length);
MORVA_API Tbl* keys_tblcabinet_(Tblcabinet* const* cabinet);
MORVA_API void free_tblcabinet_(Tblcabinet* const* cabinet);

/* Sorted sets of 8-byte items. A set made without compare is one of strings: straddstbl adds a copy
 * unless the string is present (1 when added, else 0), strtststbl is 1 when it is present, and
 * strfreestbl frees the copies with the set. */
MORVA_API Stbl* newstbl_(Rb_compare compare);
MORVA_API intptr_t addstbl_(Stbl* const* stbl, const intptr_t* item);
MORVA_API intptr_t delstbl_(Stbl* const* stbl, const intptr_t* item);
MORVA_API intptr_t tststbl_(Stbl* const* stbl, const intptr_t* item);
MORVA_API long maxstbl_(Stbl* const* stbl);
MORVA_API intptr_t getstbl_(Stbl* const* stbl, const long* i);
MORVA_API Tbl* tblstbl_(Stbl* const* stbl);
MORVA_API int applystbl_(Stbl* const* stbl, Fortran_apply function, void* private_data);
MORVA_API void freestbl_(Stbl* const* stbl, Fortran_free free_function);
MORVA_API int straddstbl_(Stbl* const* stbl, const char* text, size_t text_length);
MORVA_API int strtststbl_(Stbl* const* stbl, const char* text, size_t text_length);
MORVA_API long strgetstbl_(Stbl* const* stbl, const long* i, char* text, size_t text_length);
MORVA_API void strfreestbl_(Stbl* const* stbl);

/* Strings and matching. A hook is a handle that starts at 0. str2upper and str2lower convert the
 * variable in place and return its length without trailing blanks. */
MORVA_API int blank_(const char* text, size_t text_length);
MORVA_API int str2upper_(char* text, size_t text_length);
MORVA_API int str2lower_(char* text, size_t text_length);
MORVA_API long strdbl_(const double* value, char* text, size_t text_length);
MORVA_API int levenshtein_distance_(const char* a, const char* b, size_t a_length, size_t b_length);
MORVA_API int yesno_(const char* text, size_t text_length);
MORVA_API int strmatches_(const char* string, const char* pattern, Hook** hook,
                          size_t string_length, size_t pattern_length);
MORVA_API int strcontains_(const char* string, const char* pattern, Hook** hook, int* start,
                           int* length, size_t string_length, size_t pattern_length);
MORVA_API void free_hook_(Hook** hook);
MORVA_API int match_string_(const char* pattern, const char* string, size_t pattern_length,
                            size_t string_length);
MORVA_API int match_stachans_(const char* spec, const char* station, const char* channel,
                              size_t spec_length, size_t station_length, size_t channel_length);

/* The data search. Blanks for the name of a variable, a subdirectory or a suffix leave it out. */
MORVA_API long datafile_(const char* envname, const char* name, char* path, size_t envname_length,
                         size_t name_length, size_t path_length);
MORVA_API long datapath_(const char* envname, const char* subdir, const char* name,
                         const char* suffix, char* path, size_t envname_length,
                         size_t subdir_length, size_t name_length, size_t suffix_length,
                         size_t path_length);
MORVA_API long newdata_(const char* envname, const char* subdir, const char* name,
                        const char* suffix, char* path, size_t envname_length, size_t subdir_length,
                        size_t name_length, size_t suffix_length, size_t path_length);

/* Parameter trees. A key or path is a string for lists too, the index in decimal digits: '0'. pfget
 * gives a value that is a string as the address of its terminated text. pfput takes the handle of
 * the Arr, Tbl or Pf, or the address of a terminated text: pfput_string is for character variables.
 * Lists from pfget_tbl are read with strgettbl, those for pfput_tbl made with strsettbl. Most exist
 * with one and with two underscores. */
MORVA_API Pf* pfnew_(const int* type);
MORVA_API void pffree_(Pf* const* pf);
MORVA_API Pf* pfdup_(Pf* const* pf);
MORVA_API int pfcmp_(Pf* const* a, Pf* const* b);
MORVA_API int pfread_(const char* name, Pf** pf, size_t name_length);
MORVA_API int pfupdate_(const char* name, Pf** pf, size_t name_length);
MORVA_API int pfcompile_(const char* text, Pf** pf, size_t text_length);
MORVA_API int pfwrite_(const char* filename, Pf* const* pf, size_t filename_length);
MORVA_API int pfget_(Pf* const* pf, const char* key, Pf** value, size_t key_length);
MORVA_API long pfget_string_(Pf* const* pf, const char* path, char* text, size_t path_length,
                             size_t text_length);
MORVA_API long pfget_int_(Pf* const* pf, const char* path, size_t path_length);
MORVA_API double pfget_double_(Pf* const* pf, const char* path, size_t path_length);
MORVA_API double pfget_size_(Pf* const* pf, const char* path, size_t path_length);
MORVA_API int pfget_boolean_(Pf* const* pf, const char* path, size_t path_length);
MORVA_API Tbl* pfget_tbl_(Pf* const* pf, const char* path, size_t path_length);
MORVA_API Arr* pfget_arr_(Pf* const* pf, const char* path, size_t path_length);
MORVA_API long pfmaxtbl_(Pf* const* pf);
MORVA_API Tbl* pfkeys_(Pf* const* pf);
MORVA_API int pfput_(Pf* const* pf, const char* key, const intptr_t* value, const int* type,
                     size_t key_length);
MORVA_API int pfput_string_(Pf* const* pf, const char* key, const char* text, size_t key_length,
                            size_t text_length);
MORVA_API int pfput_int_(Pf* const* pf, const char* key, const long* value, size_t key_length);
MORVA_API int pfput_double_(Pf* const* pf, const char* key, const double* value, size_t key_length);
MORVA_API int pfput_boolean_(Pf* const* pf, const char* key, const int* value, size_t key_length);
MORVA_API int pfput_tbl_(Pf* const* pf, const char* key, Tbl* const* tbl, size_t key_length);
MORVA_API int pfput_arr_(Pf* const* pf, const char* key, Arr* const* arr, size_t key_length);
MORVA_API int pfset_(Pf* const* pf, const char* path, const char* text, size_t path_length,
                     size_t text_length);
MORVA_API Pf* pfdel_(Pf* const* pf, const char* key, size_t key_length);
MORVA_API double pfget_time_(Pf* const* pf, const char* path, size_t path_length);
MORVA_API int pfput_time_(Pf* const* pf, const char* key, const double* epoch, size_t key_length);
MORVA_API int pfrequire_(const char* name, const char* date, size_t name_length,
                         size_t date_length);

MORVA_API Pf* pfnew__(const int* type);
MORVA_API void pffree__(Pf* const* pf);
MORVA_API int pfread__(const char* name, Pf** pf, size_t name_length);
MORVA_API int pfcompile__(const char* text, Pf** pf, size_t text_length);
MORVA_API int pfwrite__(const char* filename, Pf* const* pf, size_t filename_length);
MORVA_API int pfget__(Pf* const* pf, const char* key, Pf** value, size_t key_length);
MORVA_API long pfget_string__(Pf* const* pf, const char* path, char* text, size_t path_length,
                              size_t text_length);
MORVA_API long pfget_int__(Pf* const* pf, const char* path, size_t path_length);
MORVA_API double pfget_double__(Pf* const* pf, const char* path, size_t path_length);
MORVA_API double pfget_size__(Pf* const* pf, const char* path, size_t path_length);
MORVA_API int pfget_boolean__(Pf* const* pf, const char* path, size_t path_length);
MORVA_API double pfget_time__(Pf* const* pf, const char* path, size_t path_length);
MORVA_API Tbl* pfget_tbl__(Pf* const* pf, const char* path, size_t path_length);
MORVA_API Arr* pfget_arr__(Pf* const* pf, const char* path, size_t path_length);
MORVA_API int pfput__(Pf* const* pf, const char* key, const intptr_t* value, const int* type,
                      size_t key_length);
MORVA_API int pfput_string__(Pf* const* pf, const char* key, const char* text, size_t key_length,
                             size_t text_length);
MORVA_API int pfput_int__(Pf* const* pf, const char* key, const long* value, size_t key_length);
MORVA_API int pfput_double__(Pf* const* pf, const char* key, const double* value,
                             size_t key_length);
MORVA_API int pfput_boolean__(Pf* const* pf, const char* key, const int* value, size_t key_length);
MORVA_API int pfput_time__(Pf* const* pf, const char* key, const double* epoch, size_t key_length);
MORVA_API int pfput_tbl__(Pf* const* pf, const char* key, Tbl* const* tbl, size_t key_length);
MORVA_API int pfput_arr__(Pf* const* pf, const char* key, Arr* const* arr, size_t key_length);

/* CM6. cm6 fills the caller's text and sets nbytes to the length of the whole: 0, or -1,
 * registered, when the variable is too short. um6 decodes the first nbytes characters of the text
 * into the caller's array of buffer_size samples: the number of samples, or -1 as um6 does, and
 * registered when there are more samples than room. */
MORVA_API int cm6_(const int32_t* samples, const int* nsamp, char* text, int* nbytes,
                   size_t text_length);
MORVA_API int um6_(const char* text, const int* nbytes, int32_t* samples, int* nsamp,
                   const int* buffer_size, size_t text_length);
MORVA_API void initdecode_(void);
MORVA_API int gse_checksum_(const int32_t* samples, const int* nsamp, int32_t* checksum);

/* UCSD compression. A character variable holds the bytes: cucsd and cucsd_try set nbytes to the
 * number of them, and give -1, registered, when the variable is too short; what stands behind them
 * is left alone. uucsd reads the first nbytes. */
MORVA_API int cucsd_(const int32_t* samples, const int* nsamp, char* bytes, int* nbytes,
                     size_t bytes_length);
MORVA_API int cucsd_try_(const int32_t* samples, const int* nsamp, char* bytes, int* nbytes,
                         size_t bytes_length);
MORVA_API int uucsd_(int32_t* samples, const char* bytes, const int* nbytes, const int* nsamp,
                     size_t bytes_length);

/* Canadian compression and gencompress. A character variable holds the bytes, as for UCSD. ucanada
 * and genuncompress read the first nbytes into the caller's array, which has room for buffer_size
 * samples; those of ucanada are one more than nsamp tells. -1, registered, when they don't fit. */
MORVA_API int ccanada_(const int32_t* samples, const int* nsamp, char* bytes, int* nbytes,
                       size_t bytes_length);
MORVA_API int ucanada_(const char* bytes, const int* nbytes, int32_t* samples, int* nsamp,
                       const int* buffer_size, size_t bytes_length);
MORVA_API void cc_bitpack_(char* buffer, int* byte_index, int* bit_position, const int* nbits,
                           const int* value, size_t buffer_length);
MORVA_API int gencompress_(char* bytes, int* nbytes, const int32_t* samples, const int* nsamp,
                           const int* block, size_t bytes_length);
MORVA_API int genuncompress_(int32_t* samples, int* nsamp, const int* buffer_size,
                             const char* bytes, const int* nbytes, size_t bytes_length);

/* Times. Texts are as of rule 4; fmttime has its text where C has it, and blanks for a zone are
 * UTC. The six bytes of a BCD clock are an array of that size. The record of fields is
 * type(datetime) of the module, with the components of the C one in their order; mname ends with a
 * char(0). timeprint writes past the Fortran unit 6: flush that first. */
MORVA_API int isleap_(const int* year);
MORVA_API double dtoepoch_(const int* yearday);
MORVA_API double year2days_(const double* year);
MORVA_API double epoch_(const int* yearday);
MORVA_API int yearday_(const double* epoch);
MORVA_API double h2e_(const int* year, const int* doy, const int* hour, const int* minute,
                      const double* second);
MORVA_API void e2h_(const double* epoch, int* year, int* doy, int* hour, int* minute,
                    double* second);
MORVA_API void doy2mday_(const int* doy, const int* year, int* month, int* day);
MORVA_API int mday2doy_(const int* year, const int* month, const int* day);
MORVA_API void etoh_(DateTime* time);
MORVA_API void htoe_(DateTime* time);
MORVA_API void mdtodate_(DateTime* time);
MORVA_API void month_day_(DateTime* time);
MORVA_API int todaysdate_(void);
MORVA_API void zh_today_(DateTime* time);
MORVA_API void timeprint_(const DateTime* time);
MORVA_API double timecon_(const char* text, size_t text_length);
MORVA_API long epoch2str_(const char* format, const double* epoch, char* text, size_t format_length,
                          size_t text_length);
MORVA_API long zepoch2str_(const char* format, const char* zone, const double* epoch, char* text,
                           size_t format_length, size_t zone_length, size_t text_length);
MORVA_API long strtime_(const double* epoch, char* text, size_t text_length);
MORVA_API long strydtime_(const double* epoch, char* text, size_t text_length);
MORVA_API long strdate_(const double* epoch, char* text, size_t text_length);
MORVA_API long strlocaltime_(const double* epoch, char* text, size_t text_length);
MORVA_API long strlocalydtime_(const double* epoch, char* text, size_t text_length);
MORVA_API long strlocaldate_(const double* epoch, char* text, size_t text_length);
MORVA_API int fmttime_(char* text, const int* kind, const char* zone, const double* epoch,
                       size_t text_length, size_t zone_length);
MORVA_API void set_time_formats_(void);
MORVA_API int is_month_first_(void);
MORVA_API long strtdelta_(const double* seconds, char* text, size_t text_length);
MORVA_API long ordinal_(const int* n, char* text, size_t text_length);
MORVA_API int get_nice_times_(const int* count, double* first, double* step, const double* t0,
                              const double* t1);
MORVA_API void epoch2bcd_(void* bcd, const double* epoch);
MORVA_API void bcdtime_(const void* bcd, DateTime* time);
MORVA_API void switchtz_(const char* name, size_t name_length);
MORVA_API void restoretz_(void);
MORVA_API long mygettz_(char* text, size_t text_length);

/* Time strings. The nanoseconds are integer(c_int64_t); iso2epoch takes none, too. */
MORVA_API double str2epoch_(const char* text, size_t text_length);
MORVA_API int zstr2epoch_(const char* text, double* epoch, size_t text_length);
MORVA_API int is_epoch_string_(const char* text, double* epoch, size_t text_length);
MORVA_API int time_string2epoch_(const char* text, double* epoch, size_t text_length);
MORVA_API int str2epoch_strict_(const char* text, double* epoch, size_t text_length);
MORVA_API int iso2epoch_(const char* text, double* epoch, int64_t* nanoseconds, size_t text_length);
MORVA_API long epoch2iso_(const int64_t* nanoseconds, const int* digits, char* text,
                          size_t text_length);

/* Units. `difference` is blank unless the result is 1. The list of units_match holds pointers. */
MORVA_API int units_init_(void);
MORVA_API int units_convert_(const double* value, const char* from, double* result, const char* to,
                             char* difference, size_t from_length, size_t to_length,
                             size_t difference_length);
MORVA_API int units_convert_affine_(const double* value, const char* from, double* result,
                                    const char* to, char* difference, size_t from_length,
                                    size_t to_length, size_t difference_length);
MORVA_API Tbl* units_match_(const char* units, size_t units_length);
MORVA_API void show_all_units_(void);

/* Renaming, and announcements. The result of morphtbl is cut or padded as of rule 4; the function
 * itself returns the number of rules. */
MORVA_API long newmorphtbl_(Tbl* const* rule_lines, Tbl** table);
MORVA_API long morphtbl_(const char* string, Tbl* const* table, const int* flags, char* result,
                         size_t string_length, size_t result_length);
MORVA_API void freemorphtbl_(Tbl* const* table);
MORVA_API void announce_(const char* program, const char* version, size_t program_length,
                         size_t version_length);
MORVA_API void banner_(const char* program, const char* version, size_t program_length,
                       size_t version_length);
MORVA_API void deprecate_(const char* replacement, size_t replacement_length);

/* Dynamic controls. The type of dcname is the number of a letter, ichar('b') for byte controls. The
 * list of dcprograms holds pointers to strings that lie in the sets: it is freed without them. */
MORVA_API int dcsetupbyt_(const char* name, const int* value, size_t name_length);
MORVA_API int dcsetupint_(const char* name, const long* value, size_t name_length);
MORVA_API int dcsetupflt_(const char* name, const double* value, size_t name_length);
MORVA_API int dcsetupstr_(const char* name, const char* value, size_t name_length,
                          size_t value_length);
MORVA_API int dcsetb_(const int* i, const int* value);
MORVA_API int dcseti_(const int* i, const long* value);
MORVA_API int dcsetf_(const int* i, const double* value);
MORVA_API int dcsets_(const int* i, const char* text, size_t text_length);
MORVA_API int dcgetb_(const int* i);
MORVA_API long dcgeti_(const int* i);
MORVA_API double dcgetf_(const int* i);
MORVA_API long dcgets_(const int* i, char* text, size_t text_length);
MORVA_API int dctrigger_(const int* i);
MORVA_API long dcchanged_(void);
MORVA_API double dctimestamp_(void);
MORVA_API int dcwait_(const long* changed, const int* milliseconds);
MORVA_API int dccreate_(void);
MORVA_API int dcopen_(const int* select);
MORVA_API int dcselect_(const char* program, size_t program_length);
MORVA_API int dcmaxcontrols_(void);
MORVA_API Tbl* dcprograms_(void);
MORVA_API long dcname_(const int* type, const int* i, char* name, size_t name_length);
MORVA_API int dcexists_(const char* program, size_t program_length);
MORVA_API int dcremove_(const char* program, size_t program_length);
MORVA_API int dcdump_(const int* flag);

/* Rings. The id of openring receives the file's. ptsrange fills an array of four numbers, scalepts
 * and iscalepts take one, quantilesring two of n. The lists hold points by value: itemgettbl copies
 * one to a variable of two real(8), of two integers (iscalepts) or of three (decimatepts). */
MORVA_API int newring_(const char* path, const char* id, const int* size, const int* flags,
                       size_t path_length, size_t id_length);
MORVA_API Ring* openring_(const char* path, char* id, const int* size, const int* flags,
                          size_t path_length, size_t id_length);
MORVA_API int closering_(Ring* const* ring);
MORVA_API int rmring_(Ring* const* ring);
MORVA_API long idring_(Ring* const* ring, char* text, size_t text_length);
MORVA_API long filenamering_(Ring* const* ring, char* text, size_t text_length);
MORVA_API int setring_(Ring* const* ring, const double* gap, const double* null_value);
MORVA_API int pushring_(Ring* const* ring, const double* time, const double* value);
MORVA_API int cramring_(Ring* const* ring, const char* method, const double* time,
                        const double* value, size_t method_length);
MORVA_API int addring_(Ring* const* ring, const double* time, const double* value);
MORVA_API long countring_(Ring* const* ring);
MORVA_API int getring_(Ring* const* ring, const int* i, double* time, double* value);
MORVA_API int valring_(Ring* const* ring, double* time, double* value);
MORVA_API int nearbymaxring_(Ring* const* ring, double* time, double* value,
                             const double* halfwidth);
MORVA_API long findring_(Ring* const* ring, const double* value, const double* span);
MORVA_API long tallyring_(Ring* const* ring, const double* span);
MORVA_API long changedring_(Ring* const* ring, const double* span);
MORVA_API double maxring_(Ring* const* ring, int* i, const double* span);
MORVA_API double minring_(Ring* const* ring, int* i, const double* span);
MORVA_API int meanring_(Ring* const* ring, int* n, double* mean, double* deviation,
                        const double* span);
MORVA_API double avgring_(Ring* const* ring, const double* span);
MORVA_API int linearfitring_(Ring* const* ring, int* n, double* slope, double* intercept, double* r,
                             const double* span);
MORVA_API long quantilesring_(Ring* const* ring, const double* fractions, double* quantiles,
                              const int* n, const double* span);
MORVA_API long ptsring_(Ring* const* ring, Tbl** points, const double* last_time,
                        const double* span);
MORVA_API int ptsrange_(Tbl* const* points, double* range);
MORVA_API int scalepts_(Tbl* const* points, Tbl** out, const double* scale);
MORVA_API int iscalepts_(Tbl* const* points, Tbl** out, const double* scale);
MORVA_API int decimatepts_(Tbl* const* points, const int* width, const int* height, Tbl** out);

/* Ringlets. A record is a variable of the size that openringlet was told; getringlet copies it. */
MORVA_API int newringlet_(const char* path, const long* nslots, const long* size,
                          size_t path_length);
MORVA_API Ringlet* openringlet_(const char* path, const long* nslots, const long* size,
                                size_t path_length);
MORVA_API int closeringlet_(Ringlet* const* ringlet);
MORVA_API int pushringlet_(Ringlet* const* ringlet, const void* record);
MORVA_API long countringlet_(Ringlet* const* ringlet);
MORVA_API int getringlet_(Ringlet* const* ringlet, const long* i, void* record);

/* Shared heaps. Character variables hold the data. putx and putx_safe store the first `n` bytes of
 * one, which must have them (else -1); getx and readx cut the data or pad them with blanks, and `n`
 * becomes the length of the whole. namesx gives a list of strings, for strgettbl, that belong to
 * the heap: freetbl frees it. */
MORVA_API Xheap* openx_(const char* path, const char* mode, const int* size, size_t path_length,
                        size_t mode_length);
MORVA_API int closex_(Xheap** heap);
MORVA_API int putx_(Xheap* const* heap, const char* name, const char* data, const int* n,
                    size_t name_length, size_t data_length);
MORVA_API int putx_safe_(Xheap* const* heap, const char* name, const char* data, const int* n,
                         size_t name_length, size_t data_length);
MORVA_API int getx_(Xheap* const* heap, const char* name, char* data, int* n, size_t name_length,
                    size_t data_length);
MORVA_API int readx_(Xheap* const* heap, const char* name, char* data, int* n, size_t name_length,
                     size_t data_length);
MORVA_API int refreshx_(Xheap* const* heap);
MORVA_API int delx_(Xheap* const* heap, const char* name, size_t name_length);
MORVA_API Tbl* namesx_(Xheap* const* heap);
MORVA_API int collapsex_(Xheap* const* heap);
MORVA_API int verifyx_(Xheap* const* heap);
MORVA_API int showx_(Xheap* const* heap);

MORVA_END
#endif
