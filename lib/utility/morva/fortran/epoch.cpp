// Fortran twins of the calendar arithmetic and the texts of times.
#include "morva/epoch.h"

#include <cstring>

#include "base/fortran.hpp"
#include "morva/fortran.h"

using morva::malloced;
using morva::fortran::give;
using morva::fortran::Text;

namespace {

long give_new(char* field, size_t length, char* text) {
    const malloced<char> owned(text);
    return give(field, length, text);
}

}  // namespace

extern "C" {

int isleap_(const int* year) {
    return isleap(*year);
}

double dtoepoch_(const int* yearday) {
    return dtoepoch(*yearday);
}

double year2days_(const double* year) {
    return year2days(*year);
}

double epoch_(const int* yearday) {
    return epoch(*yearday);
}

int yearday_(const double* epoch) {
    return yearday(*epoch);
}

double h2e_(const int* year, const int* doy, const int* hour, const int* minute,
            const double* second) {
    return h2e(*year, *doy, *hour, *minute, *second);
}

void e2h_(const double* epoch, int* year, int* doy, int* hour, int* minute, double* second) {
    e2h(*epoch, year, doy, hour, minute, second);
}

void doy2mday_(const int* doy, const int* year, int* month, int* day) {
    doy2mday(*doy, *year, month, day);
}

int mday2doy_(const int* year, const int* month, const int* day) {
    return mday2doy(*year, *month, *day);
}

void etoh_(DateTime* time) {
    etoh(time);
}

void htoe_(DateTime* time) {
    htoe(time);
}

void mdtodate_(DateTime* time) {
    mdtodate(time);
}

void month_day_(DateTime* time) {
    month_day(time);
}

int todaysdate_(void) {
    return todaysdate();
}

void zh_today_(DateTime* time) {
    zh_today(time);
}

void timeprint_(const DateTime* time) {
    timeprint(time);
}

double timecon_(const char* text, size_t text_length) {
    return timecon(Text(text, text_length).c_str());
}

long epoch2str_(const char* format, const double* epoch, char* text, size_t format_length,
                size_t text_length) {
    return give_new(text, text_length, epoch2str(Text(format, format_length).c_str(), *epoch));
}

long zepoch2str_(const char* format, const char* zone, const double* epoch, char* text,
                 size_t format_length, size_t zone_length, size_t text_length) {
    return give_new(
        text, text_length,
        zepoch2str(Text(format, format_length).c_str(), Text(zone, zone_length).c_str(), *epoch));
}

long strtime_(const double* epoch, char* text, size_t text_length) {
    return give_new(text, text_length, strtime(*epoch));
}

long strydtime_(const double* epoch, char* text, size_t text_length) {
    return give_new(text, text_length, strydtime(*epoch));
}

long strdate_(const double* epoch, char* text, size_t text_length) {
    return give_new(text, text_length, strdate(*epoch));
}

long strlocaltime_(const double* epoch, char* text, size_t text_length) {
    return give_new(text, text_length, strlocaltime(*epoch));
}

long strlocalydtime_(const double* epoch, char* text, size_t text_length) {
    return give_new(text, text_length, strlocalydtime(*epoch));
}

long strlocaldate_(const double* epoch, char* text, size_t text_length) {
    return give_new(text, text_length, strlocaldate(*epoch));
}

int fmttime_(char* text, const int* kind, const char* zone, const double* epoch, size_t text_length,
             size_t zone_length) {
    char buffer[1024];
    fmttime(buffer, *kind, Text(zone, zone_length).or_null(), *epoch);
    give(text, text_length, buffer);
    return 0;
}

void set_time_formats_(void) {
    set_time_formats();
}

int is_month_first_(void) {
    return is_month_first();
}

long strtdelta_(const double* seconds, char* text, size_t text_length) {
    return give_new(text, text_length, strtdelta(*seconds));
}

long ordinal_(const int* n, char* text, size_t text_length) {
    return give(text, text_length, ordinal(*n));
}

int get_nice_times_(const int* count, double* first, double* step, const double* t0,
                    const double* t1) {
    return get_nice_times(*count, first, step, *t0, *t1);
}

void epoch2bcd_(void* bcd, const double* epoch) {
    epoch2bcd(static_cast<unsigned char*>(bcd), *epoch);
}

void bcdtime_(const void* bcd, DateTime* time) {
    bcdtime(static_cast<const unsigned char*>(bcd), time);
}

void switchtz_(const char* name, size_t name_length) {
    switchTZ(Text(name, name_length).c_str());
}

void restoretz_(void) {
    restoreTZ();
}

long mygettz_(char* text, size_t text_length) {
    return give(text, text_length, mygetTZ());
}

}  // extern "C"
