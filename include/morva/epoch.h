/* Epoch times: calendar arithmetic, texts of times in any zone, and what goes with them.
 *
 *     double start = h2e(2014, 175, 12, 30, 15.5);              // day 175 of 2014: June 24
 *     char* text = epoch2str("%Y-%m-%d %H:%M:%S.%s", start);    // "2014-06-24 12:30:15.500"
 *     char* there = zepoch2str("%H:%M %z", "US/Mountain", start); // "06:30 MDT"
 *     free(text);
 *     free(there);
 *
 * An epoch time is a double: seconds since 1970-01-01 00:00:00 UTC without leap seconds, fractions
 * included. A yearday is an integer, year * 1000 + day of the year: 2014175. Days of the year,
 * months and days of the month count from 1. The calendar is the Gregorian one in all years.
 *
 * Texts that a function returns are new and the caller's to free. Decimal points are points in
 * every locale.
 *
 * Range: breaking down a time as etoh does is exact for the years 462 to 3475, and so is everything
 * in UTC that builds on it; farther away the year is found by steps that gather an error of a day
 * for each leap day more or less, and many days come out as January 1 of a year near by. Local
 * zones (zepoch2str, also with "UTC" as the zone) are exact for all years that an int can hold.
 *
 * Threads: every function may be called by any thread at any time, except where it says otherwise.
 */
#ifndef MORVA_EPOCH_H
#define MORVA_EPOCH_H

#include "morva/export.h"

MORVA_BEGIN

/* A time and its calendar fields. */
typedef struct DateTime {
    double epoch;
    long date;     /* yearday */
    int year;      /* in full: 2014 */
    int month;     /* 1 .. 12 */
    char mname[4]; /* "Jan" .. "Dec" */
    int day;       /* 1 .. 31 */
    int doy;       /* 1 .. 366 */
    int hour;      /* 0 .. 23 */
    int minute;    /* 0 .. 59 */
    double second; /* with the fraction */
} DateTime;

/* Lengths of the months in a plain year, their names short and in full, and the days of the week
 * from Monday. */
extern MORVA_API const int days_in_month[12];
extern MORVA_API const char* const month_name[12];
extern MORVA_API const char* const Month[12];
extern MORVA_API const char* const Week[7];

/* ---- Calendar arithmetic, all in UTC ----
 *
 * No function checks the range of a field: 25 hours are a day and an hour. A field that no int can
 * hold is clamped, a field that is no number (of an infinite time, say) is 0. */

/* 1 for leap years, else 0. */
MORVA_API int isleap(int year);

/* The epoch time of 00:00:00 of a day. The yearday is split by integer division, rounding towards
 * zero: negative years do not come out as one would wish. */
MORVA_API double dtoepoch(int yearday);

/* Days from 1970-01-01 to January 1 of a year. */
MORVA_API double year2days(double year);

/* The same as dtoepoch: h2e of the yearday's two parts. */
MORVA_API double epoch(int yearday);

/* The yearday that a time lies in. */
MORVA_API int yearday(double epoch);

/* The epoch time of year * 1000 + doy (which see: a day of the year beyond 999 runs into the year),
 * hour, minute and second. */
MORVA_API double h2e(int year, int doy, int hour, int minute, double second);

/* The fields of a time, as etoh has them. */
MORVA_API void e2h(double epoch, int* year, int* doy, int* hour, int* minute, double* second);

/* Month and day of a day of the year. A day behind the year's last is in month 12, counted from the
 * end of the year; one before the first is in month 1, below 1. */
MORVA_API void doy2mday(int doy, int year, int* month, int* day);

/* The day of the year: the days of all months before `month`, and `day`. */
MORVA_API int mday2doy(int year, int month, int day);

/* Fills all other fields from `epoch`. A time so close before midnight that the distance is lost in
 * the arithmetic (-1e-20) is 24:00:00 of the day before. */
MORVA_API void etoh(DateTime* time);

/* Fills `epoch` from `date` (not from year, month and day: they are not looked at), `hour`,
 * `minute` and `second`. */
MORVA_API void htoe(DateTime* time);

/* Fills `doy` and `date` from `year`, `month` and `day`. */
MORVA_API void mdtodate(DateTime* time);

/* Fills `month`, `day` and `mname` from `year` and `doy`. */
MORVA_API void month_day(DateTime* time);

/* The yearday of today, and today's 00:00:00 with all fields, by the system's clock. */
MORVA_API int todaysdate(void);
MORVA_API void zh_today(DateTime* time);

/* Writes a line with the fields to standard output: epoch, date, month, day, year, clock time. */
MORVA_API void timeprint(const DateTime* time);

/* Seconds of a clock text such as 12:30:15.25: digits for hours, any one character, digits for
 * minutes, any one character, digits and points for seconds. What is missing counts as 0. Only the
 * first 19 characters are looked at. Null is 0. */
MORVA_API double timecon(const char* text);

/* ---- Texts ----
 *
 * In a format a percent sign and a letter stand for
 *
 *     %A  %a   day of the week, its first three letters
 *     %B  %b   month, its first three letters
 *     %D       month/day/year, " 6/24/14"; day/month/year unless Month_first is set
 *     %d  %e   day of the month, two characters with 0 or with a blank in front
 *     %E       the epoch time, "%15.3f"
 *     %G  %g   "2014-06-24", "2014-175"
 *     %H  %k   hour, two characters with 0 or with a blank in front
 *     %I  %l   the same on a clock of 12 hours
 *     %j       day of the year, three digits
 *     %L  %m   month as a number, two characters with a blank or with 0 in front
 *     %M       minute, two digits
 *     %n  %t   a newline, a tab
 *     %O  %o   day of the year, of the month, as an ordinal number: "175th", "24th"
 *     %p       "AM" or "PM"
 *     %S       whole seconds, two digits
 *     %s       thousandths of the second, rounded, three digits; 1000 from .9995 on
 *     %T       "12:30:15.500", the seconds rounded: "60.000" from 59.9995 on
 *     %u       hundred-thousandths of the second, rounded, five digits, at most 99999
 *     %Y  %y   year, year of the century
 *     %Z  %z   abbreviation of the zone: "UTC", "MDT"
 *
 * and any other character behind a percent sign for itself. A percent sign at the end is dropped.
 * Texts may be of any length. */

/* A time in UTC. It is not rounded: see %s and %T. */
MORVA_API char* epoch2str(const char* format, double epoch);

/* A time in a zone: the name of one of the zone database ("US/Mountain"), a POSIX zone text
 * ("EST5EDT4,M3.2.0,M11.1.0"), or null, "" or "LOCAL" for the process's own, which TZ says, or the
 * system's zone where TZ is not set. Results are the C library's; TZ and its zone are left alone.
 * An unknown zone is registered, "Unrecognized timezone '%s'\n", and the process's own is taken;
 * absolute paths and names with dots are unknown. The second is that of the time cut towards zero,
 * plus the rest: for times before 1970 the fraction of a second, of %s and %u, too, is negative.
 *
 * Zones are read once and kept; a file that changes is noticed within seconds. */
MORVA_API char* zepoch2str(const char* format, const char* zone, double epoch);

/* ---- House formats: the layouts of a site ----
 *
 * They are read from the parameter file time_formats.pf on the first use, and not again. Where
 * there is no such file, they are "%m/%d/%Y  %H:%M:%S.%s" and the like, or "%d/%m/%Y ..." where the
 * environment has EUROPEAN_DATE, which also selects the location "european" of the file. A file
 * without the keys it needs ends the process.
 *
 * Times that no calendar shows have texts of their own: "** The End of Time (+infinity) **", "**
 * The Beginning of Time (-infinity) **", "** Nan **", and, some 8025 years away from 1970, "** 9512
 * years ahead ** " or "**  -9513 years ago ** ". */

/* Time, day of the year and time, the same with finer seconds, date; the same with the zone. */
extern MORVA_API const char* Strtime_format;
extern MORVA_API const char* Strydtime_format;
extern MORVA_API const char* UStrydtime_format;
extern MORVA_API const char* Strdate_format;
extern MORVA_API const char* ZStrtime_format;
extern MORVA_API const char* ZStrydtime_format;
extern MORVA_API const char* UZStrydtime_format;
extern MORVA_API const char* ZStrdate_format;
extern MORVA_API int Month_first;   /* months stand before days in dates */
extern MORVA_API int Unset_formats; /* true until the formats are set */

/* Layouts that are the same at every site. */
extern MORVA_API const char* const MDtime_format;
extern MORVA_API const char* const MD_format;
extern MORVA_API const char* const YD_format;
extern MORVA_API const char* const YDtime_format;
extern MORVA_API const char* const ZMDtime_format;
extern MORVA_API const char* const ZMD_format;
extern MORVA_API const char* const ZYD_format;
extern MORVA_API const char* const ZYDtime_format;

/* Loads the house formats, again if they are set already; no other thread may use them then. */
MORVA_API void set_time_formats(void);

/* Month_first, once the formats are loaded. */
MORVA_API int is_month_first(void);

/* A time in UTC, in the layouts Strtime_format, Strydtime_format and Strdate_format; the first two
 * rounded to milliseconds. */
MORVA_API char* strtime(double epoch);
MORVA_API char* strydtime(double epoch);
MORVA_API char* strdate(double epoch);

/* The same in the process's own zone, with the zone. */
MORVA_API char* strlocaltime(double epoch);
MORVA_API char* strlocalydtime(double epoch);
MORVA_API char* strlocaldate(double epoch);

/* Writes a time into the caller's buffer, rounded to milliseconds (kind 8: to 1e-5 s). Kinds are 1
 * MDtime_format, 3 MD_format, 4 YD_format, 5 Strtime_format, 6 Strdate_format, 7 Strydtime_format,
 * 8 UStrydtime_format, any other YDtime_format. A null zone and "UTC" mean UTC, with the plain
 * format, any other is for zepoch2str, with the zone's format. Without house formats of its own at
 * the site 64 bytes are enough; whatever the formats, the text is cut at 1023 characters. Returns
 * 0. */
MORVA_API int fmttime(char* buffer, int kind, const char* zone, double epoch);

/* A length of time as 21 characters or more: " 1 days 1.0 hours    ", "  -5.000 seconds     ". */
MORVA_API char* strtdelta(double seconds);

/* The ending of an ordinal number: "st", "nd", "rd" or "th". 101, 102 and 103, and so with other
 * hundreds, have "th". Not the caller's to free. */
MORVA_API const char* ordinal(int n);

/* ---- Round times for an axis ----
 *
 * Chooses a step so that some `count` steps span t0 .. t1, and the first tick. Steps are 1, 2 or 5
 * times a power of ten below a second and of days, and in between what divides minutes, hours and
 * days. The first tick lies behind t0; steps of 60 and 3600 seconds may have it at t0. When t0 is
 * t1, one of them is no finite number, or count is below 1, `first` is 0 and `step` stays as it is.
 * Returns 0. */
MORVA_API int get_nice_times(int count, double* first, double* step, double t0, double t1);

/* ---- BCD clocks ----
 *
 * Six bytes of two decimal digits, the first in the high half: three digits day of the year, two
 * each hour, minute and second, three hundredths of the second. */

/* Writes the six bytes; hundredths are cut, not rounded. */
MORVA_API void epoch2bcd(unsigned char* bcd, double epoch);

/* Fills year (the current one: the form has none), doy, hour, minute, second, date and epoch, and
 * leaves the other fields alone. Digits are not checked. */
MORVA_API void bcdtime(const unsigned char* bcd, DateTime* time);

/* ---- The zone of the process ----
 *
 * Nothing in this library needs these: they are for programs that use the C library's local time.
 * TZ is changed for all threads; each call holds a lock, which the library takes, too, when it
 * looks at TZ. The C library's own functions know nothing of it. */

/* Makes `name`, of which 61 characters count, the process's zone by way of TZ; "" or null removes
 * TZ, which leaves the system's zone. The first switch since the last restoreTZ remembers what was
 * there. errno is what loading the zone left in it, 0 when there was nothing to complain of. */
MORVA_API void switchTZ(const char* name);

/* Goes back to before all switches. errno as with switchTZ. */
MORVA_API void restoreTZ(void);

/* The environment's entry, "TZ=US/Mountain", or null when TZ is not set or empty. It belongs to the
 * environment. */
MORVA_API char* mygetTZ(void);

MORVA_END
#endif
