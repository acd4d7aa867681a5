/* Units: values converted between physical units that are written as expressions.
 *
 *     double speed;
 *     char* difference;
 *     switch (units_convert(90, "km/h", &speed, "m/s", &difference)) {
 *         case 0:  printf("%g m/s\n", speed); break;                                  // 25 m/s
 *         case 1:  elog_complain(0, "off by %s", difference); free(difference); break;
 *         default: elog_complain(0, "no such unit");                       // shows the reason too
 *     }
 *
 * Every unit is a factor and the powers of a few basic units. Both come from the units table, a
 * text file that is looked for with datafile("UNITS", "units") and read once; docs/formats/units.md
 * describes it. One grammar serves table and expressions:
 *
 *     m/s^2   kg*m/s^2   m s^-2   1000 m   1/s   counts/V   10^3 Pa   /s
 *
 *   - A name is a run of letters, "%" and "$"; digits are no part of it: "m2" is m times 2. "^"
 *     stands before a whole power of at most 1000; "km^-1" is 0.001 per metre.
 *   - Names multiply with "*" or side by side and divide with "/", from left to right and all
 * alike: "m/s s" is m, and "J/kg K" is J*K/kg. A leading "/" is a reciprocal.
 *   - A number stands in front of all names or behind them: 3, .5, 1e-3, -3; 2^3, 2*3 and 2/3 are
 *     worked out. It may stand alone.
 *   - "#" begins a comment.
 *
 * A name that the table does not hold is looked for without the "s" of a plural, also "es"; then
 * without one of `prefixes` in front, then both. Short forms such as km are names of the table.
 *
 * Threads: all functions may be called from any thread. Whoever reads or changes Units_arr,
 * UnitsBasis_tbl or a record of them takes turns with those who do the same and with conversions.
 */
#ifndef MORVA_UNITS_H
#define MORVA_UNITS_H

#include "morva/arr.h"
#include "morva/export.h"
#include "morva/tbl.h"

MORVA_BEGIN

enum { UNITS_BASIS = 16, UNITS_PREFIXES = 15 };

/* A unit: 1 of it is `factor` times the product of the basic units raised to `exponents`. */
typedef struct Unit {
    char* name;
    double factor;
    double offset; /* added to an absolute reading before the factor: 273.15 for degC */
    int exponents[UNITS_BASIS]; /* that of a basic unit stands at its index in UnitsBasis_tbl */
} Unit;

typedef struct Unit_prefix {
    const char* name;
    double factor;
} Unit_prefix;

/* ---- The table. Units are added with add_unit; the records are the library's. */

/* From names to records (Unit*), all units. NULL until the first is added. */
extern MORVA_API Arr* Units_arr;

/* The basic units (Unit*) in the order of their definition. NULL until the first is added. */
extern MORVA_API Tbl* UnitsBasis_tbl;

/* A record for want of one: its name is "*NO*SUCH*UNIT*". */
extern MORVA_API Unit nobasis;

/* atto, femto, ... tera, in the order in which they are tried. */
extern MORVA_API const Unit_prefix prefixes[UNITS_PREFIXES];
extern MORVA_API const int nprefixes;

/* Reads the units table at the first call of the process; later ones do nothing. Conversions call
 * it. Reading ends at the first line that is wrong, whose reason and place are registered. Returns
 * 0, or -1 when it ended so. No table: ends the process ("Can't find units table"). */
MORVA_API int units_init(void);

/* A new record outside the table: factor 1, the rest 0. The name is copied. Free it with
 * free_unit. */
MORVA_API Unit* new_basis(const char* name);
MORVA_API void free_unit(void* unit);

/* Copies factor, offset and exponents, not the name. */
MORVA_API void copy_basis(Unit* to, const Unit* from);

/* As new_basis, but stores the record under `name` in the table, which owns it; fill it in before
 * it is used. Complains ("replacing definition for %s") when there was one of that name; it is not
 * freed. */
MORVA_API Unit* add_unit(const char* name);

/* ---- Names */

/* Looks a name up, as described above. 1, with the record and the factor of the prefix (1 without
 * one), either of which may be NULL; 0, with both as they were, for an unknown name; nothing is
 * registered. The table is not read for it. A NULL name ends the process. */
MORVA_API int unit_found(const char* name, Unit** unit, double* factor);

/* 1 when `name` begins with one of `prefixes`, with what is left of it, a part of `name`, and the
 * factor; else 0, with both as they were. */
MORVA_API int prefixed(const char* name, char** rest, double* factor);

/* 1 when the exponents of all basic units agree, whatever factors and names; else 0. */
MORVA_API int match_unit(const Unit* a, const Unit* b);

/* ---- Conversion */

/* Converts `value` from one unit to another: value * factor(from) / factor(to). 0; 1 when the two
 * measure different things; -1 with the reason registered (what, where, and the nearest name that
 * is known) when an expression does not parse, or `to` is zero. `result` is set with 0 only. Unless
 * it is NULL, `difference` receives with 1 a new string, the caller's to free, of the basic units
 * that `from` has more than `to` ("m s^-1 ", each with a blank behind it); otherwise NULL. */
MORVA_API int units_convert(double value, const char* from, double* result, const char* to,
                            char** difference);

/* As units_convert, for readings of scales that do not begin at zero, temperatures: 20 degC is
 * 293.15 K. The offset counts where a unit stands alone, without number, power or second unit;
 * elsewhere (degC/km) and for every other unit it is the same as units_convert, which converts
 * differences: 20 degC more is 20 K more. */
MORVA_API int units_convert_affine(double value, const char* from, double* result, const char* to,
                                   char** difference);

/* As units_convert, for `count` values at once; `results` may be `values`. */
MORVA_API int units_convert_array(const double* values, long count, const char* from,
                                  double* results, const char* to, char** difference);

/* The value of an expression: factor, exponents and, of a unit alone, offset. 0; or -1 with the
 * reason registered, `unit` as it was. The name is left alone. */
MORVA_API int units_parse(const char* units, Unit* unit);

/* A new list of the names of all units that measure the same as `units`, in order, without those
 * that occur anywhere in the text of `units`. The names are new strings: freetbl(list, free). NULL
 * with the reason registered when `units` does not parse. */
MORVA_API Tbl* units_match(const char* units);

/* ---- Listings on standard output */

/* One line: name, factor, exponents. NULL prints "unit=0". */
MORVA_API void show_unit(const Unit* unit);

/* The basic units, then all units in the order of their names. */
MORVA_API void show_all_units(void);

/* ---- Checking a table */

typedef struct Units_finding {
    int line, column; /* from 1 */
    int warning;      /* 0: reading a table ends here */
    char* text;
} Units_finding;

/* Reads a table (NULL: the one that units_init would read) without using it, to its end. A new list
 * of Units_finding*, empty for a faultless table: freetbl(list, free_units_finding). NULL with the
 * reason registered when there is no such file or it cannot be read. */
MORVA_API Tbl* units_check(const char* path);
MORVA_API void free_units_finding(void* finding);

MORVA_END
#endif
